// Events in the words of people.
#ifndef VESK_CLI_TEXT_EVENT_WORDS_HPP
#define VESK_CLI_TEXT_EVENT_WORDS_HPP

#include <string>

namespace cli
{

// "kernel: Out of memory" for what a recording wrote, and any other text as it is. It is not made
// printable.
std::string event_words(const std::string &text);

} // namespace cli

#endif
