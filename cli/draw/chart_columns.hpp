// Reduces the values of a sensor to the columns of a chart. Every least and greatest value is kept,
// and every hole: a value that is missing leads to no line. The memory is that of the columns,
// however many values go in.
#ifndef VESK_CLI_DRAW_CHART_COLUMNS_HPP
#define VESK_CLI_DRAW_CHART_COLUMNS_HPP

#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "draw/time_grid.hpp"

namespace cli
{

// A sample; a value that is NaN is a hole.
struct chart_point {
    int64_t time = 0;
    float value = std::numeric_limits<float>::quiet_NaN();

    bool operator==(const chart_point &) const = default;
};

// A summary of samples that are gone.
struct chart_interval {
    int64_t start = 0;
    int64_t end = 0;
    float least = 0;
    float greatest = 0;
    double mean = 0;
    uint64_t count = 0; // of samples
};

struct chart_column {
    // Of the intervals that reach into the column, while band_count is not 0.
    float band_least = 0;
    float band_greatest = 0;
    double band_mean = 0;
    uint64_t band_count = 0;
    // Of the samples in it, while there are some.
    chart_point first;
    chart_point least;
    chart_point greatest;
    chart_point last;
    bool has_samples = false;
    // No hole lies between its first value and the latest value of the columns before it.
    bool joins = false;
    // Values are missing in the column itself, from hole_time on.
    bool has_hole = false;
    int64_t hole_time = 0;

    bool has_band() const { return band_count > 0; }
    bool has_values() const { return has_samples || has_band(); }
    // The value at its left and at its right end.
    double entry() const { return has_band() ? band_mean : static_cast<double>(first.value); }
    double exit() const { return has_samples ? static_cast<double>(last.value) : band_mean; }
    // The extremes of all of it.
    double lowest() const;
    double highest() const;
};

// Fills the columns of one sensor. Intervals come before samples, all in the order of time; where
// that goes back, because a clock was set, the values before and behind are not joined.
class column_track
{
public:
    explicit column_track(const time_grid &grid) : grid_(grid), columns_(grid.columns()) {}

    // What lies outside of the grid does not count.
    void add_interval(const chart_interval &interval);
    // A value that is no finite number is a hole. @p column is that of @p time in the grid, which
    // is the same for all sensors of a row.
    void add_sample(std::size_t column, int64_t time, float value);
    // Nothing is known from @p first to @p last, both included.
    void add_hole(int64_t first, int64_t last);

    std::vector<chart_column> take() { return std::move(columns_); }

private:
    void enter(chart_column &column, int64_t time);

    time_grid grid_;
    std::vector<chart_column> columns_;
    std::optional<int64_t> latest_;
    bool broken_ = true; // a hole lies behind the latest value
};

// For each column whether values are missing in it: in a part of it, or because no line crosses it.
std::vector<bool> missing_columns(std::span<const chart_column> columns);

// The extremes of all columns; nothing without any value.
std::optional<std::pair<double, double>> extremes_of(std::span<const chart_column> columns);

// The samples of one column that are kept, in the order of time, with a hole where values are
// missing between them.
std::vector<chart_point> points_in(const chart_column &column);

} // namespace cli

#endif
