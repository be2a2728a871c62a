// Divides the room of a page among the sensors and fills it. Intervals get at most a third of a
// sensor's room, the newest samples a third, and groups of older samples the rest; what fits as it
// is stays as it is.
#include "page/chart_series.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

#include "box/left_out.hpp"

namespace cli
{
namespace
{

// Numbers of single precision on a page. Each takes 16/3 characters there: 3.4 million are 18 MB,
// and 1800 for each of 100 sensors are 1 MB.
constexpr std::size_t most_numbers = 3'400'000;
constexpr std::size_t usual_numbers = 180'000;
constexpr std::size_t most_of_one = 12'000;
constexpr std::size_t usual_of_one = 1'800;
constexpr std::size_t least_of_one = 48;

constexpr float missing = std::numeric_limits<float>::quiet_NaN();

std::size_t room_of_one(std::size_t sensors)
{
    const std::size_t count = std::max<std::size_t>(sensors, 1);
    const std::size_t usual = std::min(usual_of_one, most_numbers / count);
    return std::clamp(usual_numbers / count, std::max(usual, least_of_one), most_of_one);
}

uint64_t divided_up(uint64_t count, uint64_t by)
{
    return (count + by - 1) / by;
}

} // namespace

chart_plan chart_plan::of(uint64_t intervals, uint64_t samples, std::size_t sensors)
{
    chart_plan plan;
    uint64_t room = room_of_one(sensors);
    if (3 * intervals + samples <= room) {
        return plan;
    }
    const uint64_t for_intervals = room / 3;
    plan.intervals_in_column = std::max<uint64_t>(1, divided_up(3 * intervals, for_intervals));
    room -= 3 * divided_up(intervals, plan.intervals_in_column);
    if (samples > room) {
        const uint64_t single = room / 3;
        const uint64_t groups = (room - single) / 3;
        plan.grouped_samples = samples - single;
        plan.samples_in_column = divided_up(plan.grouped_samples, groups);
    }
    return plan;
}

chart_series::chart_series(const chart_plan &plan, std::size_t sensors, const summing &how,
                           int64_t step, std::vector<row_span> left_out)
    : plan_(plan), how_(how), step_(step), left_out_(std::move(left_out)), wide_values_(sensors),
      samples_(sensors), open_(sensors)
{
}

void chart_series::on_interval(const interval_row &row)
{
    if (samples_seen_ > 0) {
        // History comes first in a box. A file in which it does not has no place for it.
        return;
    }
    for (std::size_t i = 0; i < open_.size(); ++i) {
        if (row.values[i] != nullptr) {
            open_[i].add(*row.values[i], how_);
        }
    }
    extend(row.start, row.end, column_kind::interval);
    if (column_->rows == plan_.intervals_in_column) {
        end_column();
    }
}

void chart_series::on_gap(const gap_row & /*row*/)
{
    if (column_ && ended_groups_ < most_ended_groups) {
        ++ended_groups_;
        end_column();
    }
    after_gap_ = true;
}

void chart_series::on_sample(const sample_row &row)
{
    if (column_ && column_->kind == column_kind::interval) {
        end_column();
    }
    if (++samples_seen_ <= plan_.grouped_samples) {
        for (std::size_t i = 0; i < open_.size(); ++i) {
            open_[i].add(row.values[i]);
        }
        extend(row.time, row.time, column_kind::group);
        if (column_->rows == plan_.samples_in_column) {
            end_column();
        }
        return;
    }
    end_column();
    if (columns_.size() == most_columns) {
        return;
    }
    add_column({row.time, row.time, column_kind::sample, 1, after_gap_});
    for (std::size_t i = 0; i < samples_.size(); ++i) {
        samples_[i].push_back(row.values[i]);
    }
}

void chart_series::finish()
{
    end_column();
}

column_values chart_series::at(std::size_t sensor, std::size_t column) const
{
    if (column < wide_) {
        return wide_values_[sensor][column];
    }
    const float value = samples_[sensor][column - wide_];
    return {value, value, value};
}

void chart_series::extend(int64_t start, int64_t end, column_kind kind)
{
    if (!column_) {
        column_ = time_column{start, end, kind, 0, after_gap_};
        after_gap_ = false;
    }
    column_->start = std::min(column_->start, start);
    column_->end = std::max(column_->end, end);
    ++column_->rows;
}

void chart_series::end_column()
{
    if (!column_) {
        return;
    }
    for (std::size_t i = 0; i < open_.size(); ++i) {
        const moments &all = open_[i];
        wide_values_[i].push_back(all.count() == 0
                                      ? column_values{missing, missing, missing}
                                      : column_values{static_cast<float>(all.least()),
                                                      static_cast<float>(all.mean()),
                                                      static_cast<float>(all.greatest())});
        open_[i] = moments();
    }
    ++wide_;
    add_column(*column_);
    column_.reset();
}

void chart_series::add_column(time_column column)
{
    column.follows_gap = column.follows_gap || is_far(column);
    columns_.push_back(column);
    after_gap_ = false;
}

// Gaps are told between samples only. Nobody tells the step of the samples that an interval was
// made of, but they were closer than half of its length.
bool chart_series::is_far(const time_column &column) const
{
    if (columns_.empty() || columns_.back().kind != column_kind::interval) {
        return false;
    }
    const time_column &before = columns_.back();
    const row_span between = without_left_out({before.end, column.start}, left_out_);
    return between.end - between.start > std::max(2 * step_, (before.end - before.start) / 2);
}

} // namespace cli
