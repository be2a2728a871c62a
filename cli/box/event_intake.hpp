// Takes the events that users send to a recording, and answers their senders as soon as it is known
// what became of each event.
#ifndef VESK_CLI_BOX_EVENT_INTAKE_HPP
#define VESK_CLI_BOX_EVENT_INTAKE_HPP

#include <deque>
#include <optional>
#include <string>

#include "box/event_channel.hpp"
#include "box/limited_events.hpp"
#include "box/waiting_events.hpp"

namespace cli
{

class event_intake
{
public:
    // Notes where no events can be sent. The caller has the lock of the box; what is referred to
    // must outlive this.
    event_intake(const std::string &base, limited_events &limited, waiting_events &events);

    // Readable when an event has come; -1 where none can.
    int fd() const { return inbox_ ? inbox_->fd() : -1; }
    // So many at once at most: each is synced, and the next sample must not wait for a flood.
    void take(std::size_t most);
    // After events that waited were written into the box.
    void answer_senders();

private:
    void take(incoming_event &incoming);

    limited_events &limited_;
    waiting_events &events_;
    std::optional<event_inbox> inbox_;
    std::deque<incoming_event> senders_; // of events that wait
};

} // namespace cli

#endif
