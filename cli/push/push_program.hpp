// Finds and starts the program that pushes.
#ifndef VESK_CLI_PUSH_PUSH_PROGRAM_HPP
#define VESK_CLI_PUSH_PUSH_PROGRAM_HPP

#include <string>

#include "push/push_request.hpp"

namespace cli
{

// Its path: where it is installed as seen from @p command, the path of the running program, or
// beside that in a build. Throws a failure that says what is missing.
std::string find_push_program(const std::string &command);
// The same for the running program.
std::string find_push_program();

// Replaces this process. Throws a failure when the program is not there.
[[noreturn]] void become_push_program(const push_request &request);

} // namespace cli

#endif
