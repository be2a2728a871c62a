// What the charts of a page show of all sensors: the box in columns of time that all sensors share,
// few enough for a page and made so that no least and no greatest value is lost. From the left come
// intervals of history and groups of raw samples, each with its least, mean and greatest value, and
// from the right the newest raw samples one by one.
#ifndef VESK_CLI_PAGE_CHART_SERIES_HPP
#define VESK_CLI_PAGE_CHART_SERIES_HPP

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "box/moments.hpp"
#include "box/reading.hpp"

namespace cli
{

// How the rows of a box become columns.
struct chart_plan {
    uint64_t intervals_in_column = 1;
    uint64_t grouped_samples = 0;   // the oldest ones, which are shown in groups
    uint64_t samples_in_column = 1; // of these

    // @p sensors sensors share the room that a page has for numbers.
    static chart_plan of(uint64_t intervals, uint64_t samples, std::size_t sensors);
};

enum class column_kind { interval, group, sample };

struct time_column {
    int64_t start = 0;
    int64_t end = 0;
    column_kind kind = column_kind::sample;
    uint64_t rows = 1;        // intervals or samples in it
    bool follows_gap = false; // no line leads here from the column before
};

// The numbers of one sensor in one column; NaN where it has none.
struct column_values {
    float least;
    float mean;
    float greatest;
};

class chart_series : public row_visitor
{
public:
    // @p step is the usual distance of samples in seconds. What was left out is no hole.
    chart_series(const chart_plan &plan, std::size_t sensors, const summing &how, int64_t step,
                 std::vector<row_span> left_out = {});

    void on_interval(const interval_row &row) override;
    void on_sample(const sample_row &row) override;
    void on_gap(const gap_row &row) override;
    // After the last row.
    void finish();

    // Oldest first: all that are no samples, then the samples.
    const std::vector<time_column> &columns() const { return columns_; }
    // How many columns are no samples.
    std::size_t wide_columns() const { return wide_; }
    column_values at(std::size_t sensor, std::size_t column) const;

private:
    // Gaps that end a group of samples before it is full. Behind so many, groups reach across gaps:
    // a box of gaps alone must not make a page of any length.
    static constexpr std::size_t most_ended_groups = 128;
    // A box that is written to may hold more samples at the second look than at the first.
    static constexpr std::size_t most_columns = 70000;

    void extend(int64_t start, int64_t end, column_kind kind);
    void end_column();
    void add_column(time_column column);
    bool is_far(const time_column &column) const;

    chart_plan plan_;
    summing how_;
    int64_t step_;
    std::vector<row_span> left_out_;
    std::vector<time_column> columns_;
    std::size_t wide_ = 0;
    std::vector<std::vector<column_values>> wide_values_; // by sensor
    std::vector<std::vector<float>> samples_;             // by sensor
    std::vector<moments> open_;                           // by sensor, of the column that is open
    std::optional<time_column> column_;
    uint64_t samples_seen_ = 0;
    std::size_t ended_groups_ = 0;
    bool after_gap_ = false;
};

} // namespace cli

#endif
