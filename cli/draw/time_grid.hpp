// A span of time that is divided into equal columns from left to right, as a chart shows it.
#ifndef VESK_CLI_DRAW_TIME_GRID_HPP
#define VESK_CLI_DRAW_TIME_GRID_HPP

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "text/time_text.hpp"

namespace cli
{

class time_grid
{
public:
    // Both ends of @p range belong to it; it must not be empty, and there is one column at least.
    time_grid(const time_range &range, std::size_t columns) : range_(range), columns_(columns) {}

    const time_range &range() const { return range_; }
    std::size_t columns() const { return columns_; }

    // Where a moment lies: 0 is the left end and 1 the right one.
    double place_of(int64_t time) const
    {
        const double width = static_cast<double>(range_.to) - static_cast<double>(range_.from);
        const double way = static_cast<double>(time) - static_cast<double>(range_.from);
        return width > 0 ? way / width : 0.5;
    }
    // The column that holds the moment; the first or the last one for what lies outside.
    std::size_t column_of(int64_t time) const
    {
        const int64_t inside = std::clamp(time, range_.from, range_.to);
        const double place = place_of(inside) * static_cast<double>(columns_);
        return std::min(static_cast<std::size_t>(place), columns_ - 1);
    }

private:
    time_range range_;
    std::size_t columns_;
};

} // namespace cli

#endif
