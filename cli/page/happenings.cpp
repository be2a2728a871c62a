// Keeps the newest events and gaps in queues of bounded length. Notes and worse events have a queue
// each, because a machine writes many notes between two errors.
#include "page/happenings.hpp"

#include <algorithm>

#include "process/terminal.hpp"
#include "text/event_text.hpp"
#include "text/event_words.hpp"

namespace cli
{
namespace
{

// Adds to the end; what has no room leaves at the beginning.
template <typename Item>
uint64_t push(std::deque<Item> &queue, Item item, std::size_t most)
{
    queue.push_back(std::move(item));
    if (queue.size() <= most) {
        return 0;
    }
    queue.pop_front();
    return 1;
}

} // namespace

std::string words_for_page(const std::string &text)
{
    constexpr std::size_t longest = 1000;
    const std::string words = event_words(text);
    const std::string shown = printable(words.substr(0, longest));
    return words.size() > longest ? shown + " …" : shown;
}

void happenings::on_interval(const interval_row &row)
{
    const vesk_hb_record_events &events = *row.events;
    const past_events past = {row.start,
                              row.end,
                              {events.n_type1_events, events.n_type2_events, events.n_type3_events,
                               events.n_type4_events, events.n_type5_events}};
    if (std::any_of(past.counts.begin(), past.counts.end(),
                    [](uint32_t count) { return count > 0; })) {
        push(past_, past, most_past);
    }
}

void happenings::on_event(const event_row &row)
{
    std::deque<shown_event> &queue = row.type < level_warning ? notes_ : worse_;
    events_left_out_ += push(
        queue, {row.time, row.type, words_for_page(row.text), row.waits, events_++}, most_events);
}

void happenings::on_gap(const gap_row &row)
{
    gaps_left_out_ += push(gaps_, row, most_gaps);
}

std::vector<shown_event> happenings::events() const
{
    std::vector<shown_event> all(notes_.begin(), notes_.end());
    all.insert(all.end(), worse_.begin(), worse_.end());
    std::sort(all.begin(), all.end(),
              [](const shown_event &a, const shown_event &b) { return a.number < b.number; });
    return all;
}

} // namespace cli
