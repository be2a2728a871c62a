// Compares three clocks. If the boot clock has gained on the monotonic one, the machine slept; if
// the clock on the wall differs from the boot clock by more than before, somebody set it.
#include "machine/clock_watch.hpp"

#include <algorithm>
#include <cmath>
#include <ctime>

namespace cli
{
namespace
{

// Slewing moves the clock by up to 500 in a million, and timestamps are whole seconds: less than
// this is none.
constexpr double least_jump = 1;
constexpr double most_slew = 0.001;

constexpr double seconds_between_tellings = 60;

double seconds_of(clockid_t clock)
{
    timespec now = {};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

int64_t whole(double seconds)
{
    return static_cast<int64_t>(std::floor(seconds));
}

gap make_gap(double from, double to, double seconds, std::string_view reason)
{
    gap found;
    found.from = whole(from);
    found.to = whole(to);
    found.seconds = std::llround(seconds);
    found.reason = reason;
    return found;
}

} // namespace

clock_reading read_clocks()
{
    return {seconds_of(CLOCK_REALTIME), seconds_of(CLOCK_MONOTONIC), seconds_of(CLOCK_BOOTTIME)};
}

std::optional<gap> clock_watch::slept(const clock_reading &now) const
{
    const double sleep = (now.boot - last_.boot) - (now.monotonic - last_.monotonic);
    if (sleep < least_jump) {
        return std::nullopt;
    }
    return make_gap(last_.wall, last_.wall + (now.boot - last_.boot), sleep, gap_reason::suspend);
}

std::optional<gap> clock_watch::was_set(const clock_reading &now) const
{
    const double passed = now.boot - last_.boot;
    const double jump = (now.wall - last_.wall) - passed;
    if (std::abs(jump) < least_jump + passed * most_slew) {
        return std::nullopt;
    }
    return make_gap(last_.wall + passed, now.wall, jump, gap_reason::clock);
}

uint64_t late_count::taken(int64_t tick, double monotonic)
{
    uint64_t missed = 0;
    if (last_ && tick - *last_ > interval_) {
        const double passed = (monotonic - last_monotonic_) / static_cast<double>(interval_);
        missed = static_cast<uint64_t>((tick - *last_) / interval_ - 1);
        if (static_cast<double>(missed) > passed + 1) {
            // The clock was set in between.
            missed = static_cast<uint64_t>(std::max<int64_t>(std::llround(passed) - 1, 0));
        }
    }
    if (missed > 0) {
        if (pending_.missed == 0) {
            pending_.from = *last_;
        }
        pending_.to = tick;
        pending_.missed += missed;
    }
    last_ = tick;
    last_monotonic_ = monotonic;
    return missed;
}

std::optional<gap> late_count::due(double monotonic, bool all)
{
    const bool is_early = told_ && monotonic - *told_ < seconds_between_tellings;
    if (pending_.missed == 0 || (is_early && !all)) {
        return std::nullopt;
    }
    gap found = pending_;
    found.seconds = static_cast<int64_t>(found.missed) * interval_;
    found.reason = gap_reason::late;
    pending_ = {};
    told_ = monotonic;
    return found;
}

} // namespace cli
