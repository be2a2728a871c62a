// What is said of a verb that does not exist.
#ifndef VESK_CLI_VERBS_UNKNOWN_VERB_HPP
#define VESK_CLI_VERBS_UNKNOWN_VERB_HPP

#include <string>

namespace cli
{

// "there is no verb 'fecth'; did you mean 'fetch'?"
std::string unknown_verb_text(const std::string &typed);

} // namespace cli

#endif
