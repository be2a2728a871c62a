// What the score of a sensor needs of its past, taken in one pass in the order of time: the
// extremes of each past interval, and the newest samples one by one. Only stored numbers are kept,
// nothing is summed up, so nothing can cancel.
#ifndef VESK_CLI_ANALYSIS_VALUE_TRACK_HPP
#define VESK_CLI_ANALYSIS_VALUE_TRACK_HPP

#include <cstddef>
#include <cstdint>
#include <vector>

namespace cli
{

// How the raw samples of a box are divided. A cell is one sample where samples are taken about once
// a minute, and some of them otherwise; the newest cells are compared with what was before.
struct cell_plan {
    std::size_t unit = 1;    // samples in a cell
    std::size_t first = 1;   // samples in the oldest cell, so that the newest one is complete
    std::size_t cells = 0;   // in the box
    std::size_t newest = 60; // cells that are no past yet
    // Behind so many, two neighbouring intervals of the past become one.
    std::size_t most_intervals = 1024;

    // Cells before the newest ones from which a sensor is said to have moved.
    static constexpr std::size_t before = 20;
    // Older cells that become an interval of the past.
    static constexpr std::size_t cells_in_interval = 10;
};

// @p samples raw samples with @p step seconds between most of them (0 if unknown). @p last is how
// many seconds before the end are asked for; 0 leaves it to the plan. @p sensors bounds the memory.
cell_plan plan_of(uint64_t samples, int64_t step, int64_t last, std::size_t sensors);

// Finite values; count is 0 where there are none.
struct value_span {
    float first = 0;
    float last = 0;
    float least = 0;
    float greatest = 0;
    uint32_t count = 0;

    void add(float value);
    void add(const value_span &later);
    double swing() const { return static_cast<double>(greatest) - static_cast<double>(least); }
};

struct past_interval {
    float least;
    float greatest;
    uint32_t count;
};

class value_track
{
public:
    explicit value_track(const cell_plan &plan);

    // Intervals come before the samples. One without values or with infinite ones changes nothing.
    void add_interval(const value_span &interval);
    // NaN and infinities are missing readings: time goes on without a value.
    void add_sample(float value);
    // After the last sample.
    void finish();

    const std::vector<past_interval> &past() const { return past_; }
    // Everything, the newest cells included.
    const value_span &all() const { return all_; }
    // The cells with the numbers @p begin to @p end (not included), counted back from the newest
    // one, which is number 0; as far as they are there and hold a value. The newest comes first.
    std::vector<value_span> recent(std::size_t begin, std::size_t end) const;
    // How many of the newest values are equal.
    uint64_t run() const { return run_; }
    // Past intervals of at least two values: all, those that went from their least value to their
    // greatest one, and those of these that were not flat.
    uint64_t judged() const { return judged_; }
    uint64_t rising_or_flat() const { return rising_or_flat_; }
    uint64_t rising() const { return rising_; }

private:
    void end_cell();
    void end_interval();
    void add_to_past(const value_span &interval);
    void add_to_run(const value_span &next);

    const cell_plan *plan_;
    std::vector<past_interval> past_;
    std::vector<value_span> ring_; // of the newest cells and those before
    std::size_t cells_ = 0;        // complete ones
    std::size_t in_cell_ = 0;      // samples in the cell that is open
    value_span cell_;
    std::size_t in_interval_ = 0; // cells in the interval that is open
    value_span interval_;
    value_span all_;
    uint64_t run_ = 0;
    uint64_t judged_ = 0;
    uint64_t rising_or_flat_ = 0;
    uint64_t rising_ = 0;
};

} // namespace cli

#endif
