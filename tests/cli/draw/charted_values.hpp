// What the tests of charts draw: one sensor with a value in each second.
#ifndef VESK_TESTS_CLI_DRAW_CHARTED_VALUES_HPP
#define VESK_TESTS_CLI_DRAW_CHARTED_VALUES_HPP

#include <cstdint>
#include <limits>
#include <vector>

#include "draw/charted.hpp"

namespace cli
{

constexpr float nan_value = std::numeric_limits<float>::quiet_NaN();

// For a chart of the given look, text_look or svg_look.
template <typename Look>
charted_span span_of(const std::vector<float> &values, const Look &look)
{
    const time_grid grid({0, static_cast<int64_t>(values.size()) - 1}, columns_of(look));
    column_track track(grid);
    for (std::size_t i = 0; i < values.size(); ++i) {
        const auto time = static_cast<int64_t>(i);
        track.add_sample(grid.column_of(time), time, values[i]);
    }
    return {grid, {{"::a_percent", track.take()}}, std::vector<uint32_t>(grid.columns(), 0)};
}

} // namespace cli

#endif
