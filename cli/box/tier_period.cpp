// Mean and deviation are kept by Welford's method ("Note on a method for calculating corrected sums
// of squares and products", 1962) in double precision, so that they are as exact as the samples
// are. A sensor that had no value in a period is not in its row and forgotten; it comes back when
// it has one again.
#include "box/tier_period.hpp"

#include <algorithm>
#include <cmath>
#include <unordered_set>

namespace cli
{

std::vector<tier_row> tier_period::add(int64_t time, std::span<const std::string> names,
                                       std::span<const float> values)
{
    std::vector<tier_row> rows;
    const auto complete = [&] {
        if (std::optional<tier_row> row = end()) {
            rows.push_back(std::move(*row));
        }
    };
    if (samples_ > 0 && period_end(time, kind_.period) != period_end(last_, kind_.period)) {
        complete();
    }
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (!std::isnan(values[i])) {
            add_value(names[i], values[i]);
        }
    }
    ++samples_;
    last_ = time;
    if (time == period_end(time, kind_.period)) {
        complete();
    }
    return rows;
}

void tier_period::add_value(const std::string &name, float value)
{
    sum &one = sum_of(name);
    one.least = one.count == 0 ? value : std::min(one.least, value);
    one.greatest = one.count == 0 ? value : std::max(one.greatest, value);
    ++one.count;
    const double distance = static_cast<double>(value) - one.mean;
    one.mean += distance / one.count;
    one.squares += distance * (static_cast<double>(value) - one.mean);
    one.has_varied = one.has_varied || one.least != one.greatest;
}

tier_period::sum &tier_period::sum_of(const std::string &name)
{
    const auto [place, is_new] = places_.try_emplace(name, sums_.size());
    if (is_new) {
        sums_.push_back({name});
    }
    return sums_[place->second];
}

// An infinite value may make a mean that is none: what a box cannot hold is missing.
std::optional<tier_row> tier_period::end()
{
    if (samples_ == 0) {
        return std::nullopt;
    }
    std::erase_if(sums_, [](const sum &one) { return one.count == 0; });
    tier_row row;
    row.time = last_;
    const auto put = [&](std::string name, float value) {
        row.names.push_back(std::move(name));
        row.values.push_back(value);
    };
    put(tier_count_name(kind_), static_cast<float>(samples_));
    for (const sum &one : sums_) {
        put(one.name, std::clamp(static_cast<float>(one.mean), one.least, one.greatest));
    }
    // A sensor of the machine may have the name of an extreme.
    std::unordered_set<std::string> taken(row.names.begin(), row.names.end());
    for (const sum &one : sums_) {
        std::string least = least_name(one.name);
        std::string greatest = greatest_name(one.name);
        std::string deviation = deviation_name(one.name);
        const bool is_free =
            taken.count(least) + taken.count(greatest) + taken.count(deviation) == 0;
        if (one.has_varied && is_free) {
            put(std::move(least), one.least);
            put(std::move(greatest), one.greatest);
            put(std::move(deviation), static_cast<float>(std::sqrt(one.squares / one.count)));
        }
    }
    places_.clear();
    for (std::size_t i = 0; i < sums_.size(); ++i) {
        places_.emplace(sums_[i].name, i);
        sums_[i].count = 0;
        sums_[i].mean = sums_[i].squares = 0;
    }
    samples_ = 0;
    return row;
}

} // namespace cli
