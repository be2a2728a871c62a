// An event: something that happened at one moment, with a type and a text. This is the form in
// which the command passes events around before they are checked and stored (see event_record.hpp).
#ifndef VESK_CLI_BOX_EVENT_HPP
#define VESK_CLI_BOX_EVENT_HPP

#include <cstddef>
#include <cstdint>
#include <string>

#include <vesk/vesk_limits.h>

namespace cli
{

constexpr uint32_t last_event_type = VESK_MAX_EVENT_TYPE;
// The longest text that a box takes.
constexpr std::size_t longest_event = VESK_MAX_COUNT;

struct event {
    uint32_t type; // 1 to last_event_type
    int64_t time;
    std::string text;
};

// The result of writing an event.
enum class event_result {
    recorded,
    waits // for the next vector
};

} // namespace cli

#endif
