// Starts the command: it secures the three standard streams, runs the verb, and turns every
// exception into a message and an exit code. A failure has its own message and code; anything else
// that is thrown gives exit code 1.
#include <exception>
#include <new>
#include <string>
#include <vector>

#include <vesk/vesk_version.h>

#include "process/failure.hpp"
#include "process/output.hpp"
#include "process/terminal.hpp"
#include "verbs/command_line.hpp"

namespace
{

using namespace cli;

exit_code give_up(const failure &reason)
{
    if (dynamic_cast<const bad_input *>(&reason) != nullptr) {
        say(printable(reason.what()) + "\n");
    } else {
        complain(reason.what());
    }
    if (!reason.remark().empty()) {
        note(reason.remark());
    }
    return reason.code();
}

exit_code run(const std::vector<std::string> &words)
{
    try {
        return run_command_line(words, VESK_VERSION);
    } catch (const failure &reason) {
        return give_up(reason);
    } catch (const std::bad_alloc &) {
        complain("out of memory");
        return exit_failed;
    } catch (const std::exception &error) {
        complain(error.what());
        return exit_failed;
    }
}

} // namespace

int main(int argc, char **argv)
{
    secure_standard_streams();
    try {
        return run({argv + (argc > 0 ? 1 : 0), argv + argc});
    } catch (...) {
        // There is no memory even for the message.
        return exit_failed;
    }
}
