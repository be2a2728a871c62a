// One side of a comparison: the values of a box, or of a span of time in it, sensor by sensor. As
// many sensors as memory allows are read at once.
#ifndef VESK_CLI_BOX_SIDE_HPP
#define VESK_CLI_BOX_SIDE_HPP

#include <functional>
#include <string>
#include <vector>

#include "analysis/robust_difference.hpp"
#include "box/reading.hpp"
#include "box/sensor_statistics.hpp"

namespace cli
{

struct side_sensor {
    sensor_statistics numbers;
    std::vector<weighted_value> values; // finite ones; an interval of history gives two
};

class side
{
public:
    side(reading &source, const time_range &range) : source_(source), range_(range) {}

    // The values of the sensors with these names. A sensor that is not in the box has none.
    std::vector<side_sensor> read(const std::vector<std::string> &names);

    const reading &source() const { return source_; }
    const time_range &range() const { return range_; }
    // How many sensors may be read at once.
    std::size_t room() const;

private:
    reading &source_;
    time_range range_;
};

} // namespace cli

#endif
