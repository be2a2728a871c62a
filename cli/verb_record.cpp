// vesk record BASE
#include <ctime>
#include <fmt/format.h>
#include <optional>

#include "box_writer.hpp"
#include "duration.hpp"
#include "failure.hpp"
#include "machine/rates.hpp"
#include "machine/sampler.hpp"
#include "machine/schedule.hpp"
#include "stop_request.hpp"
#include "terminal.hpp"
#include "value_text.hpp"
#include "verbs.hpp"

namespace cli
{
namespace
{

double clock_seconds()
{
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// Waits until the clock shows @p tick, or a later tick when the clock is set back meanwhile. False
// when the end was requested.
bool wait_for(int64_t tick, int64_t interval, const stop_request &stop)
{
    while (!stop.requested()) {
        const double now = clock_seconds();
        const double rest = seconds_until(tick, now, interval);
        if (rest < 0) {
            tick = next_tick(now, interval);
        } else if (rest == 0) {
            return true;
        } else {
            stop.wait(rest);
        }
    }
    return false;
}

class recording
{
public:
    recording(const record_options &options, int64_t interval)
        : base_(options.base), interval_(interval), box_(options.base, options.shape)
    {
    }

    void run(std::optional<uint64_t> samples)
    {
        // Rates need two looks; the first must not lie too close to the second.
        snapshot before = machine_.take();
        double least = static_cast<double>(interval_) / 2;
        while (!samples || count_ < *samples) {
            const int64_t tick = next_tick(clock_seconds(), interval_, least);
            least = 0;
            if (!wait_for(tick, interval_, stop_)) {
                break;
            }
            snapshot now = machine_.take();
            write(readings_between(before, now));
            before = std::move(now);
        }
    }

private:
    // A box keeps the name of every sensor for ever, and has room for so many only.
    void drop_what_has_no_room(readings &found)
    {
        std::size_t kept = 0;
        for (std::size_t i = 0; i < found.names.size(); ++i) {
            if (box_.admit(found.names[i])) {
                std::swap(found.names[kept], found.names[i]);
                found.values[kept] = found.values[i];
                ++kept;
            }
        }
        if (kept < found.names.size() && !noted_) {
            status_.clear();
            note(fmt::format("{}: holds 10000 different sensors already; '{}' and all other new "
                             "ones are not recorded",
                             base_, found.names[kept]));
            noted_ = true;
        }
        found.names.resize(kept);
        found.values.resize(kept);
    }

    void write(readings found)
    {
        drop_what_has_no_room(found);
        if (found.names.empty()) {
            throw failure(exit_failed, "this machine gives no readings (is /proc there?)");
        }
        if (found.names != sensors_) {
            box_.set_sensors(found.names);
            sensors_ = found.names;
        }
        const auto now = static_cast<int64_t>(clock_seconds());
        box_.write(now, found.values);
        ++count_;
        status_.show(fmt::format("recording {}: {}, {}, {} (Ctrl-C ends)", base_,
                                 counted(count_, "sample"), counted(sensors_.size(), "sensor"),
                                 format_time(now)));
    }

    std::string base_;
    int64_t interval_;
    stop_request stop_;
    box_writer box_;
    sampler machine_;
    status_line status_;
    std::vector<std::string> sensors_;
    uint64_t count_ = 0;
    bool noted_ = false;
};

} // namespace

exit_code record(const record_options &options)
{
    const int64_t interval = parse_duration(options.interval, "--interval");
    std::optional<uint64_t> samples;
    if (!options.duration.empty()) {
        const int64_t duration = parse_duration(options.duration, "--for");
        if (duration < interval) {
            throw failure(exit_usage, fmt::format("--for {} is shorter than --interval {}",
                                                  options.duration, options.interval));
        }
        samples = static_cast<uint64_t>(duration / interval);
    }
    recording(options, interval).run(samples);
    return exit_done;
}

} // namespace cli
