// Counting the bytes of events, with what each can take at most.
#include "box/event_budget.hpp"

#include <cstring>

#include "box/waiting_events.hpp"
#include "process/failure.hpp"

namespace cli
{
namespace
{

// The head of the record, and what zlib puts around a stream.
constexpr uint64_t head_size = 64;
constexpr uint64_t share_of_incompressible = 1000;

uint64_t stored_size(uint64_t text)
{
    return text + text / share_of_incompressible + head_size;
}

// What cannot be read is told by whoever writes there.
uint64_t event_bytes_that_wait(const box &found)
{
    uint64_t bytes = 0;
    try {
        for (const event &each : waiting_events_of(found)) {
            bytes += stored_size_of(each);
        }
    } catch (const failure &) {
        return 0;
    }
    return bytes;
}

} // namespace

uint64_t stored_size_of(const event &what)
{
    return stored_size(what.text.size());
}

uint64_t event_bytes_in_open_buffer(const box &found)
{
    uint64_t bytes = 0;
    for (const stored_file &file : found.files) {
        if (file.role == VESK_SCAN_OPEN && file.problem.empty()) {
            scan_file(file, [&](const vesk_scan_item &item) {
                const bool is_event =
                    item.kind == VESK_SCAN_EVENT || item.kind == VESK_SCAN_BARE_EVENT;
                if (is_event && item.event != nullptr && item.event->text != nullptr) {
                    bytes += stored_size(strlen(item.event->text));
                }
            });
        }
    }
    return bytes;
}

event_budget budget_of(const box &found, uint64_t bytes)
{
    return {bytes, event_bytes_in_open_buffer(found), event_bytes_that_wait(found)};
}

uint64_t event_budget::limit_for(event_source source) const
{
    switch (source) {
    case event_source::kernel:
    case event_source::top:
        return bytes_ / 2;
    case event_source::user:
        return bytes_ / 4 * 3;
    case event_source::recording:
        break;
    }
    return bytes_;
}

bool event_budget::has_room_for(event_source source, const event &what) const
{
    return used_ + waiting_ + stored_size_of(what) <= limit_for(source);
}

void event_budget::take(const event &what, event_result result)
{
    (result == event_result::recorded ? used_ : waiting_) += stored_size_of(what);
}

void event_budget::vector_written(bool is_new)
{
    used_ = (is_new ? 0 : used_) + waiting_;
    waiting_ = 0;
}

} // namespace cli
