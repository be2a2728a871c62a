// One connection of a server: reads the head of one request, sends one answer, and ends. It never
// waits, holds no more than a head and what is being sent, and has a time limit for each step, so
// that a slow or hostile client costs next to nothing.
#ifndef VESK_CLI_SERVE_CONNECTION_HPP
#define VESK_CLI_SERVE_CONNECTION_HPP

#include <cstddef>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "box/event_channel.hpp"
#include "serve/reply.hpp"
#include "serve/request_head.hpp"

namespace cli
{

class connection
{
public:
    using answerer = std::function<reply(const request_head &)>;
    using stream_source = std::function<shared_text(stream_place &)>;

    connection(file_descriptor socket, double now);

    int socket() const { return socket_.get(); }
    // What poll() is to wait for.
    short awaited() const;
    // Does what can be done without waiting, after poll() told @p ready.
    void go_on(short ready, double now, const answerer &answer);
    // Sends a watcher what is new; a word after a while without anything, so that both sides notice
    // when the other one has gone.
    void feed(double now, const stream_source &source);
    // Asks for the answer again where it was late.
    void ask_again(double now, const answerer &answer);
    // The time at which it is given up; infinity for a watcher that has all there is.
    double deadline() const { return deadline_; }
    // Ends it; who has sent half of a request is told so.
    void give_up(double now);

    // Whether its request is slow to come. Such a one has to go first where there is no room.
    bool is_slow_to_ask(double now) const;
    bool is_watching() const { return step_ == step::watching; }
    bool is_over() const { return step_ == step::over; }

private:
    enum class step {
        asking,    // the head of the request is on its way
        waiting,   // the answer is being made
        answering, // the answer is
        watching,  // the answer is a stream
        leaving,   // what the client still sends is thrown away, so that it reads the answer
        over
    };

    void read_request(double now, const answerer &answer);
    void meet(double now, const answerer &answer);
    void begin_answer(const reply &what, bool only_head, double now);
    void throw_away();
    void send_on(double now);
    void end_piece(double now);
    void set_deadline_of_piece(double now);
    void leave(double now);
    void end();

    static constexpr double never = std::numeric_limits<double>::infinity();

    file_descriptor socket_;
    step step_ = step::asking;
    double deadline_;
    double last_sent_;
    std::string head_;                // of the request
    request_head asked_;              // the same, where the answer is late
    std::vector<shared_text> pieces_; // what is to be sent, the first one first
    std::size_t sent_ = 0;            // of the first piece
    std::size_t thrown_away_ = 0;
    stream_place place_;
};

} // namespace cli

#endif
