// Writes to standard output and makes the standard streams safe at the start of the process. What
// standard output does not take ends the command with the words of errno and exit code 1, so that a
// full disk never looks like success.
#include "process/output.hpp"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

#include "process/failure.hpp"

namespace cli
{

void secure_standard_streams()
{
    (void)std::signal(SIGPIPE, SIG_IGN);
    (void)std::signal(SIGXFSZ, SIG_IGN);
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        if (fcntl(fd, F_GETFD) >= 0) {
            continue;
        }
        // The lowest free number is this one, as those below are taken. It is opened for the other
        // direction, so that its use fails.
        const int found = open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY);
        if (found != fd) {
            // No stream is left on which the failure could be reported.
            std::_Exit(exit_failed);
        }
    }
}

void put(std::string_view text)
{
    if (fwrite(text.data(), 1, text.size(), stdout) != text.size()) {
        throw failure(exit_failed, with_errno("standard output"));
    }
}

void flush_output()
{
    if (fflush(stdout) != 0) {
        throw failure(exit_failed, with_errno("standard output"));
    }
}

} // namespace cli
