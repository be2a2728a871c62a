// What a box stores of an event and of a time. Whoever made the event is not trusted: it may come
// through a socket or out of a file, and the library ends the process over some that it cannot
// hold.
#ifndef VESK_CLI_BOX_EVENT_RECORD_HPP
#define VESK_CLI_BOX_EVENT_RECORD_HPP

#include <memory>

#include <vesk/timestamp.h>
#include <vesk/vesk_cb_record_event.h>

#include "box/event.hpp"
#include "process/failure.hpp"

namespace cli
{

// No box can hold this event, now or later.
class unrecordable_event : public failure
{
public:
    explicit unrecordable_event(const std::string &why)
        : failure(exit_failed, "this event cannot be recorded: " + why)
    {
    }
};

struct event_release {
    void operator()(vesk_cb_record_event *record) const { vesk_cb_record_event_destroy(&record); }
};
using owned_event_record = std::unique_ptr<vesk_cb_record_event, event_release>;

// Throws an unrecordable_event.
owned_event_record make_event_record(const event &what);

// Throws a passing_failure when the time is out of the range of a box.
timestamp stamp_of(int64_t time);

} // namespace cli

#endif
