// The axis of the values of a sensor: round numbers for its marks, in the unit of the sensor.
#ifndef VESK_CLI_DRAW_VALUE_AXIS_HPP
#define VESK_CLI_DRAW_VALUE_AXIS_HPP

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace cli
{

struct value_tick {
    double value;
    std::string label; // in the unit of the axis
};

struct value_axis {
    double from = 0; // of the axis, at or below the least value
    double to = 1;
    std::vector<value_tick> ticks; // from the least to the greatest one
    std::string unit;              // "GiB", or nothing
    double divisor = 1;            // of values, in that unit

    // Where a value lies: 0 is the lower end and 1 the upper one.
    double place_of(double value) const { return (value - from) / (to - from); }
};

// An axis with @p most ticks at most, and two at least, which both ends are. Distances between
// ticks are 1, 2 or 5 times a power of ten, and powers of two for amounts of memory. The axis
// begins at 0 where the values come near to it. Both values must be finite.
value_axis value_axis_for(double least, double greatest, std::size_t most, std::string_view sensor);

} // namespace cli

#endif
