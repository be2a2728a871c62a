// Adds the options of `vesk record` and checks all of them before anything is made.
#include "verbs/record_options.hpp"

#include <fmt/format.h>

#include "box/sync_policy.hpp"
#include "process/failure.hpp"
#include "text/duration.hpp"
#include "verbs/common_options.hpp"

namespace cli
{

void add_record_options(option_list &options, record_options &record)
{
    options.text("--interval", "TIME", record.interval,
                 "Time between samples in whole seconds: 1s, 5m, 2h, 1d");
    options.text("--for", "TIME", record.duration, "End after this time (default: at Ctrl-C)");
    add_size_options(options, record.sizes);
    add_sync(options, record.sync, "at the next sample after TIME");
    add_sensor_options(options, record.sensors);
    add_record_event_options(options, record.events);
}

record_settings settings_of(const record_options &options)
{
    record_settings settings;
    settings.interval = parse_duration(options.interval, "--interval");
    settings.sensors = options.sensors.choice();
    if (!options.duration.empty()) {
        const int64_t duration = parse_duration(options.duration, "--for");
        if (duration < settings.interval) {
            throw failure(exit_usage, fmt::format("--for {} is shorter than --interval {}",
                                                  options.duration, options.interval));
        }
        settings.samples = static_cast<uint64_t>(duration / settings.interval);
    }
    settings.events = options.events.for_recording(options.sensors.root, settings.interval);
    settings.sync = parse_sync_policy(options.sync);
    options.sizes.check();
    return settings;
}

} // namespace cli
