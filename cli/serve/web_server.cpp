// Waits for all connections at once with poll() and lets each of them do what it can.
#include "serve/web_server.hpp"

#include <algorithm>
#include <cerrno>
#include <limits>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include "process/clock.hpp"

namespace cli
{
namespace
{

// Watchers are looked after at least so often: the word that they hear now and then is due then.
constexpr double longest_pause = 5;
// Before a system without descriptors or memory is asked again.
constexpr double pause_of_system = 0.5;
constexpr double never = std::numeric_limits<double>::infinity();

} // namespace

web_server::web_server(file_descriptor listener, connection::answerer answer,
                       connection::stream_source source)
    : listener_(std::move(listener)), answer_(std::move(answer)), source_(std::move(source))
{
}

void web_server::serve(const stop_request &stop, double seconds, std::initializer_list<int> others)
{
    const double begin = monotonic_seconds();
    const double pause = std::min({seconds, next_deadline() - begin, longest_pause});
    std::vector<pollfd> descriptors;
    descriptors.reserve(connections_.size() + 1 + others.size());
    for (const connection &one : connections_) {
        descriptors.push_back({one.socket(), one.awaited(), 0});
    }
    descriptors.push_back({begin >= pause_until_ ? listener_.get() : -1, POLLIN, 0});
    for (const int other : others) {
        descriptors.push_back({other, POLLIN, 0});
    }
    stop.wait(std::max(pause, 0.0), descriptors);
    const double now = monotonic_seconds();
    for (std::size_t i = 0; i < connections_.size(); ++i) {
        if (descriptors[i].revents != 0) {
            connections_[i].go_on(descriptors[i].revents, now, answer_);
        }
        connections_[i].ask_again(now, answer_);
    }
    if (descriptors[connections_.size()].revents != 0) {
        take_new();
    }
    give_up_late();
    feed_watchers();
    forget_ended();
}

void web_server::take_new()
{
    while (make_room()) {
        const int fd = accept4(listener_.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (fd < 0) {
            const bool is_system =
                errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM;
            pause_until_ = is_system ? monotonic_seconds() + pause_of_system : 0;
            return;
        }
        const int yes = 1;
        (void)setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof(yes));
        connections_.emplace_back(file_descriptor(fd), monotonic_seconds());
    }
}

// Where all places are taken, who is slowest to ask makes room. Without such a one new clients wait
// until a place is free.
bool web_server::make_room()
{
    if (connections_.size() < most_connections) {
        return true;
    }
    forget_ended();
    const double now = monotonic_seconds();
    if (connections_.size() == most_connections) {
        // The oldest ones come first.
        const auto slow =
            std::find_if(connections_.begin(), connections_.end(),
                         [now](const connection &one) { return one.is_slow_to_ask(now); });
        if (slow == connections_.end()) {
            pause_until_ = now + pause_of_system;
            return false;
        }
        connections_.erase(slow);
    }
    return true;
}

void web_server::give_up_late()
{
    const double now = monotonic_seconds();
    for (connection &one : connections_) {
        if (now >= one.deadline()) {
            one.give_up(now);
        }
    }
}

void web_server::feed_watchers()
{
    const double now = monotonic_seconds();
    for (connection &one : connections_) {
        one.feed(now, source_);
    }
}

void web_server::forget_ended()
{
    connections_.erase(std::remove_if(connections_.begin(), connections_.end(),
                                      [](const connection &one) { return one.is_over(); }),
                       connections_.end());
}

std::size_t web_server::watchers() const
{
    return static_cast<std::size_t>(
        std::count_if(connections_.begin(), connections_.end(),
                      [](const connection &one) { return one.is_watching(); }));
}

double web_server::next_deadline() const
{
    double next = pause_until_ > monotonic_seconds() ? pause_until_ : never;
    for (const connection &one : connections_) {
        next = std::min(next, one.deadline());
    }
    return next;
}

} // namespace cli
