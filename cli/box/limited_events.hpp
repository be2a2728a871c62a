// Passes events into a box as long as it has room for them. Events without room are counted, and
// one event tells how many were left out in a minute.
#ifndef VESK_CLI_BOX_LIMITED_EVENTS_HPP
#define VESK_CLI_BOX_LIMITED_EVENTS_HPP

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "box/event.hpp"
#include "box/event_budget.hpp"
#include "process/failure.hpp"

namespace cli
{

// The buffer has no room for more events of users.
class event_limit_reached : public failure
{
public:
    explicit event_limit_reached(uint64_t limit);
};

class limited_events
{
public:
    using writer = std::function<event_result(const event &)>;

    // @p write throws a failure where it cannot.
    limited_events(writer write, event_budget budget) : write_(std::move(write)), budget_(budget) {}

    // An event of the recording itself, about this moment or another. False when it was left out,
    // which is counted.
    bool write(event_source source, const event &what);
    // Throws an event_limit_reached, or what the writer throws.
    event_result write_of_user(const event &what);
    // Events that were lost before they came here.
    void count_lost(event_source source, uint64_t count);

    // Another bound for the buffers from now on.
    void set_bytes(uint64_t bytes) { budget_.set_bytes(bytes); }
    // After each vector; @p is_new: it is the first one of a buffer.
    void vector_written(bool is_new) { budget_.vector_written(is_new); }

    // Tells of what was left out when a minute has passed since the first, or with @p all at once.
    // @p monotonic and @p wall are the time by both clocks. If there is no room for that event, the
    // counts are kept for the next time.
    void tell(double monotonic, int64_t wall, bool all = false);
    // The number of events that were left out and not yet reported.
    uint64_t untold() const;

private:
    bool try_to_write(event_source source, const event &what);
    uint64_t &count_of(event_source source) { return left_out_.at(static_cast<size_t>(source)); }

    writer write_;
    event_budget budget_;
    std::array<uint64_t, 4> left_out_ = {};
    std::optional<double> first_; // when the first of them was left out, seen by tell()
};

} // namespace cli

#endif
