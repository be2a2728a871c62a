// Signals that end a verb stay ignored where they were ignored from the start, as SIGINT is in the
// background jobs of a shell. A test that sends itself such a signal must not depend on that.
#ifndef VESK_TESTS_CLI_UNIGNORED_SIGNAL_HPP
#define VESK_TESTS_CLI_UNIGNORED_SIGNAL_HPP

#include <csignal>

// Gives a signal its default action, and afterwards the one that it had before.
class unignored_signal
{
public:
    explicit unignored_signal(int number) : number_(number), before_(std::signal(number, SIG_DFL))
    {
    }
    unignored_signal(const unignored_signal &) = delete;
    unignored_signal &operator=(const unignored_signal &) = delete;
    ~unignored_signal() { std::signal(number_, before_); }

private:
    int number_;
    void (*before_)(int);
};

#endif
