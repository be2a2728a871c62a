// The exit codes of the command. Scripts depend on them: the same numbers are stated in --help and
// in docs/command.md, and do not change.
#ifndef VESK_CLI_PROCESS_EXIT_CODES_HPP
#define VESK_CLI_PROCESS_EXIT_CODES_HPP

namespace cli
{

enum exit_code {
    exit_done = 0,
    exit_failed = 1,
    exit_usage = 2,
    exit_damaged = 3,   // damaged, but all that could be read was
    exit_unreadable = 4 // nothing could be read
};

} // namespace cli

#endif
