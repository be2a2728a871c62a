// Completes the sizes of a new box from those that the user gave, and compares them with the sizes
// of an existing box. Sizes that no box can have are a usage failure.
#include "box/box_shape.hpp"

#include <algorithm>
#include <fmt/format.h>

#include <vesk/vesk_limits.h>

#include "process/failure.hpp"

namespace cli
{
namespace
{

// The library summarises a buffer into at most so many intervals.
constexpr uint32_t most_intervals = VESK_MAX_INTERVALS;
// Where only the number of intervals is given.
constexpr uint32_t samples_per_interval = 60;

void require_same(const std::string &base, const char *option, std::optional<uint32_t> wanted,
                  uint32_t found)
{
    if (wanted && *wanted != found) {
        throw failure(exit_usage, fmt::format("{}: was made with {} {}, which cannot be changed",
                                              base, option, found));
    }
}

} // namespace

whole_shape complete_shape(const box_shape &shape)
{
    uint32_t samples = shape.samples.value_or(default_samples);
    if (shape.intervals && !shape.samples && *shape.intervals != 0 &&
        samples % *shape.intervals != 0) {
        samples = *shape.intervals * samples_per_interval;
    }
    if (samples == 0 || samples % 2 != 0) {
        throw failure(exit_usage, "--samples must be an even number above 0");
    }
    // An even number always has the even divisor 2.
    uint32_t intervals = std::min(default_intervals, samples);
    while (samples % intervals != 0 || intervals % 2 != 0) {
        --intervals;
    }
    intervals = shape.intervals.value_or(intervals);
    if (intervals == 0 || intervals % 2 != 0 || intervals > most_intervals) {
        throw failure(exit_usage, fmt::format("--intervals must be an even number from 2 to {}",
                                              most_intervals));
    }
    if (samples % intervals != 0) {
        throw failure(exit_usage,
                      fmt::format("--samples ({}) must be a multiple of --intervals ({})", samples,
                                  intervals));
    }
    return {samples, intervals};
}

void require_shape(const std::string &base, const box_shape &wanted, const whole_shape &found)
{
    require_same(base, "--samples", wanted.samples, found.samples);
    require_same(base, "--intervals", wanted.intervals, found.intervals);
}

} // namespace cli
