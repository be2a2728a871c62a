// The end is the latest record, unless the recording told of it. Where a recording went on after it
// had broken off, the event of the gap tells when that was.
#include "box/ending_watch.hpp"

#include <algorithm>

namespace cli
{

void ending_watch::take_sample(int64_t time)
{
    last_ = time;
}

void ending_watch::take_event(int64_t time, const std::string &text)
{
    last_ = std::max(time, last_.value_or(time));
    log_.take_event(time, text);
    const std::optional<parsed_event> event = parse_event_text(text);
    if (!event) {
        return;
    }
    if (event->word == event_word::kernel) {
        kernel_.push_back({time, event->value("text")});
        if (kernel_.size() > most_kernel_words) {
            kernel_.pop_front();
        }
    } else if (const std::optional<gap> found = gap_in(*event);
               found &&
               (found->reason == gap_reason::crash || found->reason == gap_reason::killed)) {
        broke_off_ = found->from;
        words_at_break_ = words_before(found->from);
    }
}

std::optional<kernel_words> ending_watch::words_before(int64_t end) const
{
    const auto found = std::find_if(kernel_.rbegin(), kernel_.rend(), [end](const auto &words) {
        return words.time <= end && end - words.time <= box_ending::nearest_words;
    });
    return found == kernel_.rend() ? std::nullopt : std::optional(*found);
}

box_ending ending_watch::result(bool is_written) const
{
    using state = recording_log::state;
    box_ending ending;
    if (is_written) {
        ending.it_ended = box_ending::how::recording;
        ending.time = broke_off_;
        ending.kernel = words_at_break_;
        return ending;
    }
    if (!last_) {
        return ending;
    }
    ending.time = last_;
    if (log_.last_state() == state::silent) {
        ending.it_ended = box_ending::how::untold;
    } else if (log_.last_state() == state::begun) {
        ending.it_ended = box_ending::how::cut_short;
        ending.kernel = words_before(*last_);
    } else {
        ending.time = log_.end_time();
        ending.reason = log_.end_reason();
        ending.error = log_.end_error();
        ending.it_ended = ending.error.empty() ? box_ending::how::clean : box_ending::how::failed;
    }
    return ending;
}

} // namespace cli
