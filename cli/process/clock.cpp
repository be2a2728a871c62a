// Reads the monotonic clock and the clock on the wall with clock_gettime() and returns seconds.
// Intervals are measured with the first, which nobody can set; times that are stored or shown come
// from the second.
#include "process/clock.hpp"

#include <ctime>

namespace cli
{
namespace
{

double seconds_of(clockid_t clock)
{
    timespec now = {};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

} // namespace

double monotonic_seconds()
{
    return seconds_of(CLOCK_MONOTONIC);
}

double clock_seconds()
{
    return seconds_of(CLOCK_REALTIME);
}

} // namespace cli
