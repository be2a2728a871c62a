// The pieces of the texts that the kernel writes: lines, words and numbers. Nothing here looks at a
// text more than once, whatever it holds.
#ifndef VESK_CLI_MACHINE_TEXT_FIELDS_HPP
#define VESK_CLI_MACHINE_TEXT_FIELDS_HPP

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace cli
{

// Cuts the first part off @p text, up to @p separator or the end.
std::string_view cut(std::string_view &text, char separator);

// Cuts the first word off @p text; blanks and tabs before it go with it. Nothing at the end.
std::string_view cut_word(std::string_view &text);

// The word behind the first @p number words, or nothing.
std::string_view word_at(std::string_view text, std::size_t number);

// The whole of @p text as a number.
std::optional<uint64_t> parse_count(std::string_view text);
// A decimal number that single precision can hold.
std::optional<double> parse_decimal(std::string_view text);

// Reads numbers, separated by blanks, into @p counts until one cannot be read. Returns how many
// there were.
std::size_t parse_counts(std::string_view text, std::span<uint64_t> counts);

} // namespace cli

#endif
