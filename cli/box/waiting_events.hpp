// Events that no buffer can take yet: before the first sample of a box, behind the last one of a
// full buffer, or while the disk is full. They are kept in BASE.events, on the medium, and go into
// the box in their order, before anything newer, as soon as there is a sample that they can follow.
//
// An event is marked before it is put into the box, with the number of events alike that the box
// ends with: when it ends with more, a process that was killed had put the event there, and it is
// not put there again. When all are in the box the file is deleted.
#ifndef VESK_CLI_BOX_WAITING_EVENTS_HPP
#define VESK_CLI_BOX_WAITING_EVENTS_HPP

#include <cstdint>
#include <string>
#include <vector>

#include "box/box.hpp"
#include "box/event.hpp"
#include "box/waiting_file.hpp"

namespace cli
{

class box_writer;

// The events of the box that wait, oldest first. Only reads. Throws a failure when the file cannot
// be read.
std::vector<event> waiting_events_of(const box &found);

// What there is to tell about the file of waiting events.
struct waiting_report {
    enum class condition {
        absent,
        whole,
        damaged, // some of it cannot be read
        foreign  // something else has the name, and is not looked into
    };
    std::string path;
    condition is = condition::absent;
    uint64_t bytes = 0;
    std::size_t events = 0; // that wait
    uint64_t unreadable_bytes = 0;
    uint64_t first_unreadable = 0; // where the first of them are

    bool is_there() const { return is != condition::absent; }
    bool is_damaged() const { return is == condition::damaged; }
    // "whole", "damaged".
    const char *condition_name() const;
    // "2 events wait, 21 bytes at 46 hold no event".
    std::string text() const;
};

// Only reads. Throws a failure when the file cannot be read.
waiting_report report_waiting_events(const box &found);

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
