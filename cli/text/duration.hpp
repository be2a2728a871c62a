// Lengths of time as options give them.
#ifndef VESK_CLI_TEXT_DURATION_HPP
#define VESK_CLI_TEXT_DURATION_HPP

#include <cstdint>
#include <string>
#include <string_view>

namespace cli
{

// Reads "30", "30s", "5m", "2h" or "1d" as seconds. Anything else, less than a second included, is
// a usage failure that names @p option: timestamps are whole seconds.
int64_t parse_duration(std::string_view text, std::string_view option);

} // namespace cli

#endif
