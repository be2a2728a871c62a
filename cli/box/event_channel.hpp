// How events come into a box while a recorder has it open: through the socket BASE.sock.
//
// An event is one datagram, "vesk1 TYPE SECONDS\n" and the text. With it comes the end of a socket
// pair, on which the recorder answers: so the sender notices when the recorder dies, and no third
// process can answer in its place.
#ifndef VESK_CLI_BOX_EVENT_CHANNEL_HPP
#define VESK_CLI_BOX_EVENT_CHANNEL_HPP

#include <optional>
#include <string>

#include "box/event.hpp"

namespace cli
{

class file_descriptor
{
public:
    explicit file_descriptor(int fd = -1) : fd_(fd) {}
    file_descriptor(file_descriptor &&other) noexcept : fd_(other.release()) {}
    file_descriptor &operator=(file_descriptor &&other) noexcept;
    ~file_descriptor() { reset(); }

    int get() const { return fd_; }
    bool is_open() const { return fd_ >= 0; }
    int release();
    void reset();

private:
    int fd_;
};

// What the recorder answers.
enum class event_answer {
    recorded, // it is in the box
    waits,    // it will be with the next sample; another answer follows
    refused   // it will not be
};

// An event that has arrived, and the socket on which its sender waits for the answer.
class incoming_event
{
public:
    incoming_event(event what, file_descriptor reply)
        : what_(std::move(what)), reply_(std::move(reply))
    {
    }
    const event &what() const { return what_; }
    void answer(event_answer result, const std::string &reason = "") const;

private:
    event what_;
    file_descriptor reply_;
};

// The end of the recorder. Only the owner of the box can send to it.
class event_inbox
{
public:
    // Throws a failure when the socket cannot be made. A socket that a killed recorder left is
    // replaced, so the caller must have the lock of the box.
    explicit event_inbox(const std::string &base);
    event_inbox(const event_inbox &) = delete;
    event_inbox &operator=(const event_inbox &) = delete;
    ~event_inbox();

    // Readable when an event has come.
    int fd() const { return socket_.get(); }
    // The next event, or nothing when none has come. What is no event is dropped, up to eight in
    // one call.
    std::optional<incoming_event> take() const;

private:
    std::string path_;
    file_descriptor socket_;
};

// The answer as the sender receives it.
struct event_reply {
    enum class outcome {
        answered,
        nobody,   // listens there
        ended,    // the recorder ended without an answer
        no_answer // in time
    };
    outcome what;
    event_answer answer = event_answer::refused;
    std::string reason;
};

// Sends an event to the recorder of the box and waits for the last answer, at most @p seconds.
event_reply send_event(const std::string &base, const event &what, double seconds);

} // namespace cli

#endif
