// Parses the command line and runs the verb that it names, or prints the help. Words that make no
// sense are a usage failure, with a suggestion if one is near.
#ifndef VESK_CLI_VERBS_COMMAND_LINE_HPP
#define VESK_CLI_VERBS_COMMAND_LINE_HPP

#include <string>
#include <vector>

#include "process/exit_codes.hpp"

namespace cli
{

// Does what @p words, those behind the name of the command, ask for. @p version is what --version
// prints. Throws a failure where a verb gives up.
exit_code run_command_line(std::vector<std::string> words, const std::string &version);

} // namespace cli

#endif
