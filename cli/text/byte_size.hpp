// Sizes as people write them on the command line, such as "20M", to bytes and back.
#ifndef VESK_CLI_TEXT_BYTE_SIZE_HPP
#define VESK_CLI_TEXT_BYTE_SIZE_HPP

#include <cstdint>
#include <string>
#include <string_view>

namespace cli
{

// Reads "4096", "500k", "20M" or "1G" (of 1024, also written "20MiB") and "20MB" (of 1000) as
// bytes. A fraction, a sign, 0 and anything else is a usage failure that names @p option.
uint64_t parse_byte_size(std::string_view text, std::string_view option);

// "812 B", "20 MiB".
std::string format_byte_size(uint64_t bytes);

} // namespace cli

#endif
