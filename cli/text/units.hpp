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

} // namespace cli

#endif
