// Suggests the word that somebody meant who mistyped one, for messages such as "did you mean
// 'stats'?". It returns an empty text if no word is close enough.
#ifndef VESK_CLI_TEXT_SUGGESTION_HPP
#define VESK_CLI_TEXT_SUGGESTION_HPP

#include <span>
#include <string>
#include <string_view>

namespace cli
{

// The one of @p words that @p typed was most likely meant to be, or nothing when none is close.
std::string_view nearest_word(std::string_view typed, std::span<const std::string_view> words);

} // namespace cli

#endif
