// Shows how samples become the rows of a tier.
#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "box/tier_period.hpp"
#include "cli/usual_values.hpp"

namespace
{

using namespace cli;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class TierPeriod : public ::testing::Test
{
protected:
    std::vector<tier_row> add(int64_t second, float value)
    {
        return rows_.add(noon + second, std::vector<std::string>{"::a"}, std::vector<float>{value});
    }

    tier_period rows_{*find_tier("1m")};
};

TEST_F(TierPeriod, TheLastSampleOfAMinuteCompletesItsRow)
{
    for (int second = 1; second < 60; ++second) {
        EXPECT_THAT(add(second, 2), IsEmpty());
    }
    const std::vector<tier_row> rows = add(60, 2);
    ASSERT_THAT(rows, SizeIs(1));
    EXPECT_EQ(rows[0].time, noon + 60);
    EXPECT_THAT(rows[0].names, ElementsAre("::tier.1m.samples_count", "::a"));
    EXPECT_THAT(rows[0].values, ElementsAre(60, 2));
    EXPECT_FALSE(rows_.end());
}

TEST_F(TierPeriod, ASensorThatVariesHasExtremesAndDeviation)
{
    add(58, 1);
    add(59, 3);
    const tier_row row = add(60, 8).at(0);
    EXPECT_THAT(row.names,
                ElementsAre("::tier.1m.samples_count", "::a", "::min.a", "::max.a", "::dev.a"));
    EXPECT_THAT(row.values, ElementsAre(3, 4, 1, 8, std::sqrt(26.0F / 3)));
}

TEST_F(TierPeriod, ASensorThatHasVariedKeepsItsExtremes)
{
    add(59, 1);
    add(60, 3);
    EXPECT_THAT(add(120, 5).at(0).values, ElementsAre(1, 5, 5, 5, 0));
}

TEST_F(TierPeriod, AMissingValueIsMissing)
{
    rows_.add(noon + 59, std::vector<std::string>{"::a", "::b"}, std::vector<float>{missing, 1});
    const tier_row row = add(60, 7).at(0);
    EXPECT_THAT(row.names, ElementsAre("::tier.1m.samples_count", "::b", "::a"));
    EXPECT_THAT(row.values, ElementsAre(2, 1, 7));
}

TEST_F(TierPeriod, ASampleWithoutAnyValueIsCounted)
{
    EXPECT_THAT(add(60, missing).at(0).values, ElementsAre(1));
}

TEST_F(TierPeriod, AMinuteWithoutASampleHasNoRow)
{
    add(30, 1);
    const std::vector<tier_row> rows = add(600, 2);
    ASSERT_THAT(rows, SizeIs(2));
    EXPECT_EQ(rows[0].time, noon + 30);
    EXPECT_EQ(rows[1].time, noon + 600);
}

TEST_F(TierPeriod, AGapBetweenMinutesCompletesTheRowBeforeIt)
{
    add(30, 1);
    EXPECT_THAT(add(90, 2), SizeIs(1));
    EXPECT_EQ(rows_.end()->time, noon + 90);
}

TEST_F(TierPeriod, AClockThatIsSetBackBeginsARow)
{
    add(90, 1);
    const std::vector<tier_row> rows = add(30, 2);
    ASSERT_THAT(rows, SizeIs(1));
    EXPECT_EQ(rows[0].time, noon + 90);
    EXPECT_THAT(rows_.end()->values, ElementsAre(1, 2));
}

TEST_F(TierPeriod, AClockThatIsSetBackWithinAMinuteStaysInItsRow)
{
    add(40, 1);
    EXPECT_THAT(add(20, 2), IsEmpty());
    EXPECT_EQ(rows_.end()->values.at(0), 2);
}

TEST_F(TierPeriod, ASensorThatWentIsNotInTheNextRow)
{
    rows_.add(noon + 60, std::vector<std::string>{"::a", "::b"}, std::vector<float>{1, 2});
    EXPECT_THAT(add(120, 1).at(0).names, ElementsAre("::tier.1m.samples_count", "::a"));
}

// The machine has a sensor of the name that the least value would have.
TEST_F(TierPeriod, SensorsOfTheMachineKeepTheirNames)
{
    const std::vector<std::string> names = {"::a", "::min.a"};
    rows_.add(noon + 59, names, std::vector<float>{1, 10});
    const tier_row row = rows_.add(noon + 60, names, std::vector<float>{2, 20}).at(0);
    EXPECT_THAT(row.names, ElementsAre("::tier.1m.samples_count", "::a", "::min.a", "::min.min.a",
                                       "::max.min.a", "::dev.min.a"));
    EXPECT_EQ(row.values[2], 15);
}

TEST_F(TierPeriod, ManyLargeValuesHaveAnExactMean)
{
    tier_period hours(*find_tier("1h"));
    std::vector<tier_row> rows;
    for (int second = 1; second <= 3600; ++second) {
        rows = hours.add(noon + second, std::vector<std::string>{"::a"},
                         std::vector<float>{16777216.0F + static_cast<float>(second % 2 * 2)});
    }
    ASSERT_THAT(rows, SizeIs(1));
    EXPECT_EQ(rows[0].values[1], 16777216.0F); // 16777217, which is no float
    EXPECT_EQ(rows[0].values[4], 1);
}

TEST_F(TierPeriod, TheNameOfAnInstanceStaysInFront)
{
    EXPECT_EQ(least_name("rack1:disk2:reads"), "rack1:disk2:min.reads");
}

} // namespace
