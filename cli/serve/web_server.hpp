// A small HTTP server for one page and one stream of what is new, in one thread: it answers GET and
// HEAD, one request a connection, and keeps nothing of its clients. Connections, their memory and
// the time that each step of them may take are bounded.
#ifndef VESK_CLI_SERVE_WEB_SERVER_HPP
#define VESK_CLI_SERVE_WEB_SERVER_HPP

#include <initializer_list>
#include <memory>
#include <vector>

#include "box/event_channel.hpp"
#include "process/stop_request.hpp"
#include "serve/connection.hpp"

namespace cli
{

class web_server
{
public:
    static constexpr std::size_t most_connections = 64;
    // So that watchers leave room for others.
    static constexpr std::size_t most_watchers = 32;

    // @p listener is a socket that listens and never waits.
    web_server(file_descriptor listener, connection::answerer answer,
               connection::stream_source source);

    // Waits until a connection can go on, one of @p others can be read (below 0 for none), an end
    // is requested or so many seconds have gone by, and does what can be done.
    void serve(const stop_request &stop, double seconds, std::initializer_list<int> others);
    // Sends all watchers what is new.
    void feed_watchers();
    std::size_t watchers() const;

private:
    void take_new();
    bool make_room();
    void give_up_late();
    void forget_ended();
    double next_deadline() const;

    file_descriptor listener_;
    connection::answerer answer_;
    connection::stream_source source_;
    std::vector<connection> connections_;
    // Where nothing more could be accepted, it is tried again from here on.
    double pause_until_ = 0;
};

} // namespace cli

#endif
