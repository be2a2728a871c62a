// Boxes become the columns of charts.
#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>

#include "box/box_writer.hpp"
#include "box/charting.hpp"
#include "box/tier_recorder.hpp"
#include "box/waiting_events.hpp"
#include "cli/quick_folder.hpp"
#include "common/temporary_directory.hpp"

namespace
{

using namespace cli;

class Charting : public ::testing::Test
{
protected:
    std::string base() const { return folder.file("box"); }

    // Of one sensor; its value is the number of the sample.
    void fill(const std::vector<int64_t> &times)
    {
        box_writer writer(base(), {4, 2});
        writer.set_sensors(std::vector<std::string>{"::a", "::b"});
        float value = 0;
        for (const int64_t time : times) {
            writer.write(time, std::vector<float>{value++, 1});
        }
    }

    // A box that is too small for these times, with a tier of minutes for the rest.
    static void fill_with_tier(const std::string &base, const std::vector<int64_t> &times)
    {
        const sync_policy sync = {sync_policy::moment::never, 0};
        const std::vector<std::string> names = {"::a"};
        box_writer writer(base, {120, 12}, sync);
        tier_recorders tiers(base, {{*find_tier("1m"), {40, 4}}}, sync);
        writer.set_sensors(names);
        for (const int64_t time : times) {
            const std::vector<float> values = {static_cast<float>(time % 7)};
            writer.write(time, values);
            tiers.add(time, names, values);
        }
        tiers.finish();
    }

    temporary_directory folder{quick_folder()};
};

std::vector<int64_t> seconds(int64_t from, int64_t to)
{
    std::vector<int64_t> times;
    for (int64_t time = from; time <= to; ++time) {
        times.push_back(time);
    }
    return times;
}

TEST_F(Charting, HistoryRunsWithoutASeamIntoTheSamples)
{
    fill(seconds(1000, 1021));
    reading source(base());
    const auto found = read_charted(source, {}, {0}, 22);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->grid.range().from, 1000);
    EXPECT_EQ(found->grid.range().to, 1021);
    ASSERT_EQ(found->sensors.size(), 1U);
    const auto &columns = found->sensors.front().columns;
    std::size_t with_band = 0;
    for (std::size_t i = 0; i < columns.size(); ++i) {
        ASSERT_TRUE(columns[i].has_values()) << i;
        EXPECT_EQ(columns[i].joins, i > 0);
        EXPECT_FALSE(columns[i].has_hole);
        EXPECT_LE(columns[i].lowest(), static_cast<double>(i));
        EXPECT_GE(columns[i].highest(), static_cast<double>(i));
        with_band += columns[i].has_band() ? 1U : 0U;
    }
    EXPECT_GT(with_band, 10U);
    EXPECT_TRUE(columns.back().has_samples);
}

// A chart of a box with tiers showed missing values where it goes on with rows of another place,
// because these seldom begin when the others end.
TEST_F(Charting, NoHoleIsWhereTheRowsOfATierMeetThoseOfTheBox)
{
    for (const int64_t begin : {1'000'000'000, 1'000'000'005, 1'000'000'031, 1'000'000'047}) {
        const temporary_directory own{quick_folder()};
        fill_with_tier(own.file("box"), seconds(begin, begin + 2399));
        reading source(own.file("box"));
        const auto found = read_charted(source, {begin, begin + 2399}, {0}, 2400);
        ASSERT_TRUE(found);
        const std::vector<bool> missing = missing_columns(found->sensors.front().columns);
        EXPECT_EQ(std::count(missing.begin(), missing.end(), true), 0) << begin;
    }
}

TEST_F(Charting, AGapAmongTheRowsOfATierIsAHole)
{
    std::vector<int64_t> times = seconds(1'000'000'005, 1'000'000'300);
    const std::vector<int64_t> later = seconds(1'000'000'900, 1'000'003'000);
    times.insert(times.end(), later.begin(), later.end());
    fill_with_tier(base(), times);
    reading source(base());
    const auto found = read_charted(source, {times.front(), times.back()}, {0}, 2996);
    ASSERT_TRUE(found);
    const std::vector<bool> missing = missing_columns(found->sensors.front().columns);
    // The rows of a tier begin with their minute.
    EXPECT_EQ(std::count(missing.begin(), missing.begin() + 295, true), 0);
    EXPECT_EQ(std::count(missing.begin() + 296, missing.begin() + 830, false), 0);
    EXPECT_EQ(std::count(missing.begin() + 895, missing.end(), true), 0);
}

TEST_F(Charting, GapsAreHolesInHistoryAndAmongSamples)
{
    std::vector<int64_t> times = seconds(1000, 1007);
    const std::vector<int64_t> later = seconds(1050, 1063);
    times.insert(times.end(), later.begin(), later.end());
    times.push_back(1090);
    times.push_back(1091);
    fill(times);
    reading source(base());
    const auto found = read_charted(source, {}, {0}, 92);
    ASSERT_TRUE(found);
    const auto &columns = found->sensors.front().columns;
    const auto missing = missing_columns(columns);
    EXPECT_FALSE(missing[5]);
    EXPECT_TRUE(missing[80]);
    EXPECT_FALSE(missing[91]);
    EXPECT_FALSE(columns[90].joins);
}

TEST_F(Charting, ShowsThePartOfTheRangeThatTheBoxHas)
{
    fill(seconds(1000, 1009));
    reading source(base());
    const auto found = read_charted(source, {1005, 5000}, {0}, 10);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->grid.range().from, 1005);
    EXPECT_EQ(found->grid.range().to, 1009);
    EXPECT_FALSE(read_charted(source, {5000, 6000}, {0}, 10));
}

TEST_F(Charting, AnEmptyBoxHasNothingToShow)
{
    fill({});
    reading source(base());
    EXPECT_FALSE(source.extent());
    EXPECT_FALSE(read_charted(source, {}, {}, 10));
}

TEST_F(Charting, TheExtentHoldsTimesFromBeforeAClockWasSetBack)
{
    fill({1000, 1001, 1002, 500, 501});
    reading source(base());
    ASSERT_TRUE(source.extent());
    EXPECT_EQ(source.extent()->from, 500);
    EXPECT_EQ(source.extent()->to, 1002);
    const auto found = read_charted(source, {}, {0}, 503);
    ASSERT_TRUE(found);
    EXPECT_TRUE(found->sensors.front().columns[0].has_values());
    EXPECT_FALSE(found->sensors.front().columns[0].joins);
}

TEST_F(Charting, EventsHaveTheMostSevereTypeOfTheirColumn)
{
    {
        box_writer writer(base(), {40, 4});
        writer.set_sensors(std::vector<std::string>{"::a"});
        waiting_events events(writer, base());
        for (int64_t time = 1000; time < 1010; ++time) {
            writer.write(time, std::vector<float>{1});
            if (time == 1003) {
                events.write({2, time, "note"});
                events.write({4, time, "error"});
                events.write({1, time, "note"});
            }
        }
        events.write({3, 1010, "just behind the end"});
    }
    reading source(base());
    const auto found = read_charted(source, {}, {0}, 10);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->events[3], 4U);
    EXPECT_EQ(found->events[4], 0U);
    EXPECT_EQ(found->events[9], 3U);
}

} // namespace
