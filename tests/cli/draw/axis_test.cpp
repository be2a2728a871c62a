// The marks of axes: round times of the clock that is shown, and round values in the right unit.
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/usual_values.hpp"
#include "draw/time_ticks.hpp"
#include "draw/value_axis.hpp"

namespace
{

using namespace cli;
using ::testing::ElementsAre;

std::vector<std::string> labels(int64_t from, int64_t to, std::size_t width = 60,
                                zone where = zone::utc)
{
    std::vector<std::string> found;
    for (const time_tick &tick : time_ticks({from, to}, width, where)) {
        found.push_back(tick.label);
    }
    return found;
}

std::vector<std::string> value_labels(const value_axis &axis)
{
    std::vector<std::string> found;
    for (const value_tick &tick : axis.ticks) {
        found.push_back(tick.label);
    }
    return found;
}

// The local time zone is set for one test.
class in_zone
{
public:
    explicit in_zone(const char *name)
    {
        setenv("TZ", name, 1);
        tzset();
    }
    in_zone(const in_zone &) = delete;
    in_zone &operator=(const in_zone &) = delete;
    ~in_zone()
    {
        setenv("TZ", "UTC0", 1);
        tzset();
    }
};

TEST(TimeTicks, GoFromSecondsToYears)
{
    EXPECT_THAT(
        labels(new_year + 61, new_year + 66),
        ElementsAre("00:01:01", "00:01:02", "00:01:03", "00:01:04", "00:01:05", "00:01:06"));
    EXPECT_THAT(labels(new_year + 3600, new_year + 3600 + 600),
                ElementsAre("01:00", "01:02", "01:04", "01:06", "01:08", "01:10"));
    EXPECT_THAT(labels(new_year - 7200, new_year + 4 * 3600),
                ElementsAre("22:00", "23:00", "1 Jan", "01:00", "02:00", "03:00", "04:00"));
    EXPECT_THAT(labels(new_year, new_year + 5 * 86400),
                ElementsAre("1 Jan", "2 Jan", "3 Jan", "4 Jan", "5 Jan", "6 Jan"));
    // Weeks begin on Mondays.
    EXPECT_THAT(labels(new_year, new_year + 30 * 86400),
                ElementsAre("1 Jan", "8 Jan", "15 Jan", "22 Jan", "29 Jan"));
    EXPECT_THAT(labels(new_year - 40 * 86400, new_year + 100 * 86400),
                ElementsAre("Dec", "2024", "Feb", "Mar", "Apr"));
    EXPECT_THAT(labels(new_year, new_year + 3 * int64_t{31622400}, 40),
                ElementsAre("2024", "2025", "2026", "2027"));
    EXPECT_THAT(labels(-2147483648, 2147483647),
                ElementsAre("1920", "1940", "1960", "1980", "2000", "2020"));
}

TEST(TimeTicks, HaveRoomForTheirLabels)
{
    for (const std::size_t width : {20U, 40U, 80U, 132U}) {
        for (int64_t length = 1; length < int64_t{4000000000}; length = length * 3 + 1) {
            const auto found = time_ticks({new_year - length, new_year}, width, zone::utc);
            std::size_t used = 0;
            for (const time_tick &tick : found) {
                used += tick.label.size() + 2;
                EXPECT_GE(tick.time, new_year - length);
                EXPECT_LE(tick.time, new_year);
            }
            EXPECT_LE(used, width + 10) << length;
            EXPECT_GE(found.size(), width >= 40 && length > 10 ? 1U : 0U) << length;
        }
    }
}

TEST(TimeTicks, FollowTheLocalClockThroughItsChanges)
{
    const in_zone zurich("CET-1CEST,M3.5.0,M10.5.0/3");
    // On 31 March 2024 the hour from 2 to 3 is skipped.
    EXPECT_THAT(labels(1711846800 - 3600, 1711846800 + 7200, 60, zone::local),
                ElementsAre("01:00", "01:30", "03:00", "03:30", "04:00", "04:30", "05:00"));
    // On 27 October 2024 it comes twice.
    EXPECT_THAT(labels(1729987200, 1729987200 + 3 * 3600, 60, zone::local),
                ElementsAre("02:00", "02:30", "02:00", "02:30", "03:00", "03:30", "04:00"));
    EXPECT_THAT(labels(1729987200 - 2 * 86400, 1729987200 + 2 * 86400, 40, zone::local),
                ElementsAre("26 Oct", "27 Oct", "28 Oct", "29 Oct"));
}

TEST(ValueAxis, HasRoundTicksOfOneTwoOrFive)
{
    EXPECT_THAT(value_labels(value_axis_for(0, 100, 5, "x_percent")),
                ElementsAre("0", "50", "100"));
    EXPECT_THAT(value_labels(value_axis_for(0, 100, 6, "x_percent")),
                ElementsAre("0", "20", "40", "60", "80", "100"));
    EXPECT_THAT(value_labels(value_axis_for(0.12, 0.31, 5, "")),
                ElementsAre("0.0", "0.1", "0.2", "0.3", "0.4"));
    EXPECT_THAT(value_labels(value_axis_for(-3, 4, 4, "")), ElementsAre("-5", "0", "5"));
    EXPECT_EQ(value_axis_for(0, 100, 5, "x_percent").unit, "%");
}

TEST(ValueAxis, OfAnAmountOfMemoryIsBinary)
{
    const double gib = 1024.0 * 1024 * 1024;
    const value_axis axis = value_axis_for(0.9 * gib, 3.7 * gib, 5, "mem.free_bytes");
    EXPECT_THAT(value_labels(axis), ElementsAre("0", "1", "2", "3", "4"));
    EXPECT_EQ(axis.unit, "GiB");
    EXPECT_EQ(axis.to, 4 * gib);
    EXPECT_THAT(value_labels(value_axis_for(0, 100, 5, "x_bytes")),
                ElementsAre("0", "32", "64", "96", "128"));
    EXPECT_THAT(value_labels(value_axis_for(0, 3400, 5, "x_bytes_per_s")),
                ElementsAre("0", "1", "2", "3", "4"));
}

TEST(ValueAxis, BeginsAtZeroWhereTheValuesComeNearIt)
{
    EXPECT_EQ(value_axis_for(10, 90, 5, "").from, 0);
    EXPECT_EQ(value_axis_for(80, 90, 3, "").from, 80);
    EXPECT_EQ(value_axis_for(-90, -10, 5, "").to, 0);
}

TEST(ValueAxis, HoldsItsValuesWhateverTheyAre)
{
    constexpr double extremes[][2] = {{0, 0},
                                      {5, 5},
                                      {-5, -5},
                                      {1e-30, 2e-30},
                                      {-3.4e38, 3.4e38},
                                      {3.4e38, 3.4e38},
                                      {1e30, 2e30},
                                      {16777216, 16777217},
                                      {0.1, 0.1000001},
                                      {1e-45, 1e-45},
                                      {0, 1e-45},
                                      {-1e10, 3}};
    for (const auto &[least, greatest] : extremes) {
        for (const char *name : {"", "x_bytes", "x_bytes_per_s"}) {
            for (std::size_t most = 2; most < 12; ++most) {
                const value_axis axis = value_axis_for(least, greatest, most, name);
                EXPECT_LE(axis.from, least) << least;
                EXPECT_GE(axis.to, greatest) << greatest;
                EXPECT_LT(axis.from, axis.to);
                EXPECT_TRUE(std::isfinite(axis.place_of(least)));
                ASSERT_GE(axis.ticks.size(), 2U) << least << " " << greatest;
                EXPECT_LE(axis.ticks.size(), std::max<std::size_t>(most, 3));
                for (std::size_t i = 1; i < axis.ticks.size(); ++i) {
                    EXPECT_LT(axis.ticks[i - 1].value, axis.ticks[i].value);
                    EXPECT_NE(axis.ticks[i - 1].label, axis.ticks[i].label);
                    EXPECT_LE(axis.ticks[i].label.size(), 18U);
                }
            }
        }
    }
}

TEST(ValueAxis, TellsNeighboursApart)
{
    EXPECT_THAT(value_labels(value_axis_for(16777216, 16777218, 3, "")),
                ElementsAre("16777216", "16777217", "16777218"));
    EXPECT_THAT(value_labels(value_axis_for(1e9, 1e9 + 100, 3, "")),
                ElementsAre("1000000000", "1000000050", "1000000100"));
}

} // namespace
