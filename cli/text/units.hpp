// Formats values for people, with the unit that the name of a sensor ends with. Formats for
// programs hold plain numbers instead.
#ifndef VESK_CLI_TEXT_UNITS_HPP
#define VESK_CLI_TEXT_UNITS_HPP

#include <string>
#include <string_view>

namespace cli
{

// "1.25 GiB" for bytes, "3.4 kB/s" for bytes per second, "12.5 %", "45 C"; numbers without a unit
// as they are. Four significant digits. A value that is NaN is "-".
std::string with_unit(double value, std::string_view sensor);
// The same with so many significant digits, where two values have to be told apart.
std::string with_unit(double value, std::string_view sensor, int digits);
// Without any unit.
std::string plain_number(double value, int digits);

// The unit for programs: "bytes_per_s", "percent"; nothing for a number without a unit. What people
// see as err/s is per_s.
std::string_view unit_name_of(std::string_view sensor);

// How an axis shows the values of a sensor: as numbers that are divided by something, with the unit
// once beside them.
struct axis_unit {
    double divisor = 1;
    std::string symbol;     // "GiB", "%", or nothing
    bool is_binary = false; // the divisor is a power of 1024
};
// @p size is the largest distance from 0 on the axis.
axis_unit axis_unit_of(double size, std::string_view sensor);

} // namespace cli

#endif
