// Adds the options of `vesk record` that choose its own events, and turns them into the options of
// recording_events. A number out of range or options that contradict each other are a usage failure
// before anything is recorded.
#include "verbs/record_event_options.hpp"

#include <fmt/format.h>

#include "process/failure.hpp"

namespace cli
{

recording_event_options record_event_options::for_recording(const std::string &root,
                                                            int64_t interval) const
{
    if (kernel_log && no_kernel_log) {
        throw failure(exit_usage, "--kernel-log and --no-kernel-log exclude each other");
    }
    recording_event_options result;
    result.root = root;
    result.interval = interval;
    result.machine_id = !no_machine_id;
    result.kernel_log = !no_kernel_log;
    result.top = top.value_or(result.top);
    result.top_arguments = top_arguments;
    if (result.top > recording_events::most_top) {
        throw failure(exit_usage,
                      fmt::format("--top {}: is more than {}", *top, recording_events::most_top));
    }
    require_event_bytes(event_bytes);
    return result;
}

void require_event_bytes(const std::optional<uint32_t> &event_bytes)
{
    if (event_bytes && *event_bytes < least_event_bytes) {
        throw failure(exit_usage, fmt::format("--event-bytes {}: is less than {}", *event_bytes,
                                              least_event_bytes));
    }
}

void add_event_bytes(option_list &options, std::optional<uint32_t> &event_bytes)
{
    options.number("--event-bytes", "N", event_bytes,
                   fmt::format("Bytes that the events of one buffer may take (default {})",
                               default_event_bytes));
}

void add_record_event_options(option_list &options, record_event_options &events)
{
    options.number("--top", "N", events.top,
                   fmt::format("List the N processes that use the most, up to {}, as an event "
                               "every minute (default {}, 0: none)",
                               recording_events::most_top, recording_event_options().top));
    options.flag("--top-arguments", events.top_arguments,
                 "List them with their command lines, which may hold passwords");
    options.flag("--kernel-log", events.kernel_log,
                 "Say so where the kernel's messages cannot be recorded (they are where they can)");
    options.flag("--no-kernel-log", events.no_kernel_log, "Do not record the kernel's messages");
    options.flag("--no-machine-id", events.no_machine_id,
                 "Leave /etc/machine-id out of the box, which tells this machine from all others");
    add_event_bytes(options, events.event_bytes);
}

} // namespace cli
