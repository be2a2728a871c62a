// Matches names against patterns like those of a shell. The time is bounded by the product of the
// two lengths, whatever the pattern is, so a hostile one cannot stall the command.
#ifndef VESK_CLI_TEXT_GLOB_HPP
#define VESK_CLI_TEXT_GLOB_HPP

#include <string_view>

namespace cli
{

// '*' stands for any text, '?' for one byte, "[a-c]" and "[!a-c]" for one byte of a set or outside
// of it; everything else stands for itself, an unclosed bracket too. Takes no longer than the
// product of both lengths, whatever the pattern.
bool matches_glob(std::string_view pattern, std::string_view text);

bool is_glob(std::string_view pattern);

} // namespace cli

#endif
