// Reads sensors of a box into the columns of a chart, whatever their number of samples.
#ifndef VESK_CLI_BOX_CHARTING_HPP
#define VESK_CLI_BOX_CHARTING_HPP

#include <cstddef>
#include <optional>
#include <vector>

#include "box/reading.hpp"
#include "draw/charted.hpp"

namespace cli
{

// What lies in @p range of the sensors with the numbers @p chosen, in so many columns. The span
// that is shown is the part of the range in which the box has something; nothing where there is
// none.
std::optional<charted_span> read_charted(reading &source, const time_range &range,
                                         const std::vector<std::size_t> &chosen,
                                         std::size_t columns);

} // namespace cli

#endif
