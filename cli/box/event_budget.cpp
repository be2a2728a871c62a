// Counts how many bytes of events the open buffer holds and how many wait for it, and decides
// whether one more event fits. Each event is counted with the most that its compressed record can
// take, so the buffer never grows beyond the budget. The share that an event may use depends on its
// source.
#include "box/event_budget.hpp"

#include <cstring>

#include "box/waiting_events.hpp"
#include "process/failure.hpp"
#include "text/event_text.hpp"

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

struct waiting_bytes {
    uint64_t all = 0;
    uint64_t own = 0;
};

// A file that cannot be read counts as empty here; the code that writes to it reports the failure.
waiting_bytes bytes_that_wait(const box &found)
{
    waiting_bytes bytes;
    try {
        for (const event &each : waiting_events_of(found)) {
            bytes.all += stored_size_of(each);
            bytes.own += parse_event_text(each.text) ? stored_size_of(each) : 0;
        }
    } catch (const failure &) {
        return {};
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
    const waiting_bytes waiting = bytes_that_wait(found);
    return {bytes, event_bytes_in_open_buffer(found), waiting.all, waiting.own};
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
    const uint64_t size = stored_size_of(what);
    const bool may_wait = source == event_source::user || own_waiting_ + size <= most_own_waiting;
    return may_wait && used_ + waiting_ + size <= limit_for(source);
}

void event_budget::take(event_source source, const event &what, event_result result)
{
    const uint64_t size = stored_size_of(what);
    if (result == event_result::recorded) {
        used_ += size;
        return;
    }
    waiting_ += size;
    own_waiting_ += source == event_source::user ? 0 : size;
}

void event_budget::vector_written(bool is_new)
{
    used_ = (is_new ? 0 : used_) + waiting_;
    waiting_ = 0;
    own_waiting_ = 0;
}

} // namespace cli
