// Lets SIGINT, SIGTERM and SIGHUP ask a verb to end cleanly, instead of killing it in the middle of
// a write. The verb asks or waits for the request at places where it can stop.
#ifndef VESK_CLI_PROCESS_STOP_REQUEST_HPP
#define VESK_CLI_PROCESS_STOP_REQUEST_HPP

#include <csignal>
#include <initializer_list>
#include <poll.h>
#include <span>
#include <string>

namespace cli
{

// While it lives, the three signals only set a flag, and system calls that wait are interrupted.
class stop_request
{
public:
    // What SIGHUP asks for.
    enum class hangup { ends, reloads };

    explicit stop_request(hangup meaning = hangup::ends);
    stop_request(const stop_request &) = delete;
    stop_request &operator=(const stop_request &) = delete;
    ~stop_request();

    bool requested() const;
    // True once for each time that the signal to reload has come.
    bool take_reload() const;
    // The name of the signal that came last, "SIGTERM"; empty before one has come.
    std::string signal_name() const;
    // Waits, at most @p seconds or until one of the descriptors that are not below 0 can be read,
    // or until a signal to reload has come; true as soon as the end is requested.
    bool wait(double seconds, std::initializer_list<int> descriptors = {}) const;
    // The same with any number of descriptors and events; tells in them what has come.
    bool wait(double seconds, std::span<pollfd> descriptors) const;
    // Waits until @p fd takes something, or has failed. False when the end is requested instead.
    bool wait_to_write(int fd) const;

private:
    void wait_for(double seconds, std::span<pollfd> descriptors) const;

    static constexpr int signals_[] = {SIGINT, SIGTERM, SIGHUP};
    struct sigaction before_[3] = {};
};

} // namespace cli

#endif
