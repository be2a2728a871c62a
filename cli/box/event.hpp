// An event: something that happened at one moment, in words.
#ifndef VESK_CLI_BOX_EVENT_HPP
#define VESK_CLI_BOX_EVENT_HPP

#include <cstddef>
#include <cstdint>
#include <string>

namespace cli
{

constexpr uint32_t last_event_type = 5;
// The longest text that a box takes.
constexpr std::size_t longest_event = 10000;

struct event {
    uint32_t type; // 1 to last_event_type
    int64_t time;
    std::string text;
};

// What becomes of an event.
enum class event_result {
    recorded,
    waits // for the next vector
};

} // namespace cli

#endif
