// Finds times in which a running recording took no samples: the machine slept, the clock was set,
// or samples came too late.
#ifndef VESK_CLI_MACHINE_CLOCK_WATCH_HPP
#define VESK_CLI_MACHINE_CLOCK_WATCH_HPP

#include <cstdint>
#include <optional>

#include "text/own_events.hpp"

namespace cli
{

// The three clocks of one moment, in seconds.
struct clock_reading {
    double wall = 0;      // may be set
    double monotonic = 0; // stands still while the machine sleeps
    double boot = 0;      // goes on then
};

clock_reading read_clocks();

class clock_watch
{
public:
    explicit clock_watch(const clock_reading &now) : last_(now) {}

    // What happened since the last look: that the machine slept, that the clock was set, or both,
    // the sleep first.
    std::optional<gap> slept(const clock_reading &now) const;
    std::optional<gap> was_set(const clock_reading &now) const;
    void looked(const clock_reading &now) { last_ = now; }

private:
    clock_reading last_;
};

// Counts the samples that were due and not taken. One gap reports all that were missed in a minute.
class late_count
{
public:
    explicit late_count(int64_t interval) : interval_(interval) {}

    // A sample is taken for the time @p tick of the clock on the wall, at @p monotonic of a clock
    // that nobody sets. Returns how many there should have been since the last one. When the time
    // that really passed has no place for so many, the clock was set, and that time counts.
    uint64_t taken(int64_t tick, double monotonic);
    // The next sample may come at any time: the clock was set, or the machine slept.
    void forget() { last_.reset(); }
    // The gap to report at @p monotonic, if a minute has passed since the last report. With @p all
    // it is due at once.
    std::optional<gap> due(double monotonic, bool all = false);

private:
    int64_t interval_;
    std::optional<int64_t> last_;
    double last_monotonic_ = 0;
    gap pending_;
    std::optional<double> told_;
};

} // namespace cli

#endif
