// Sums up samples into the rows of a tier: the mean of each sensor over a period, with its extremes
// and its deviation where it has ever varied in a period. A missing value is missing, and a period
// without a sample gives no row. Nothing here reads a clock or a file.
#ifndef VESK_CLI_BOX_TIER_PERIOD_HPP
#define VESK_CLI_BOX_TIER_PERIOD_HPP

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "box/tier.hpp"

namespace cli
{

struct tier_row {
    int64_t time = 0; // of its last sample
    std::vector<std::string> names;
    std::vector<float> values;
};

class tier_period
{
public:
    explicit tier_period(const tier_kind &kind) : kind_(kind) {}

    // Takes a sample, and returns the row that it completes: with the last sample of a period that
    // is the row of this period. A sample of another period, as after a gap or when the clock was
    // set back, completes the row before it and begins one.
    std::vector<tier_row> add(int64_t time, std::span<const std::string> names,
                              std::span<const float> values);
    // The row of the period under way; nothing where it has no sample.
    std::optional<tier_row> end();

private:
    struct sum {
        std::string name;
        double mean = 0;
        double squares = 0; // of the distances from the mean, added up
        float least = 0;
        float greatest = 0;
        uint32_t count = 0;
        bool has_varied = false; // the row has its extremes from then on
    };

    void add_value(const std::string &name, float value);
    sum &sum_of(const std::string &name);

    tier_kind kind_;
    std::vector<sum> sums_; // in the order in which the sensors came
    std::unordered_map<std::string, std::size_t> places_;
    uint32_t samples_ = 0;
    int64_t last_ = 0; // the time of the last sample
};

} // namespace cli

#endif
