// The outlines of the columns of one sensor, as the data of SVG paths.
#ifndef VESK_CLI_DRAW_SVG_PATH_HPP
#define VESK_CLI_DRAW_SVG_PATH_HPP

#include <span>
#include <string>

#include "draw/chart_columns.hpp"
#include "draw/value_axis.hpp"

namespace cli
{

// Where a chart lies in its picture, in pixels.
struct svg_area {
    double left = 0;
    double top = 0;
    double width = 0;
    double height = 0;

    double x_of(double place) const { return left + place * width; }
    double y_of(const value_axis &axis, double value) const
    {
        return top + (1 - axis.place_of(value)) * height;
    }
};

// The area between the least and the greatest values of history.
std::string band_path(std::span<const chart_column> columns, const value_axis &axis,
                      const svg_area &area);

// The line through the means of history and the samples, interrupted at every hole. A value between
// two holes is a dot, if the line has round ends. @p grid gives each sample its place in time.
std::string line_path(std::span<const chart_column> columns, const time_grid &grid,
                      const value_axis &axis, const svg_area &area);

// "12", "12.5": one digit behind the point.
std::string svg_number(double value);

} // namespace cli

#endif
