// Computes when the next sample is due and how long to wait for it. Samples lie on whole multiples
// of the interval, as clocks do, so that recordings of several machines have the same times.
#ifndef VESK_CLI_MACHINE_SCHEDULE_HPP
#define VESK_CLI_MACHINE_SCHEDULE_HPP

#include <cstdint>

namespace cli
{

// The next multiple of @p interval seconds after @p now, at least @p least seconds away. Samples
// lie on whole multiples of the clock so that no two fall into the same second.
int64_t next_tick(double now, int64_t interval, double least = 0);

// The latest multiple of @p interval seconds that is not after @p now.
int64_t latest_tick(double now, int64_t interval);

// How long to wait for @p tick at @p now: 0 when it is time. A clock that was set back would make
// the wait longer than one interval; then the answer is negative, and a new tick is due.
double seconds_until(int64_t tick, double now, int64_t interval);

} // namespace cli

#endif
