// Cuts texts of unknown origin to the room that they have in a line for people.
#ifndef VESK_CLI_TEXT_FITTING_HPP
#define VESK_CLI_TEXT_FITTING_HPP

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace cli
{

// What a terminal can show.
enum class charset { ascii, utf8 };

// The printable() form of the text. In ASCII every other character is '?'.
std::string shown_text(std::string_view text, charset set);

// How many characters a UTF-8 text has.
std::size_t width_of(std::string_view text);

// The first @p width characters of shown_text(), with "..." at their end where something was cut.
std::string fitted(std::string_view text, std::size_t width, charset set);

// The words of shown_text() in lines of at most @p width characters. A longer word is broken.
std::vector<std::string> wrapped(std::string_view text, std::size_t width, charset set);

} // namespace cli

#endif
