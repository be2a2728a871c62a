// How many bytes of events one buffer takes. The format sets no bound to them, and a flood must not
// fill the disk: a box stays as large as its samples and so many bytes for each raw buffer make it.
#ifndef VESK_CLI_BOX_EVENT_BUDGET_HPP
#define VESK_CLI_BOX_EVENT_BUDGET_HPP

#include <cstdint>

#include "box/box.hpp"
#include "box/event.hpp"

namespace cli
{

// About what the samples of an hour take, at one a second and 70 sensors.
constexpr uint64_t default_event_bytes = uint64_t{1} << 20;
constexpr uint64_t least_event_bytes = 16384;
// What recordings let wait at most: a tenth of what may wait, or some hundred events. A recording
// that is started again and again before its first sample must not take the room of users' events.
constexpr uint64_t most_own_waiting = 100000;

// Who an event is from. A flood of one kind leaves room for those behind it in this list: messages
// of the kernel and lists of processes get half of the budget, users' events three quarters, and
// the last quarter is for what tells of the recording itself.
enum class event_source { kernel, top, user, recording };

// What one event takes in a buffer at most: its record is a stream of its own, which is longer than
// the text by its head (28 bytes), and by less than 1 in 1000 where it cannot be compressed.
uint64_t stored_size_of(const event &what);

class event_budget
{
public:
    // @p used: what the open buffer holds already. @p waiting: what goes into it or the next one as
    // soon as it can.
    // @p own_waiting: how much of that is from recordings.
    event_budget(uint64_t bytes, uint64_t used, uint64_t waiting, uint64_t own_waiting = 0)
        : bytes_(bytes), used_(used), waiting_(waiting), own_waiting_(own_waiting)
    {
    }

    void set_bytes(uint64_t bytes) { bytes_ = bytes; }
    bool has_room_for(event_source source, const event &what) const;
    // What became of an event that there was room for.
    void take(event_source source, const event &what, event_result result);
    // A vector was written, and what waits follows it. @p is_new: it is the first one of a buffer.
    void vector_written(bool is_new);

    // The bytes of events in a buffer at which an event from @p source is refused.
    uint64_t limit_for(event_source source) const;

private:
    uint64_t bytes_;
    uint64_t used_;
    uint64_t waiting_;
    uint64_t own_waiting_;
};

// The bytes of all events in the open buffer of a box.
uint64_t event_bytes_in_open_buffer(const box &found);
// What is left of @p bytes in the open buffer of a box. Throws a failure when its buffers cannot
// be read.
event_budget budget_of(const box &found, uint64_t bytes);

} // namespace cli

#endif
