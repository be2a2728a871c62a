// The options of `vesk record` that say which events it writes by itself: processes, messages of
// the kernel, the machine id, and how many bytes they may take.
#ifndef VESK_CLI_VERBS_RECORD_EVENT_OPTIONS_HPP
#define VESK_CLI_VERBS_RECORD_EVENT_OPTIONS_HPP

#include <cstdint>
#include <optional>
#include <string>

#include "machine/recording_events.hpp"
#include "verbs/verb.hpp"

namespace cli
{

struct record_event_options {
    bool kernel_log = false; // asked for
    bool no_kernel_log = false;
    bool no_machine_id = false;
    std::optional<uint32_t> top;
    bool top_arguments = false;
    std::optional<uint32_t> event_bytes;

    // Throws a failure (usage) where the options make no sense.
    recording_event_options for_recording(const std::string &root, int64_t interval) const;
};

// --event-bytes alone, and the refusal of a number that is too small.
void add_event_bytes(option_list &options, std::optional<uint32_t> &event_bytes);
void require_event_bytes(const std::optional<uint32_t> &event_bytes);

void add_record_event_options(option_list &options, record_event_options &events);

} // namespace cli

#endif
