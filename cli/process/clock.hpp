// Reads the two clocks of the system in seconds: a monotonic one to measure intervals with, and the
// one on the wall, which somebody may set at any time.
#ifndef VESK_CLI_PROCESS_CLOCK_HPP
#define VESK_CLI_PROCESS_CLOCK_HPP

namespace cli
{

// Seconds since some fixed moment, by a clock that nobody can set.
double monotonic_seconds();

// Seconds since 1970, by the clock on the wall; 0 when it cannot be read.
double clock_seconds();

} // namespace cli

#endif
