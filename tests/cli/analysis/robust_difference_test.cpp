// Robust differences of two sets of values.
#include <cmath>
#include <gtest/gtest.h>

#include "analysis/robust_difference.hpp"

namespace
{

using namespace cli;
using weighted_values = std::vector<weighted_value>;

robust_summary summary_of(std::initializer_list<double> numbers)
{
    weighted_values all;
    for (const double number : numbers) {
        all.push_back({number, 1});
    }
    return summarise(all);
}

// Quantiles of the normal distribution by the logistic one would not do: these are sums of twelve
// equally distributed numbers of a fixed sequence.
weighted_values normal_values(double mean, double deviation)
{
    weighted_values all;
    uint64_t state = 1;
    for (int i = 0; i < 20000; ++i) {
        double sum = -6;
        for (int j = 0; j < 12; ++j) {
            state = state * 6364136223846793005U + 1442695040888963407U;
            sum += static_cast<double>(state >> 11U) / 9007199254740992.0;
        }
        all.push_back({mean + deviation * sum, 1});
    }
    return all;
}

TEST(RobustSummary, LeavesOutTheLowestAndTheHighestFifth)
{
    const robust_summary found = summary_of({1000, 2, 3, 4, -500});
    EXPECT_DOUBLE_EQ(found.mean, 3);
    // -500 and 1000 are drawn in to 2 and 4.
    EXPECT_DOUBLE_EQ(found.deviation, std::sqrt(0.8));
    EXPECT_GT(found.whole_deviation, 400);
}

TEST(RobustSummary, AWeightIsAsManyValues)
{
    weighted_values few = {{5, 6}, {1, 2}, {9, 2}};
    weighted_values many;
    for (const weighted_value &each : few) {
        many.insert(many.end(), static_cast<std::size_t>(each.weight), {each.value, 1});
    }
    const robust_summary a = summarise(few);
    const robust_summary b = summarise(many);
    EXPECT_DOUBLE_EQ(a.mean, b.mean);
    EXPECT_DOUBLE_EQ(a.deviation, b.deviation);
    EXPECT_DOUBLE_EQ(a.whole_deviation, b.whole_deviation);
}

TEST(RobustSummary, OneValueIsItsMean)
{
    const robust_summary found = summary_of({7});
    EXPECT_EQ(found.mean, 7);
    EXPECT_EQ(found.deviation, 0);
}

TEST(RobustDifference, IsThatOfCohenForNormalDistributions)
{
    weighted_values first = normal_values(10, 2);
    weighted_values second = normal_values(11.6, 2);
    const robust_difference found = difference_of(summarise(first), summarise(second));
    EXPECT_NEAR(found.shift, 0.8, 0.02);
    EXPECT_NEAR(found.spread, 0, 1e-9);
}

TEST(RobustDifference, AFewOutliersChangeLittle)
{
    weighted_values first = normal_values(10, 2);
    weighted_values second = normal_values(11.6, 2);
    for (std::size_t i = 0; i < second.size(); i += 20) {
        second[i].value = 1e6;
    }
    EXPECT_NEAR(difference_of(summarise(first), summarise(second)).shift, 0.8, 0.1);
}

TEST(RobustDifference, TellsWhichVariesMore)
{
    weighted_values first = normal_values(10, 1);
    weighted_values second = normal_values(10, 4);
    EXPECT_NEAR(difference_of(summarise(first), summarise(second)).spread, std::log(4), 0.01);
    EXPECT_NEAR(difference_of(summarise(second), summarise(first)).spread, -std::log(4), 0.01);
}

TEST(RobustDifference, ASpreadThatOnlyTheFifthsOrOnlyTheRestShowIsNone)
{
    weighted_values first = normal_values(10, 1);
    weighted_values second = normal_values(10, 1);
    for (std::size_t i = 0; i < second.size(); i += 20) {
        second[i].value = 1e6;
    }
    EXPECT_NEAR(difference_of(summarise(first), summarise(second)).spread, 0, 0.1);
}

TEST(RobustDifference, ConstantsDifferOrDoNot)
{
    const robust_summary four = summary_of({4, 4, 4});
    const robust_summary eight = summary_of({8, 8});
    EXPECT_EQ(difference_of(four, four).size(), 0);
    EXPECT_TRUE(std::isinf(difference_of(four, eight).shift));
    EXPECT_LT(difference_of(eight, four).shift, 0);
    EXPECT_EQ(difference_of(four, summary_of({1, 4, 9})).spread, most_spread);
}

TEST(RobustDifference, AlmostConstantOnesAreMeasuredByTheirWholeDeviation)
{
    const robust_summary quiet = summary_of({0, 0, 0, 0, 0, 0, 0, 0, 0, 10});
    const robust_summary other = summary_of({5, 5, 5, 5, 5, 5, 5, 5, 5, 15});
    EXPECT_NEAR(difference_of(quiet, other).shift, 5.0 / 3, 1e-9);
}

} // namespace
