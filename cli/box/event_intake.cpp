// Reads events from the socket of a box and passes them on. A sender whose event waits keeps its
// socket open for a second answer; only so many of them are kept, and the oldest is let go first.
#include "box/event_intake.hpp"

#include <fmt/format.h>

#include "process/failure.hpp"
#include "process/terminal.hpp"

namespace cli
{
namespace
{

// Each waiting sender holds a descriptor, and a process without free descriptors cannot take
// samples.
constexpr std::size_t most_waiting_senders = 64;

} // namespace

event_intake::event_intake(const std::string &base, limited_events &limited, waiting_events &events)
    : limited_(limited), events_(events)
{
    try {
        inbox_.emplace(base);
    } catch (const failure &reason) {
        note(fmt::format("{}; events cannot be sent to this recording", reason.what()));
    }
}

void event_intake::take(std::size_t most)
{
    for (std::size_t i = 0; inbox_ && i < most; ++i) {
        std::optional<incoming_event> incoming = inbox_->take();
        if (!incoming) {
            return;
        }
        try {
            take(*incoming);
        } catch (const failure &reason) {
            incoming->answer(event_answer::refused, reason.what());
        }
    }
}

void event_intake::take(incoming_event &incoming)
{
    if (limited_.write_of_user(incoming.what()) == event_result::recorded) {
        incoming.answer(event_answer::recorded);
    } else {
        incoming.answer(event_answer::waits);
        senders_.push_back(std::move(incoming));
    }
    // The oldest sender is let go of; it has been told that its event waits on the medium.
    if (senders_.size() > most_waiting_senders) {
        senders_.pop_front();
    }
}

// The senders are those of the latest waiting events, so the events of the first senders are in the
// box when fewer events wait than there are senders.
void event_intake::answer_senders()
{
    while (senders_.size() > events_.count()) {
        senders_.front().answer(event_answer::recorded);
        senders_.pop_front();
    }
}

} // namespace cli
