// What somebody wants to know first of a box, collected while its rows are read once: how it ended,
// which times it covers and how finely, its latest events and gaps, and which sensors were unusual.
#ifndef VESK_CLI_BOX_BOX_SUMMARY_HPP
#define VESK_CLI_BOX_BOX_SUMMARY_HPP

#include <cstdint>
#include <deque>
#include <optional>
#include <string>

#include "analysis/ending_text.hpp"
#include "box/ending_watch.hpp"
#include "box/reading.hpp"
#include "box/unusual_sensors.hpp"
#include "text/time_text.hpp"

namespace cli
{

struct dated_event {
    int64_t time;
    uint32_t type;
    std::string text; // as the box has it
};

// Of the rows of one kind, from the oldest one to the newest one.
struct counted_span {
    uint64_t rows = 0;
    time_range range{};

    void add(int64_t start, int64_t end);
};

class summary_rows : public row_visitor
{
public:
    // At most so many of the latest events are kept.
    static constexpr std::size_t most_events = 8;

    // @p sensors is the number of sensors that are read. @p plan has to live as long as this.
    summary_rows(const cell_plan &plan, std::size_t sensors);

    void on_interval(const interval_row &row) override;
    void on_sample(const sample_row &row) override;
    void on_event(const event_row &row) override;

    const ending_watch &ending() const { return ending_; }
    unusual_tracks &tracks() { return tracks_; }
    const counted_span &raw() const { return raw_; }
    const counted_span &history() const { return history_; }
    // The shortest and the longest interval, in seconds.
    int64_t shortest() const { return shortest_; }
    int64_t longest() const { return longest_; }
    // Where the second row begins: what is older is a single interval.
    std::optional<int64_t> horizon() const { return horizon_; }
    // Oldest first. Of the lists of processes, of which there are many, only the latest is kept.
    std::deque<dated_event> latest_events() const;
    uint64_t events() const { return events_; }
    uint64_t events_of_history() const { return events_of_history_; }

private:
    void count_row(int64_t start);

    ending_watch ending_;
    unusual_tracks tracks_;
    counted_span raw_;
    counted_span history_;
    int64_t shortest_ = 0;
    int64_t longest_ = 0;
    uint64_t rows_ = 0;
    std::optional<int64_t> horizon_;
    std::deque<dated_event> latest_;
    std::optional<dated_event> latest_top_;
    uint64_t events_ = 0;
    uint64_t events_of_history_ = 0;
};

} // namespace cli

#endif
