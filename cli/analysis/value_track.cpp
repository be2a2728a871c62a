// The cells of the newest samples go round in a ring; those that leave it become past.
#include "analysis/value_track.hpp"

#include <algorithm>
#include <cmath>

namespace cli
{

cell_plan plan_of(uint64_t samples, int64_t step, int64_t last, std::size_t sensors)
{
    constexpr std::size_t newest = 60;
    // As many samples as a box of the size has on average that the score was chosen with.
    constexpr uint64_t usual_samples = 180;
    constexpr std::size_t most_stored = 8'000'000;
    constexpr std::size_t fewest_intervals = 64;
    constexpr std::size_t most_intervals = 1024;
    cell_plan plan;
    const bool once_a_minute = step >= 45 && step <= 90;
    if (last > 0) {
        const auto asked = static_cast<uint64_t>(
            std::max<int64_t>(1, step > 0 ? last / step : static_cast<int64_t>(samples)));
        plan.unit = static_cast<std::size_t>((asked + newest - 1) / newest);
        plan.newest = static_cast<std::size_t>((asked + plan.unit - 1) / plan.unit);
    } else {
        plan.newest = newest;
        if (!once_a_minute && step > 0) {
            const uint64_t rounded = (samples + usual_samples / 2) / usual_samples;
            plan.unit = static_cast<std::size_t>(std::max<uint64_t>(1, rounded));
        }
    }
    const auto rest = static_cast<std::size_t>(samples % plan.unit);
    plan.first = rest == 0 ? plan.unit : rest;
    plan.cells = static_cast<std::size_t>(samples / plan.unit) + (rest == 0 ? 0 : 1);
    plan.most_intervals = std::clamp(most_stored / std::max<std::size_t>(1, sensors),
                                     fewest_intervals, most_intervals);
    return plan;
}

void value_span::add(float value)
{
    add(value_span{value, value, value, value, 1});
}

void value_span::add(const value_span &later)
{
    if (later.count == 0) {
        return;
    }
    if (count == 0) {
        *this = later;
        return;
    }
    last = later.last;
    least = std::min(least, later.least);
    greatest = std::max(greatest, later.greatest);
    count = later.count > UINT32_MAX - count ? UINT32_MAX : count + later.count;
}

value_track::value_track(const cell_plan &plan)
    : plan_(&plan), ring_(plan.newest + cell_plan::before),
      // The oldest cell may be a short one.
      in_cell_(plan.unit - plan.first)
{
    // And so may the oldest interval, so that the last one before the newest cells is whole.
    if (plan.cells > plan.newest) {
        const std::size_t rest = (plan.cells - plan.newest) % cell_plan::cells_in_interval;
        in_interval_ = rest == 0 ? 0 : cell_plan::cells_in_interval - rest;
    }
}

void value_track::add_interval(const value_span &interval)
{
    if (interval.count > 0 && std::isfinite(interval.least) && std::isfinite(interval.greatest)) {
        add_to_past(interval);
        add_to_run(interval);
        all_.add(interval);
    }
}

void value_track::add_sample(float value)
{
    if (std::isfinite(value)) {
        const value_span one = {value, value, value, value, 1};
        add_to_run(one);
        cell_.add(one);
        all_.add(one);
    }
    if (++in_cell_ == plan_->unit) {
        end_cell();
    }
}

void value_track::finish()
{
    // A box that is written to meanwhile may have some samples more than it was planned for.
    if (in_cell_ > 0 && cell_.count > 0) {
        end_cell();
    }
    end_interval();
}

std::vector<value_span> value_track::recent(std::size_t begin, std::size_t end) const
{
    std::vector<value_span> found;
    for (std::size_t i = begin; i < std::min({end, cells_, ring_.size()}); ++i) {
        const value_span &one = ring_[(cells_ - 1 - i) % ring_.size()];
        if (one.count > 0) {
            found.push_back(one);
        }
    }
    return found;
}

void value_track::end_cell()
{
    if (cells_ >= plan_->newest) {
        interval_.add(ring_[(cells_ - plan_->newest) % ring_.size()]);
        if (++in_interval_ == cell_plan::cells_in_interval) {
            end_interval();
        }
    }
    ring_[cells_ % ring_.size()] = cell_;
    ++cells_;
    cell_ = {};
    in_cell_ = 0;
}

void value_track::end_interval()
{
    if (interval_.count > 0) {
        add_to_past(interval_);
    }
    interval_ = {};
    in_interval_ = 0;
}

void value_track::add_to_past(const value_span &interval)
{
    if (past_.size() == plan_->most_intervals) {
        for (std::size_t i = 0; i + 1 < past_.size(); i += 2) {
            const past_interval &one = past_[i];
            const past_interval &two = past_[i + 1];
            past_[i / 2] = {std::min(one.least, two.least), std::max(one.greatest, two.greatest),
                            one.count > UINT32_MAX - two.count ? UINT32_MAX
                                                               : one.count + two.count};
        }
        past_.resize(past_.size() / 2);
    }
    past_.push_back({interval.least, interval.greatest, interval.count});
    if (interval.count > 1) {
        const bool is_flat = interval.least == interval.greatest;
        const bool rises = interval.first == interval.least && interval.last == interval.greatest;
        ++judged_;
        rising_or_flat_ += rises ? 1 : 0;
        rising_ += rises && !is_flat ? 1 : 0;
    }
}

void value_track::add_to_run(const value_span &next)
{
    if (next.least != next.greatest) {
        run_ = 0;
    } else if (run_ > 0 && all_.last == next.least) {
        run_ += next.count;
    } else {
        run_ = next.count;
    }
}

} // namespace cli
