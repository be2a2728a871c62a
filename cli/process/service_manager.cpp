// Sends the datagrams of sd_notify(3) to the socket that NOTIFY_SOCKET names: a path, or with '@'
// in front a name of the abstract kind. A manager that takes nothing is waited for a moment only.
#include "process/service_manager.hpp"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include "process/terminal.hpp"

namespace cli
{
namespace
{

// A third of what the manager allows, so that one that is late does no harm.
constexpr double share_of_watchdog = 3;
constexpr timeval longest_send = {0, 200000};

std::string take_variable(const char *name)
{
    const char *value = getenv(name);
    std::string text = value != nullptr ? value : "";
    unsetenv(name);
    return text;
}

std::optional<uint64_t> number_in(const std::string &text)
{
    uint64_t number = 0;
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

bool is_address(const std::string &text)
{
    return text.size() > 1 && text.size() < sizeof(sockaddr_un::sun_path) &&
           (text.front() == '/' || text.front() == '@');
}

} // namespace

service_manager::service_manager()
{
    const std::string address = take_variable("NOTIFY_SOCKET");
    const std::optional<uint64_t> limit = number_in(take_variable("WATCHDOG_USEC"));
    const std::string process = take_variable("WATCHDOG_PID");
    if (!is_address(address)) {
        return;
    }
    socket_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (socket_ < 0) {
        return;
    }
    setsockopt(socket_, SOL_SOCKET, SO_SNDTIMEO, &longest_send, sizeof longest_send);
    address_ = address;
    const bool is_meant = process.empty() || process == std::to_string(getpid());
    if (limit && *limit > 0 && is_meant) {
        period_ = static_cast<double>(*limit) / 1e6 / share_of_watchdog;
    }
}

service_manager::~service_manager()
{
    if (socket_ >= 0) {
        close(socket_);
    }
}

void service_manager::send(const std::string &text) const
{
    if (address_.empty()) {
        return;
    }
    sockaddr_un target = {};
    target.sun_family = AF_UNIX;
    memcpy(target.sun_path, address_.data(), address_.size());
    if (target.sun_path[0] == '@') {
        target.sun_path[0] = '\0';
    }
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + address_.size());
    // Nothing depends on whether it arrives.
    (void)sendto(socket_, text.data(), text.size(), MSG_NOSIGNAL,
                 reinterpret_cast<const sockaddr *>(&target), length);
}

void service_manager::ready(std::string_view status)
{
    send(fmt::format("READY=1\nSTATUS={}\nMAINPID={}", printable(status), getpid()));
}

void service_manager::reloading(double monotonic)
{
    send(fmt::format("RELOADING=1\nMONOTONIC_USEC={:.0f}", monotonic * 1e6));
}

void service_manager::stopping()
{
    send("STOPPING=1");
}

void service_manager::status(std::string_view status)
{
    send(fmt::format("STATUS={}", printable(status)));
}

void service_manager::alive(double monotonic)
{
    if (period_ && monotonic - told_ >= *period_) {
        told_ = monotonic;
        send("WATCHDOG=1");
    }
}

std::optional<double> service_manager::seconds_to_alive(double monotonic) const
{
    return period_ ? std::optional(std::max(told_ + *period_ - monotonic, 0.0)) : std::nullopt;
}

} // namespace cli
