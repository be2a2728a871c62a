// The numbers that an export gives of one interval of history, in one place for all formats.
#ifndef VESK_CLI_EXPORT_INTERVAL_VALUES_HPP
#define VESK_CLI_EXPORT_INTERVAL_VALUES_HPP

#include <array>
#include <cstdint>
#include <limits>
#include <string_view>

#include "box/moments.hpp"

namespace cli
{

// What a number of an export is.
enum class quantity { sample, count, sum, min, max, first, last, stddev, seconds };

// Those of an interval that are numbers of a sensor, without the count.
inline constexpr std::array interval_quantities = {
    quantity::sum, quantity::min, quantity::max, quantity::first, quantity::last, quantity::stddev};

constexpr std::string_view name_of(quantity what)
{
    constexpr std::array<std::string_view, 9> names = {"sample", "count", "sum",    "min",    "max",
                                                       "first",  "last",  "stddev", "seconds"};
    return names[static_cast<std::size_t>(what)];
}

// NaN where there is nothing: a sum that has overflowed, and a deviation of which the sums in
// single precision have left too little to tell it.
inline float value_of(const interval_summary &interval, quantity what, const summing &how)
{
    switch (what) {
    case quantity::sum:
        return interval.sum;
    case quantity::min:
        return interval.min_value;
    case quantity::max:
        return interval.max_value;
    case quantity::first:
        return interval.first_value;
    case quantity::last:
        return interval.last_value;
    case quantity::stddev:
        return static_cast<float>(moments(interval, how).deviation().reliable());
    case quantity::sample:
    case quantity::count:
    case quantity::seconds:
        break;
    }
    return std::numeric_limits<float>::quiet_NaN();
}

} // namespace cli

#endif
