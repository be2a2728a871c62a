// The steps of a connection, each of them bounded in time and in bytes.
#include "serve/connection.hpp"

#include <array>
#include <cerrno>
#include <poll.h>
#include <sys/socket.h>

namespace cli
{
namespace
{

// A head is one packet; a browser that only keeps a connection ready sends nothing.
constexpr double seconds_for_head = 10;
// For each piece of an answer: a pause that a bad line may make, and the slowest pace on top.
constexpr double seconds_for_piece = 30;
constexpr double least_bytes_a_second = 16384;
constexpr double seconds_to_leave = 2;
// For an answer that is being made, which takes minutes for the page of a huge box.
constexpr double seconds_for_answer = 1800;
constexpr std::size_t most_thrown_away = 1U << 18U;
// Watchers hear something so often. The page takes three times as long without a word for a loss of
// the connection.
constexpr double seconds_between_words = 15;
// Of the system for a connection; it would take 4 MB for a fast one.
constexpr int send_buffer = 1 << 17;

constexpr int request_timeout = 408;

bool has_to_wait()
{
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
}

} // namespace

connection::connection(file_descriptor socket, double now)
    : socket_(std::move(socket)), deadline_(now + seconds_for_head), last_sent_(now)
{
    (void)setsockopt(socket_.get(), SOL_SOCKET, SO_SNDBUF, &send_buffer, sizeof(send_buffer));
}

bool connection::is_slow_to_ask(double now) const
{
    constexpr double usual_seconds = 0.5;
    return step_ == step::asking && now > deadline_ - seconds_for_head + usual_seconds;
}

short connection::awaited() const
{
    short events = POLLRDHUP;
    if (step_ == step::asking || step_ == step::leaving) {
        events |= POLLIN;
    }
    if (!pieces_.empty()) {
        events |= POLLOUT;
    }
    const bool half_is_enough = step_ == step::answering || step_ == step::waiting;
    return half_is_enough ? static_cast<short>(events & ~POLLRDHUP) : events;
}

void connection::go_on(short ready, double now, const answerer &answer)
{
    const bool has_failed = (ready & (POLLERR | POLLNVAL)) != 0;
    const bool has_gone = (ready & (POLLRDHUP | POLLHUP)) != 0 && step_ == step::watching;
    const bool waits_for_nobody = (ready & POLLHUP) != 0 && step_ == step::waiting;
    if (has_failed || has_gone || waits_for_nobody) {
        end();
        return;
    }
    if (step_ == step::asking && (ready & (POLLIN | POLLRDHUP | POLLHUP)) != 0) {
        read_request(now, answer);
    } else if (step_ == step::leaving && ready != 0) {
        throw_away();
    } else if ((ready & (POLLOUT | POLLHUP)) != 0) {
        send_on(now);
    }
}

void connection::read_request(double now, const answerer &answer)
{
    std::array<char, longest_head> bytes;
    const ssize_t count = recv(socket_.get(), bytes.data(), longest_head - head_.size(), 0);
    if (count <= 0) {
        if (count == 0 || !has_to_wait()) {
            end();
        }
        return;
    }
    head_.append(bytes.data(), static_cast<std::size_t>(count));
    const head_reading found = read_head(head_);
    if (found.is == head_reading::state::incomplete) {
        return;
    }
    if (found.is == head_reading::state::refused) {
        begin_answer(error_reply(found.status, "this server shows one page, and takes no more than "
                                               "short requests to read it"),
                     false, now);
    } else {
        asked_ = found.head;
        meet(now, answer);
    }
    head_ = std::string();
}

void connection::meet(double now, const answerer &answer)
{
    const reply what = answer(asked_);
    if (!what.is_late) {
        begin_answer(what, asked_.only_head, now);
        asked_ = request_head();
    } else if (step_ != step::waiting) {
        step_ = step::waiting;
        deadline_ = now + seconds_for_answer;
    }
}

void connection::ask_again(double now, const answerer &answer)
{
    if (step_ == step::waiting) {
        meet(now, answer);
    }
}

void connection::begin_answer(const reply &what, bool only_head, double now)
{
    pieces_.push_back(std::make_shared<const std::string>(reply_head(what)));
    if (!only_head && what.body && !what.body->empty()) {
        pieces_.push_back(what.body);
    }
    step_ = what.is_stream && !only_head ? step::watching : step::answering;
    place_ = what.place;
    set_deadline_of_piece(now);
    send_on(now);
}

void connection::feed(double now, const stream_source &source)
{
    static const shared_text word = std::make_shared<const std::string>("event: alive\ndata:\n\n");
    while (step_ == step::watching && pieces_.empty()) {
        shared_text next = source(place_);
        if (!next && place_.is_over) {
            leave(now);
            return;
        }
        if (!next && now - last_sent_ >= seconds_between_words) {
            next = word;
        }
        if (!next) {
            return;
        }
        pieces_.push_back(std::move(next));
        set_deadline_of_piece(now);
        send_on(now);
    }
}

void connection::send_on(double now)
{
    while (!pieces_.empty()) {
        const std::string &piece = *pieces_.front();
        const ssize_t count = send(socket_.get(), piece.data() + sent_, piece.size() - sent_,
                                   MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count < 0) {
            if (!has_to_wait()) {
                end();
            }
            return;
        }
        last_sent_ = now;
        sent_ += static_cast<std::size_t>(count);
        if (sent_ == piece.size()) {
            end_piece(now);
        }
    }
    if (step_ == step::answering) {
        leave(now);
    }
}

void connection::end_piece(double now)
{
    pieces_.erase(pieces_.begin());
    sent_ = 0;
    set_deadline_of_piece(now);
}

void connection::set_deadline_of_piece(double now)
{
    deadline_ = pieces_.empty()
                    ? never
                    : now + seconds_for_piece +
                          static_cast<double>(pieces_.front()->size()) / least_bytes_a_second;
}

// To close a socket with unread bytes would make the system take back what was sent.
void connection::leave(double now)
{
    (void)shutdown(socket_.get(), SHUT_WR);
    step_ = step::leaving;
    deadline_ = now + seconds_to_leave;
}

void connection::throw_away()
{
    std::array<char, longest_head> bytes;
    const ssize_t count = recv(socket_.get(), bytes.data(), bytes.size(), 0);
    if (count < 0 && has_to_wait()) {
        return;
    }
    thrown_away_ += count > 0 ? static_cast<std::size_t>(count) : 0;
    if (count <= 0 || thrown_away_ > most_thrown_away) {
        end();
    }
}

void connection::give_up(double now)
{
    if (step_ == step::asking && !head_.empty()) {
        begin_answer(error_reply(request_timeout, "the request did not come in time"), false, now);
        return;
    }
    end();
}

void connection::end()
{
    step_ = step::over;
    pieces_.clear();
    socket_.reset();
}

} // namespace cli
