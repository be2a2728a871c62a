// Seconds of the two clocks.
#ifndef VESK_CLI_PROCESS_CLOCK_HPP
#define VESK_CLI_PROCESS_CLOCK_HPP

namespace cli
{

// Since some moment: nobody sets this clock.
double monotonic_seconds();

// Since 1970, by the clock on the wall.
double clock_seconds();

} // namespace cli

#endif
