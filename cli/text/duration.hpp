// Durations as people write them on the command line, such as "1h30m", to seconds and back. They
// are whole seconds, as all times in a box are.
#ifndef VESK_CLI_TEXT_DURATION_HPP
#define VESK_CLI_TEXT_DURATION_HPP

#include <cstdint>
#include <string>
#include <string_view>

namespace cli
{

// Reads "30", "30s", "5m", "2h", "1d" or "1w", and several of them from the largest unit to the
// smallest, like "1h30m", as seconds. Anything else, less than a second included, is a usage
// failure that names @p option: timestamps are whole seconds.
int64_t parse_duration(std::string_view text, std::string_view option);

// "45s", "1h30m", "2d": what parse_duration() reads back. Nothing is "0s".
std::string format_duration(int64_t seconds);

// The same cut to its two largest units: "9d6h" for nine days, six hours and some minutes.
std::string format_rough_duration(int64_t seconds);

} // namespace cli

#endif
