// Finds the shape of a box that reaches back a wanted time, or that fits into so many bytes.
#ifndef VESK_CLI_BOX_SHAPE_SEARCH_HPP
#define VESK_CLI_BOX_SHAPE_SEARCH_HPP

#include <cstdint>
#include <optional>

#include "box/box_shape.hpp"
#include "box/box_size.hpp"

namespace cli
{

// How long the buffers of a box need to take turns; samples that are due meanwhile are missed.
struct rotation_cost {
    double seconds_of_sample = 0;   // for each sample in a buffer
    double seconds_of_interval = 0; // for each interval of the history

    double seconds(const whole_shape &shape) const
    {
        return shape.samples * seconds_of_sample + 2.0 * shape.intervals * seconds_of_interval;
    }
};

struct size_wish {
    std::optional<int64_t> keep;  // seconds that the box reaches back at least
    std::optional<uint64_t> disk; // bytes that it takes at most
    int64_t interval = 1;         // seconds between samples
    int64_t pause = 0;            // between those that wait for a turn; 0: the interval
    record_bytes records;         // the largest
    uint64_t event_bytes = 0;     // of one buffer
    rotation_cost rotation;
};

// The smallest box that keeps what is wanted, or the one with the longest reach that fits into the
// bytes; with both, the smallest is refused when it does not fit. Summaries have round lengths
// where they can. Buffers take turns within half an interval or three seconds. Throws a usage
// failure that says what can be had when there is no such shape.
whole_shape find_shape(const size_wish &wish);

} // namespace cli

#endif
