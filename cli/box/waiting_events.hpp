// Events that no buffer can take yet: before the first sample of a box, behind the last one of a
// full buffer, or while the disk is full. They are kept in BASE.events, on the medium, and go into
// the box in their order, before anything newer, as soon as there is a sample that they can follow.
//
// The file is a sequence of records, each of one line and the text of the event:
//
//   vesk-event MARK CCCCCCCC TYPE SECONDS LENGTH\n
//   TEXT\n
//
// CCCCCCCC is the CRC-32 of all behind it and the blank that follows, in hexadecimal. MARK is
// changed in place: "wait"; four digits from the moment in which the event is being put into the
// box; "done" when it is there. The digits say how many events alike the box ends with before: when
// it ends with more, a process that was killed had put the event there, and it is not put there
// again. What is no record is passed over, as is a torn one at the end. When all are done the file
// is deleted.
#ifndef VESK_CLI_BOX_WAITING_EVENTS_HPP
#define VESK_CLI_BOX_WAITING_EVENTS_HPP

#include <string>
#include <vector>

#include "box/box.hpp"
#include "box/event.hpp"

namespace cli
{

class box_writer;

// More are refused.
constexpr std::size_t most_waiting_events = 1000;
constexpr std::size_t most_waiting_bytes = std::size_t{1} << 20;

// As it stands in the file.
struct waiting_record {
    std::size_t offset;
    std::size_t size;
    std::string mark;
    event what;
};

// The events of the box that wait, oldest first. Only reads. Throws a failure when the file cannot
// be read.
std::vector<event> waiting_events_of(const box &found);

// Keeps the order of events around a writer, which has the lock of the box.
class waiting_events
{
public:
    // Puts what waits into the box if that can be.
    waiting_events(box_writer &box, const std::string &base);
    waiting_events(const waiting_events &) = delete;
    waiting_events &operator=(const waiting_events &) = delete;
    ~waiting_events() = default;

    // The event is in the box, or waits; either way it is on the medium when this returns. Throws a
    // failure when it is neither.
    event_result write(const event &what);
    // After each vector: puts what waits into the box. A failure is noted, and the events wait on.
    void take_over();
    // How many wait, as far as this process knows.
    std::size_t count() const { return count_; }

private:
    void write_all();
    void put_into_box(const std::vector<waiting_record> &waiting);

    box_writer &box_;
    std::string base_;
    std::size_t count_ = 0;
    bool complained_ = false;
};

} // namespace cli

#endif
