// What a chart shows: sensors, reduced to columns, and the events of the same span of time.
#ifndef VESK_CLI_DRAW_CHARTED_HPP
#define VESK_CLI_DRAW_CHARTED_HPP

#include <cstdint>
#include <string>
#include <vector>

#include "draw/chart_columns.hpp"
#include "draw/time_grid.hpp"

namespace cli
{

struct charted_sensor {
    std::string name; // as the box has it
    std::vector<chart_column> columns;
};

struct charted_span {
    time_grid grid;
    std::vector<charted_sensor> sensors;
    // The most severe type of the events in each column; 0 where there are none.
    std::vector<uint32_t> events;
};

} // namespace cli

#endif
