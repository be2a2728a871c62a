// Writes events as long as the budget of the buffer has room for them. An event without room is
// counted, and once a minute one event tells how many were left out from each source. An event of
// the recording itself that cannot be written counts as left out too: it never ends the recording.
#include "box/limited_events.hpp"

#include <fmt/format.h>
#include <numeric>

#include "text/event_text.hpp"

namespace cli
{
namespace
{

constexpr double seconds_to_wait = 60;

// In the order of event_source.
constexpr const char *keys[] = {"kernel", "top", "user", "recording"};

} // namespace

event_limit_reached::event_limit_reached(uint64_t limit)
    : failure(exit_failed, fmt::format("the events of this buffer take {} bytes already, and more "
                                       "are taken only when the next one begins",
                                       limit))
{
}

// A full disk is not reported here: the missing samples already tell of it.
bool limited_events::try_to_write(event_source source, const event &what)
{
    try {
        budget_.take(source, what, write_(what));
        return true;
    } catch (const failure &) {
        return false;
    }
}

bool limited_events::write(event_source source, const event &what)
{
    if (budget_.has_room_for(source, what) && try_to_write(source, what)) {
        return true;
    }
    ++count_of(source);
    return false;
}

event_result limited_events::write_of_user(const event &what)
{
    if (!budget_.has_room_for(event_source::user, what)) {
        ++count_of(event_source::user);
        throw event_limit_reached(budget_.limit_for(event_source::user));
    }
    const event_result result = write_(what);
    budget_.take(event_source::user, what, result);
    return result;
}

void limited_events::count_lost(event_source source, uint64_t count)
{
    count_of(source) += count;
}

uint64_t limited_events::untold() const
{
    return std::accumulate(left_out_.begin(), left_out_.end(), uint64_t{0});
}

void limited_events::tell(double monotonic, int64_t wall, bool all)
{
    if (untold() == 0) {
        return;
    }
    first_ = first_.value_or(monotonic);
    if (!all && monotonic - *first_ < seconds_to_wait) {
        return;
    }
    event_text text(event_word::omitted);
    for (std::size_t i = 0; i < left_out_.size(); ++i) {
        if (left_out_[i] > 0) {
            text.add(keys[i], static_cast<int64_t>(left_out_[i]));
        }
    }
    first_.reset();
    const event told = {level_warning, wall, text.text()};
    if (budget_.has_room_for(event_source::recording, told) &&
        try_to_write(event_source::recording, told)) {
        left_out_ = {};
    }
}

} // namespace cli
