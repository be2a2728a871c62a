// Machine identities and gaps, which the events of a recording tell of: converts them from values
// to the text of an event and back.
#ifndef VESK_CLI_TEXT_OWN_EVENTS_HPP
#define VESK_CLI_TEXT_OWN_EVENTS_HPP

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "text/event_text.hpp"

namespace cli
{

// Which machine, and which of its lives. What is not known is empty.
struct machine_identity {
    std::string host;
    std::string machine_id; // of the installation: 32 hexadecimal digits
    std::string boot_id;    // another one after each start of the machine
    std::string kernel;     // its release
};

// @p text where it is an id: 32 hexadecimal digits, or the same in the groups of a UUID. Empty
// otherwise.
std::string id_or_nothing(const std::string &text);

// As pairs "host", "machine_id", "boot_id", "kernel"; what is empty is left out.
void add_identity(event_text &text, const machine_identity &who);
machine_identity identity_in(const parsed_event &event);

namespace gap_reason
{
// Between two recordings.
inline constexpr std::string_view stop = "stop";       // ended cleanly, the machine went on
inline constexpr std::string_view reboot = "reboot";   // ended cleanly, the machine started anew
inline constexpr std::string_view killed = "killed";   // did not end cleanly, the machine went on
inline constexpr std::string_view crash = "crash";     // did not, and the machine started anew
inline constexpr std::string_view unknown = "unknown"; // the box does not tell
// In one recording.
inline constexpr std::string_view suspend = "suspend"; // the machine slept
inline constexpr std::string_view clock = "clock";     // the clock was set
inline constexpr std::string_view late = "late";       // the recording was held up
} // namespace gap_reason

// A time that has no samples, or not all.
struct gap {
    int64_t from = 0;
    int64_t to = 0;
    int64_t seconds = 0; // that were lost; those that the clock was set by, below 0 for back
    std::string reason;
    uint64_t missed = 0; // samples, where late
};

// For people: "the recorder was killed". A reason that is none of the above is made printable.
std::string gap_words(const std::string &reason);
// For people: "1h5s", and "-5s" for a clock that was set back.
std::string gap_length(const gap &what);
event_level gap_level(const std::string &reason);

std::string gap_text(const gap &what);
// Nothing where the event is no gap, or one of its values is missing.
std::optional<gap> gap_in(const parsed_event &event);

} // namespace cli

#endif
