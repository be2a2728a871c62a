// Runs something that may end the process, many times over, and tells how it ended.
#ifndef VESK_TESTS_COMMON_ISOLATED_HPP
#define VESK_TESTS_COMMON_ISOLATED_HPP

#include <csignal>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

// The end of a process of its own.
class isolated_run
{
public:
    // Runs `body` in a copy of this process; its result is the exit code. Nothing comes back but
    // what it did to files.
    template <typename Body>
    explicit isolated_run(Body body)
    {
        int ends[2];
        if (pipe(ends) != 0) {
            return;
        }
        const pid_t child = fork();
        if (child == 0) {
            (void)dup2(ends[1], STDERR_FILENO);
            _exit(body());
        }
        (void)close(ends[1]);
        char block[1024];
        for (ssize_t n = 0; (n = read(ends[0], block, sizeof block)) > 0;) {
            messages_.append(block, static_cast<size_t>(n));
        }
        (void)close(ends[0]);
        (void)waitpid(child, &status_, 0);
    }

    bool exited() const { return WIFEXITED(status_); }
    int code() const { return WEXITSTATUS(status_); }
    // Whether a precondition ended it, with this text, or with any when the text is empty.
    bool aborted(const std::string &text = "") const
    {
        const std::string assertion = text.empty() ? "Assertion `" : "Assertion `" + text + "'";
        return WIFSIGNALED(status_) && WTERMSIG(status_) == SIGABRT &&
               messages_.find(assertion) != std::string::npos;
    }
    // What it wrote to standard error.
    const std::string &messages() const { return messages_; }

private:
    int status_ = -1;
    std::string messages_;
};

#endif
