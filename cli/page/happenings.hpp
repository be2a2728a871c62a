// What happened while a box was recorded: its events and the gaps between its samples, as many as a
// page has room for. The newest ones stay; warnings and errors are not pushed out by notes.
#ifndef VESK_CLI_PAGE_HAPPENINGS_HPP
#define VESK_CLI_PAGE_HAPPENINGS_HPP

#include <array>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "box/event.hpp"
#include "box/reading.hpp"

namespace cli
{

// In the words of people, printable, and no longer than a page has room for.
std::string words_for_page(const std::string &text);

struct shown_event {
    int64_t time = 0;
    uint32_t type = 0;
    std::string text; // printable
    bool waits = false;
    uint64_t number = 0; // in the order of the box
};

// Events of an interval of history, of which only the numbers are kept.
struct past_events {
    int64_t start = 0;
    int64_t end = 0;
    std::array<uint32_t, last_event_type> counts = {}; // by type, from 1
};

class happenings : public row_visitor
{
public:
    static constexpr std::size_t most_events = 1000; // of notes, and of all that is worse
    static constexpr std::size_t most_past = 500;
    static constexpr std::size_t most_gaps = 500;

    void on_interval(const interval_row &row) override;
    void on_event(const event_row &row) override;
    void on_gap(const gap_row &row) override;

    // In the order of the box, oldest first.
    std::vector<shown_event> events() const;
    const std::deque<past_events> &past() const { return past_; }
    const std::deque<gap_row> &gaps() const { return gaps_; }
    // How many more there were than there is room for.
    uint64_t events_left_out() const { return events_left_out_; }
    uint64_t gaps_left_out() const { return gaps_left_out_; }

private:
    std::deque<shown_event> notes_;
    std::deque<shown_event> worse_;
    std::deque<past_events> past_;
    std::deque<gap_row> gaps_;
    uint64_t events_ = 0;
    uint64_t events_left_out_ = 0;
    uint64_t gaps_left_out_ = 0;
};

} // namespace cli

#endif
