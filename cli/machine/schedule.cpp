// Computes the times of samples. The time of the clock and the interval go in; the next whole
// multiple of the interval and the time to wait for it come out. A clock that was set back gives a
// negative wait, and the caller asks for a new time. Nothing here reads a clock, so any times can
// be tested.
#include "machine/schedule.hpp"

#include <algorithm>
#include <cmath>

namespace cli
{

int64_t next_tick(double now, int64_t interval, double least)
{
    auto tick = latest_tick(now, interval) + interval;
    while (static_cast<double>(tick) - now < least) {
        tick += interval;
    }
    return tick;
}

int64_t latest_tick(double now, int64_t interval)
{
    return static_cast<int64_t>(std::floor(now / static_cast<double>(interval))) * interval;
}

double seconds_until(int64_t tick, double now, int64_t interval)
{
    const double rest = static_cast<double>(tick) - now;
    // Twice the interval, because the first tick may be that far away.
    if (rest > 2 * static_cast<double>(interval)) {
        return -1;
    }
    return std::max(rest, 0.0);
}

} // namespace cli
