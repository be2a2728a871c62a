// Lists of processes come every minute and would push everything else out of the latest events, so
// they are kept apart. The identity of the machine, which stands in each buffer, is left out: it is
// no news.
#include "box/box_summary.hpp"

#include <algorithm>

#include "text/event_text.hpp"

namespace cli
{

void counted_span::add(int64_t start, int64_t end)
{
    range.from = rows == 0 ? start : std::min(range.from, start);
    range.to = rows == 0 ? end : std::max(range.to, end);
    ++rows;
}

summary_rows::summary_rows(const cell_plan &plan, std::size_t sensors)
    : tracks_(plan, sensors, time_range())
{
}

void summary_rows::count_row(int64_t start)
{
    if (++rows_ == 2) {
        horizon_ = start;
    }
}

void summary_rows::on_interval(const interval_row &row)
{
    tracks_.on_interval(row);
    count_row(row.start);
    const int64_t length = row.end - row.start;
    shortest_ = history_.rows == 0 ? length : std::min(shortest_, length);
    longest_ = std::max(longest_, length);
    history_.add(row.start, row.end);
    ending_.take_sample(row.end);
    const vesk_hb_record_events &events = *row.events;
    events_of_history_ += uint64_t{events.n_type1_events} + events.n_type2_events +
                          events.n_type3_events + events.n_type4_events + events.n_type5_events;
}

void summary_rows::on_sample(const sample_row &row)
{
    tracks_.on_sample(row);
    count_row(row.time);
    raw_.add(row.time, row.time);
    ending_.take_sample(row.time);
}

void summary_rows::on_event(const event_row &row)
{
    ++events_;
    ending_.take_event(row.time, row.text);
    const std::optional<parsed_event> event = parse_event_text(row.text);
    if (event && event->word == event_word::machine) {
        return;
    }
    if (event && event->word == event_word::top) {
        latest_top_ = {row.time, row.type, row.text};
        return;
    }
    latest_.push_back({row.time, row.type, row.text});
    if (latest_.size() > most_events) {
        latest_.pop_front();
    }
}

std::deque<dated_event> summary_rows::latest_events() const
{
    std::deque<dated_event> events = latest_;
    if (latest_top_) {
        const auto behind =
            std::find_if(events.begin(), events.end(),
                         [this](const dated_event &one) { return one.time > latest_top_->time; });
        events.insert(behind, *latest_top_);
    }
    if (events.size() > most_events) {
        events.pop_front();
    }
    return events;
}

} // namespace cli
