// The distance of the newest values from what was usual just before, in units between the usual
// swing of the sensor and its whole range, and how rarely the past reached so far. Both are looked
// at over several lengths of time, because an incident may have begun long ago or just now.
#include "analysis/unusual_score.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace cli
{
namespace
{

// A past of fewer intervals says little.
constexpr std::size_t few_intervals = 8;

// The lengths, in cells from the newest one back.
std::vector<std::size_t> lengths_of(const cell_plan &plan)
{
    constexpr std::array<std::size_t, 3> shorter = {5, 10, 20};
    std::vector<std::size_t> lengths;
    std::copy_if(shorter.begin(), shorter.end(), std::back_inserter(lengths),
                 [&](std::size_t one) { return one < plan.newest; });
    lengths.push_back(plan.newest);
    lengths.erase(std::remove_if(lengths.begin(), lengths.end(),
                                 [&](std::size_t one) { return one > plan.cells / 2; }),
                  lengths.end());
    return lengths;
}

double median(std::vector<value_span> cells)
{
    const auto by_value = [](const value_span &one, const value_span &other) {
        return one.first < other.first;
    };
    std::sort(cells.begin(), cells.end(), by_value);
    const std::size_t half = cells.size() / 2;
    const double upper = cells[half].first;
    return cells.size() % 2 == 1 ? upper : cells[half - 1].first / 2.0 + upper / 2.0;
}

// Of intervals of one value nothing is known of a swing.
double mean_swing(const std::vector<past_interval> &past)
{
    double sum = 0;
    std::size_t known = 0;
    for (const past_interval &one : past) {
        if (one.count > 1) {
            sum += static_cast<double>(one.greatest) - static_cast<double>(one.least);
            ++known;
        }
    }
    return known == 0 ? 0 : sum / static_cast<double>(known);
}

template <typename Reaches>
double share(const std::vector<past_interval> &past, Reaches reaches)
{
    const auto count = std::count_if(past.begin(), past.end(), reaches);
    return static_cast<double>(count) / static_cast<double>(past.size());
}

double highest(const past_interval &one, double slack)
{
    return one.greatest + (one.count == 1 ? slack : 0);
}

double lowest(const past_interval &one, double slack)
{
    return one.least - (one.count == 1 ? slack : 0);
}

// What one length of time shows.
struct distance {
    double rise;    // from the usual value to the greatest
    double fall;    // and to the least
    double from;    // the usual value
    float greatest; // of the length
    float least;
    double rarity; // how many powers of ten the past is away from reaching that far

    double farthest() const { return std::max(rise, fall); }
};

// Past intervals of which one value is known are taken to have reached @p slack beyond it.
std::optional<distance> distance_of(const value_track &track, std::size_t length, double slack)
{
    const std::vector<value_span> newest = track.recent(0, length);
    std::vector<value_span> before = track.recent(length, length + cell_plan::before);
    if (newest.empty() || before.empty()) {
        return std::nullopt;
    }
    value_span all;
    for (const value_span &cell : newest) {
        all.add(cell);
    }
    const double from = median(std::move(before));
    const std::vector<past_interval> &past = track.past();
    const double above =
        share(past, [&](const past_interval &one) { return highest(one, slack) >= all.greatest; });
    const double below =
        share(past, [&](const past_interval &one) { return lowest(one, slack) <= all.least; });
    const double rarest = 0.5 / static_cast<double>(past.size());
    return distance{static_cast<double>(all.greatest) - from,
                    from - static_cast<double>(all.least),
                    from,
                    all.greatest,
                    all.least,
                    -std::log10(std::max(std::min(above, below), rarest))};
}

// Whether the newest values have been the same for longer than the sensor ever rests. What it did
// in intervals that are no longer than the run tells how it rests.
bool is_stuck(const value_track &track)
{
    constexpr uint64_t least_run = 30;
    constexpr uint64_t least_known = 20;
    constexpr uint64_t one_in = 100;
    const std::vector<past_interval> &past = track.past();
    const uint64_t run = track.run();
    if (run < least_run) {
        return false;
    }
    // Intervals at the end of the past that are part of the run do not count.
    const float value = track.all().last;
    std::size_t end = past.size();
    while (end > 0 && past[end - 1].least == value && past[end - 1].greatest == value) {
        --end;
    }
    uint64_t known = 0;
    uint64_t flat = 0;
    for (std::size_t i = 0; i < end; ++i) {
        if (past[i].count > 1 && past[i].count <= run) {
            ++known;
            flat += past[i].least == past[i].greatest ? 1U : 0U;
        }
    }
    return known >= least_known && flat * one_in <= known;
}

} // namespace

double finding::factor() const
{
    const double distance = std::fabs(to - from);
    return usual_swing > 0 ? distance / usual_swing : std::numeric_limits<double>::infinity();
}

bool is_more_unusual(const finding &one, const finding &other)
{
    const auto group = [](const finding &what) {
        return what.has_score() ? 0 : what.kind == verdict::never_moved ? 1 : 2;
    };
    if (group(one) != group(other)) {
        return group(one) < group(other);
    }
    return one.has_score() && one.score > other.score;
}

sensor_track::sensor_track(const cell_plan &plan)
    : plan_(&plan), values_(plan), rates_(std::make_unique<value_track>(plan))
{
}

void sensor_track::add_interval(const value_span &interval, int64_t start, int64_t end)
{
    if (interval.count == 0) {
        return;
    }
    values_.add_interval(interval);
    // Of a reset nobody knows how far the counter had come.
    if (rates_ && end > start && interval.count > 1 && interval.first == interval.least &&
        interval.last == interval.greatest) {
        const auto rate = static_cast<float>(interval.swing() / static_cast<double>(end - start));
        rates_->add_interval({rate, rate, rate, rate, 1});
    }
    drop_rates();
}

void sensor_track::add_sample(float value, int64_t time)
{
    values_.add_sample(value);
    if (rates_) {
        rates_->add_sample(rate_to(value, time));
    }
    drop_rates();
}

void sensor_track::finish()
{
    values_.finish();
    if (rates_) {
        rates_->finish();
    }
}

finding sensor_track::judge(bool has_past)
{
    const bool has_newest = !values_.recent(0, plan_->newest).empty();
    finding found;
    if (values_.all().count == 0 || plan_->cells == 0 || !has_past) {
        found.kind = verdict::not_judged;
    } else if (!has_newest) {
        found.kind = verdict::missing;
    } else if (values_.past().empty()) {
        found.kind = verdict::appeared;
    } else if (values_.all().least == values_.all().greatest) {
        found.kind = verdict::never_moved;
    } else if (is_counter() && !rates_->past().empty() &&
               rates_->all().least != rates_->all().greatest) {
        found = judge(*rates_, true);
    } else {
        found = judge(values_, false);
    }
    found.intervals = values_.past().size();
    found.few_intervals = found.intervals < few_intervals;
    found.value = values_.all().last;
    if (has_newest && found.has_score() && is_stuck(values_)) {
        found.kind = verdict::stuck;
        found.score = std::max(found.score, perhaps_from);
        found.unchanged = values_.run();
    }
    return found;
}

bool sensor_track::is_counter() const
{
    constexpr uint64_t one_in = 100;
    const uint64_t judged = values_.judged();
    return rates_ && judged > 0 && (judged - values_.rising_or_flat()) * one_in <= judged &&
           values_.rising() * 2 > judged && falls_ * one_in <= steps_;
}

float sensor_track::rate_to(float value, int64_t time)
{
    if (!std::isfinite(value)) {
        return value;
    }
    float rate = std::numeric_limits<float>::quiet_NaN();
    if (previous_time_) {
        ++steps_;
        falls_ += value < previous_ ? 1 : 0;
    }
    if (previous_time_ && time > *previous_time_ && value >= previous_) {
        rate = static_cast<float>((static_cast<double>(value) - static_cast<double>(previous_)) /
                                  static_cast<double>(time - *previous_time_));
    }
    previous_ = value;
    previous_time_ = time;
    return rate;
}

void sensor_track::drop_rates()
{
    constexpr uint64_t enough = 8;
    if (rates_ && values_.judged() >= enough && values_.rising_or_flat() * 2 < values_.judged()) {
        rates_.reset();
    }
}

finding sensor_track::judge(const value_track &track, bool is_rate) const
{
    // The range is taken as this share of itself at least, or as the swing of the past.
    constexpr double least_swing = 0.001;
    constexpr double least_distance = 0.0001;
    constexpr double weight_of_rarity = 0.2;
    finding found;
    const double range = track.all().swing();
    found.is_rate = is_rate;
    found.usual_swing = mean_swing(track.past());
    // Of the rate of a counter history tells the mean only, which lies within a swing.
    const double slack = is_rate ? found.usual_swing : 0;
    const double scale = std::sqrt(std::max(found.usual_swing, least_swing * range) * range);
    double distances = 0;
    double rarities = 0;
    double farthest = -1;
    std::size_t lengths = 0;
    for (const std::size_t length : lengths_of(*plan_)) {
        const std::optional<distance> one = distance_of(track, length, slack);
        if (!one) {
            continue;
        }
        ++lengths;
        distances += one->farthest() / scale;
        rarities += one->rarity;
        if (one->farthest() > farthest) {
            farthest = one->farthest();
            const bool rises = one->rise >= one->fall;
            found.from = one->from;
            found.to = rises ? one->greatest : one->least;
            found.within = length * plan_->unit;
            found.reached = share(track.past(), [&](const past_interval &past) {
                return rises ? highest(past, slack) >= one->greatest
                             : lowest(past, slack) <= one->least;
            });
        }
    }
    if (lengths == 0) {
        return found;
    }
    found.kind = verdict::judged;
    const auto count = static_cast<double>(lengths);
    found.score =
        std::log10(distances / count + least_distance) + weight_of_rarity * rarities / count;
    const std::vector<past_interval> &past = track.past();
    found.first_move = std::all_of(past.begin(), past.end(), [&](const past_interval &one) {
        return one.least == past.front().least && one.greatest == past.front().least;
    });
    return found;
}

} // namespace cli
