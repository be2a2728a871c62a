// A sensor in one line of text, a character for each column.
#ifndef VESK_CLI_DRAW_SPARKLINE_HPP
#define VESK_CLI_DRAW_SPARKLINE_HPP

#include <span>
#include <string>

#include "draw/chart_columns.hpp"
#include "text/fitting.hpp"

namespace cli
{

// The lowest sign stands for the least of what is shown and the highest for the greatest. A column
// shows the one of its extremes that lies farther from the middle of all columns. A column that a
// line crosses repeats the value before it, and one whose values are missing is blank.
std::string text_sparkline(std::span<const chart_column> columns, charset set);

} // namespace cli

#endif
