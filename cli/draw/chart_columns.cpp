// A column keeps the first, least, greatest and last sample: a line through these four looks, at
// the width of one column, like the line through all. Whether two columns are joined is decided
// while the values come in, because afterwards a hole between them is not seen any more.
#include "draw/chart_columns.hpp"

#include <algorithm>
#include <array>
#include <cmath>

namespace cli
{

double chart_column::lowest() const
{
    if (!has_band()) {
        return static_cast<double>(least.value);
    }
    return static_cast<double>(has_samples ? std::min(band_least, least.value) : band_least);
}

double chart_column::highest() const
{
    if (!has_band()) {
        return static_cast<double>(greatest.value);
    }
    return static_cast<double>(has_samples ? std::max(band_greatest, greatest.value)
                                           : band_greatest);
}

void column_track::enter(chart_column &column, int64_t time)
{
    const bool goes_on = !broken_ && latest_ && time >= *latest_;
    if (!column.has_values()) {
        column.joins = goes_on;
    } else if (!goes_on && !column.has_hole) {
        column.has_hole = true;
        column.hole_time = time;
    }
    broken_ = false;
    latest_ = time;
}

void column_track::add_interval(const chart_interval &interval)
{
    if (!grid_.range().touches(interval.start, interval.end) || interval.start > interval.end) {
        return;
    }
    if (interval.count == 0 || !std::isfinite(interval.least) ||
        !std::isfinite(interval.greatest) || !std::isfinite(interval.mean)) {
        add_hole(interval.start, interval.end);
        return;
    }
    const std::size_t last = grid_.column_of(interval.end);
    for (std::size_t i = grid_.column_of(interval.start); i <= last; ++i) {
        chart_column &column = columns_[i];
        enter(column, interval.start);
        const bool is_first = !column.has_band();
        column.band_least = is_first ? interval.least : std::min(column.band_least, interval.least);
        column.band_greatest =
            is_first ? interval.greatest : std::max(column.band_greatest, interval.greatest);
        column.band_count += interval.count;
        column.band_mean +=
            (interval.mean - column.band_mean) *
            (static_cast<double>(interval.count) / static_cast<double>(column.band_count));
    }
    latest_ = interval.end;
}

void column_track::add_sample(std::size_t column, int64_t time, float value)
{
    if (!std::isfinite(value)) {
        add_hole(time, time);
        return;
    }
    chart_column &into = columns_[column];
    enter(into, time);
    const chart_point point = {time, value};
    if (!into.has_samples) {
        into.first = into.least = into.greatest = point;
        into.has_samples = true;
    } else if (value < into.least.value) {
        into.least = point;
    } else if (value > into.greatest.value) {
        into.greatest = point;
    }
    into.last = point;
}

void column_track::add_hole(int64_t first, int64_t last)
{
    broken_ = true;
    if (!grid_.range().touches(first, last) || first > last) {
        return;
    }
    // The columns between are empty, unless a clock was set back.
    for (const int64_t time : {std::max(first, grid_.range().from), last}) {
        chart_column &column = columns_[grid_.column_of(time)];
        if (!column.has_hole) {
            column.has_hole = true;
            column.hole_time = std::min(time, grid_.range().to);
        }
    }
}

std::vector<bool> missing_columns(std::span<const chart_column> columns)
{
    std::vector<bool> missing(columns.size(), true);
    bool is_crossed = false; // the column to the right joins what is left of it
    for (std::size_t i = columns.size(); i-- > 0;) {
        const chart_column &column = columns[i];
        if (column.has_values()) {
            missing[i] = column.has_hole;
            is_crossed = column.joins;
        } else {
            missing[i] = !is_crossed;
        }
    }
    return missing;
}

std::optional<std::pair<double, double>> extremes_of(std::span<const chart_column> columns)
{
    std::optional<std::pair<double, double>> found;
    for (const chart_column &column : columns) {
        if (!column.has_values()) {
            continue;
        }
        if (!found) {
            found = {column.lowest(), column.highest()};
        }
        found->first = std::min(found->first, column.lowest());
        found->second = std::max(found->second, column.highest());
    }
    return found;
}

std::vector<chart_point> points_in(const chart_column &column)
{
    if (!column.has_samples) {
        return {};
    }
    std::vector<chart_point> points = {column.first, column.least, column.greatest, column.last};
    if (column.has_hole && column.hole_time > column.first.time &&
        column.hole_time <= column.last.time) {
        points.push_back({column.hole_time, chart_point().value});
    }
    // A hole stands before the value of the same second: that one is the first behind it.
    std::stable_sort(points.begin(), points.end(), [](const chart_point &a, const chart_point &b) {
        return a.time < b.time || (a.time == b.time && std::isnan(a.value) && !std::isnan(b.value));
    });
    points.erase(std::unique(points.begin(), points.end()), points.end());
    return points;
}

} // namespace cli
