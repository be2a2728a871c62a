// A row of a tier tells as much as an interval of history but for the sums of third and fourth
// powers, which are told to have overflowed, so that nobody takes something from them. First and
// last value are the mean. Mean and deviation are handed on as they are kept, too: the sums of
// large values tell little of how these vary.
#include "box/tier_rows.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <unordered_map>
#include <unordered_set>

namespace cli
{
namespace
{

// A deviation was rounded once, and its square is off by twice as much.
constexpr double rounding = 0x1p-23;

constexpr float unknown = std::numeric_limits<float>::infinity();

const vesk_hb_record_events no_events = {};

// What is known of the samples of one sensor in one row.
struct known_values {
    double count = 0;
    double mean = 0;
    double mean_square = 0; // the mean of the squares of all samples
    float least = 0;
    float greatest = 0;
    float first = 0;
    float last = 0;
};

hist_value summary_of(const known_values &known)
{
    hist_value result;
    hist_value_init(&result);
    result.count = static_cast<uint32_t>(
        std::clamp(std::round(known.count), 1.0, double{std::numeric_limits<uint32_t>::max()}));
    result.min_value = known.least;
    result.max_value = known.greatest;
    result.first_value = known.first;
    result.last_value = known.last;
    const double count = result.count;
    result.sum = static_cast<float>(known.mean * count);
    result.sum_squares = static_cast<float>(known.mean_square * count);
    result.sum_cubes = unknown;
    result.sum_fourth_powers = unknown;
    return result;
}

// The number of samples in a row that does not tell it is 1: each row has some.
double samples_or_one(double count)
{
    return std::isfinite(count) && count >= 1 ? count : 1;
}

} // namespace

row_span tier_spans::next(int64_t first, int64_t last)
{
    row_span span = {period_end(std::min(first, last), period_) - period_ + 1,
                     std::max(first, last)};
    if (last_end_ && *last_end_ >= span.start && *last_end_ < span.end) {
        span.start = *last_end_ + 1;
    }
    last_end_ = span.end;
    return span;
}

std::vector<std::string> plain_sensors(const tier_kind &kind,
                                       const std::vector<std::string> &sensors)
{
    const std::unordered_set<std::string> all(sensors.begin(), sensors.end());
    std::unordered_set<std::string> derived = {tier_count_name(kind)};
    for (const std::string &name : sensors) {
        const std::string three[] = {least_name(name), greatest_name(name), deviation_name(name)};
        // A sensor of the machine may have one of these names; a row then has none of the others.
        if (std::all_of(std::begin(three), std::end(three),
                        [&](const std::string &each) { return all.count(each) == 1; })) {
            derived.insert(std::begin(three), std::end(three));
        }
    }
    std::vector<std::string> plain;
    std::copy_if(sensors.begin(), sensors.end(), std::back_inserter(plain),
                 [&](const std::string &name) { return derived.count(name) == 0; });
    return plain;
}

tier_rows::tier_rows(const tier_kind &kind, const std::vector<std::string> &sensors,
                     const summing &how, const std::vector<std::string> &wanted, taker take)
    : spans_(kind.period), how_(how), take_(std::move(take)), values_(wanted.size()),
      kept_(wanted.size()), pointers_(wanted.size())
{
    std::unordered_map<std::string, std::size_t> numbers;
    for (std::size_t i = 0; i < sensors.size(); ++i) {
        numbers.emplace(sensors[i], i);
    }
    const auto place_of = [&](const std::string &name) -> std::optional<std::size_t> {
        const auto found = numbers.find(name);
        if (found == numbers.end()) {
            return std::nullopt;
        }
        chosen_.push_back(found->second);
        return chosen_.size() - 1;
    };
    count_ = place_of(tier_count_name(kind));
    for (const std::string &name : wanted) {
        columns from = {place_of(name), place_of(least_name(name)), place_of(greatest_name(name)),
                        place_of(deviation_name(name))};
        if (!from.least || !from.greatest || !from.deviation) {
            from.least = from.greatest = from.deviation = std::nullopt;
        }
        columns_.push_back(from);
    }
}

void tier_rows::on_sample(const sample_row &row)
{
    const auto value = [&](const std::optional<std::size_t> &place, float missing) {
        return place && !std::isnan(row.values[*place]) ? row.values[*place] : missing;
    };
    const double count = samples_or_one(static_cast<double>(value(count_, 1)));
    for (std::size_t i = 0; i < columns_.size(); ++i) {
        const columns &from = columns_[i];
        const float mean = value(from.mean, std::numeric_limits<float>::quiet_NaN());
        pointers_[i] = nullptr;
        if (std::isnan(mean)) {
            continue;
        }
        const auto deviation = static_cast<double>(value(from.deviation, 0));
        const auto m = static_cast<double>(mean);
        const double square = deviation * deviation;
        const hist_value all =
            summary_of({count, m, m * m + square, std::min(mean, value(from.least, mean)),
                        std::max(mean, value(from.greatest, mean)), mean, mean});
        moments one;
        one.add(mean);
        put(i, all, moments::of_rows(one, square, rounding, all));
    }
    hand_out(samples_++, false, spans_.next(row.time, row.time));
}

// The history of a tier sums up rows: the mean of means, the least of the least values, and so on.
void tier_rows::on_interval(const interval_row &row)
{
    const auto summary = [&](const std::optional<std::size_t> &place) -> const interval_summary * {
        const interval_summary *found = place ? row.values[*place] : nullptr;
        return found != nullptr && found->count > 0 ? found : nullptr;
    };
    const hist_value *counts = summary(count_);
    const double samples_in_row =
        counts != nullptr ? samples_or_one(static_cast<double>(counts->sum) / counts->count) : 1;
    for (std::size_t i = 0; i < columns_.size(); ++i) {
        const interval_summary *mean = summary(columns_[i].mean);
        const hist_value *least = summary(columns_[i].least);
        const hist_value *greatest = summary(columns_[i].greatest);
        const hist_value *deviation = summary(columns_[i].deviation);
        pointers_[i] = nullptr;
        if (mean == nullptr) {
            continue;
        }
        const double rows = mean->count;
        const double square =
            deviation != nullptr ? static_cast<double>(deviation->sum_squares) / rows : 0.0;
        const hist_value all = summary_of(
            {rows * samples_in_row, static_cast<double>(mean->sum) / rows,
             static_cast<double>(mean->sum_squares) / rows + square,
             least != nullptr ? std::min(least->min_value, mean->min_value) : mean->min_value,
             greatest != nullptr ? std::max(greatest->max_value, mean->max_value) : mean->max_value,
             mean->first_value, mean->last_value});
        put(i, all,
            moments::of_rows(moments(*mean, how_), square, rounding * (1 + how_.additions(rows)),
                             all));
    }
    hand_out(intervals_++, true, spans_.next(row.start, row.end));
}

void tier_rows::put(std::size_t i, const hist_value &summary, const moments &kept)
{
    kept_[i] = kept;
    values_[i] = {summary, &kept_[i]};
    pointers_[i] = &values_[i];
}

void tier_rows::hand_out(std::size_t row, bool is_history, const row_span &span)
{
    take_(row, is_history, {span.start, span.end, pointers_, &no_events});
}

} // namespace cli
