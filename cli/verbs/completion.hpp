// Scripts by which shells complete verbs, options, their values and the names of boxes, made of
// what the verbs have registered.
#ifndef VESK_CLI_VERBS_COMPLETION_HPP
#define VESK_CLI_VERBS_COMPLETION_HPP

#include <string>

namespace cli
{

// @p shell is "bash", "zsh" or "fish"; anything else is a usage failure.
std::string completion_script(const std::string &shell);

} // namespace cli

#endif
