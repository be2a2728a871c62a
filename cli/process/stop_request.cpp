// Handles SIGINT, SIGTERM and SIGHUP while a verb runs: a handler sets a flag, for the end or for a
// reload, and waiting
// functions return as soon as it is set. A waiting function blocks the signals between its test of
// the flag and its sleep, so none is lost. A signal that was ignored from the start, as with nohup,
// stays ignored.
#include "process/stop_request.hpp"

#include <algorithm>
#include <cmath>

namespace cli
{
namespace
{

constexpr double longest_wait = 3600;
constexpr std::size_t most_descriptors = 8;

volatile sig_atomic_t stop_flag = 0;
volatile sig_atomic_t reload_flag = 0;

void request_stop(int signal)
{
    stop_flag = signal;
}

void request_reload(int /*signal*/)
{
    reload_flag = 1;
}

} // namespace

stop_request::stop_request(hangup meaning)
{
    stop_flag = 0;
    reload_flag = 0;
    struct sigaction action = {};
    sigemptyset(&action.sa_mask);
    for (int i = 0; i < 3; ++i) {
        const bool reloads = signals_[i] == SIGHUP && meaning == hangup::reloads;
        action.sa_handler = reloads ? request_reload : request_stop;
        sigaction(signals_[i], &action, &before_[i]);
        // What was ignored from the start (nohup) stays ignored.
        if (before_[i].sa_handler == SIG_IGN) {
            sigaction(signals_[i], &before_[i], nullptr);
        }
    }
}

stop_request::~stop_request()
{
    for (int i = 0; i < 3; ++i) {
        sigaction(signals_[i], &before_[i], nullptr);
    }
}

bool stop_request::requested() const
{
    return stop_flag != 0;
}

bool stop_request::take_reload() const
{
    const bool was_set = reload_flag != 0;
    reload_flag = 0;
    return was_set;
}

std::string stop_request::signal_name() const
{
    switch (stop_flag) {
    case SIGINT:
        return "SIGINT";
    case SIGTERM:
        return "SIGTERM";
    case SIGHUP:
        return "SIGHUP";
    default:
        return {};
    }
}

bool stop_request::wait(double seconds, std::initializer_list<int> descriptors) const
{
    pollfd readable[most_descriptors] = {};
    std::size_t count = 0;
    for (const int fd : descriptors) {
        if (count < most_descriptors) {
            readable[count++] = {fd, POLLIN, 0};
        }
    }
    wait_for(seconds, {readable, count});
    return stop_flag != 0;
}

bool stop_request::wait(double seconds, std::span<pollfd> descriptors) const
{
    wait_for(seconds, descriptors);
    return stop_flag != 0;
}

bool stop_request::wait_to_write(int fd) const
{
    pollfd writable = {fd, POLLOUT, 0};
    while (stop_flag == 0) {
        if (poll(&writable, 1, 0) != 0) {
            return true;
        }
        wait_for(longest_wait, {&writable, 1});
    }
    return false;
}

void stop_request::wait_for(double seconds, std::span<pollfd> descriptors) const
{
    // The signals stay blocked between the test and the sleep, so none is lost in between.
    sigset_t blocked;
    sigset_t before;
    sigemptyset(&blocked);
    for (const int signal : signals_) {
        sigaddset(&blocked, signal);
    }
    sigprocmask(SIG_BLOCK, &blocked, &before);
    if (stop_flag == 0 && reload_flag == 0) {
        const double bounded = std::clamp(seconds, 0.0, longest_wait);
        timespec timeout = {};
        timeout.tv_sec = static_cast<time_t>(bounded);
        timeout.tv_nsec = static_cast<long>((bounded - std::floor(bounded)) * 1e9);
        ppoll(descriptors.data(), descriptors.size(), &timeout, &before);
    }
    sigprocmask(SIG_SETMASK, &before, nullptr);
}

} // namespace cli
