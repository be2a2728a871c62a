// Checks an event and makes the record that the library stores. Type, length, zero bytes and time
// are checked first, because the library ends the process over some events that it cannot hold.
// What no box can hold is an unrecordable_event with the reason.
#include "box/event_record.hpp"

#include <fmt/format.h>

#include <vesk/error.h>
#include <vesk/vesk_check.h>
#include <vesk/vesk_limits.h>

#include "box/storage_failure.hpp"

namespace cli
{
namespace
{

void require_recordable(const event &what)
{
    if (what.type < VESK_MIN_EVENT_TYPE || what.type > last_event_type) {
        throw unrecordable_event(fmt::format("its type is not from 1 to {}", last_event_type));
    }
    if (what.text.empty() || what.text.size() > longest_event) {
        throw unrecordable_event(fmt::format("its text has not 1 to {} bytes", longest_event));
    }
    if (what.text.find('\0') != std::string::npos) {
        throw unrecordable_event("there is a zero byte in its text");
    }
}

timestamp stamp_of_event(int64_t time)
{
    try {
        return stamp_of(time);
    } catch (const passing_failure &reason) {
        throw unrecordable_event(reason.what());
    }
}

} // namespace

timestamp stamp_of(int64_t time)
{
    timestamp stamp = {};
    timeval tv = {};
    tv.tv_sec = static_cast<decltype(tv.tv_sec)>(time);
    // Second 0 means no time.
    const int result = time == 0 ? QE_ERROR_BAD_TIME : timestamp_init_from_timeval(&stamp, &tv);
    if (result < 0) {
        throw passing_failure("the time cannot be recorded: " + words_for(result));
    }
    return stamp;
}

owned_event_record make_event_record(const event &what)
{
    require_recordable(what);
    const timestamp stamp = stamp_of_event(what.time);
    owned_event_record record(vesk_cb_record_event_create(what.type, &stamp, what.text.c_str()));
    if (!record) {
        throw failure(exit_failed, words_for(QE_ERROR_NO_MEMORY));
    }
    const int refused = vesk_check_event(record.get());
    if (refused < 0) {
        throw unrecordable_event(words_for(refused));
    }
    return record;
}

} // namespace cli
