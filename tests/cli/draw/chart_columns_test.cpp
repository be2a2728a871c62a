// Values are reduced to columns: no extreme and no hole is lost.
#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <random>

#include "draw/chart_columns.hpp"

namespace
{

using namespace cli;

constexpr float nan_value = std::numeric_limits<float>::quiet_NaN();
constexpr float infinity = std::numeric_limits<float>::infinity();

void add(column_track &track, const time_grid &grid, int64_t time, float value)
{
    track.add_sample(grid.column_of(time), time, value);
}

// One second a column.
std::vector<chart_column> columns_with(const std::vector<float> &values)
{
    const time_grid grid({0, static_cast<int64_t>(values.size()) - 1}, values.size());
    column_track track(grid);
    for (std::size_t i = 0; i < values.size(); ++i) {
        add(track, grid, static_cast<int64_t>(i), values[i]);
    }
    return track.take();
}

TEST(TimeGrid, DividesASpanEvenlyAndHoldsBothEnds)
{
    const time_grid grid({100, 199}, 10);
    EXPECT_EQ(grid.column_of(100), 0U);
    EXPECT_EQ(grid.column_of(109), 0U);
    EXPECT_EQ(grid.column_of(110), 1U);
    EXPECT_EQ(grid.column_of(199), 9U);
    EXPECT_EQ(grid.column_of(0), 0U);
    EXPECT_EQ(grid.column_of(INT64_MAX), 9U);
    const time_grid single({5, 5}, 4);
    EXPECT_LT(single.column_of(5), 4U);
    const time_grid all({INT64_MIN, INT64_MAX}, 3);
    EXPECT_EQ(all.column_of(0), 1U);
}

TEST(ChartColumns, KeepEveryLeastAndGreatestValue)
{
    std::mt19937 random(7);
    std::uniform_real_distribution<float> values(-1e6F, 1e6F);
    const time_grid grid({0, 99999}, 83);
    column_track track(grid);
    std::vector<float> least(grid.columns(), infinity);
    std::vector<float> greatest(grid.columns(), -infinity);
    for (int64_t time = 0; time < 100000; ++time) {
        const float value = values(random);
        const std::size_t column = grid.column_of(time);
        least[column] = std::min(least[column], value);
        greatest[column] = std::max(greatest[column], value);
        add(track, grid, time, value);
    }
    const std::vector<chart_column> columns = track.take();
    for (std::size_t i = 0; i < columns.size(); ++i) {
        ASSERT_TRUE(columns[i].has_samples);
        EXPECT_EQ(columns[i].least.value, least[i]);
        EXPECT_EQ(columns[i].greatest.value, greatest[i]);
        EXPECT_EQ(columns[i].joins, i > 0);
    }
    int64_t latest = -1;
    for (const chart_column &column : columns) {
        EXPECT_LE(points_in(column).size(), 4U);
        for (const chart_point &point : points_in(column)) {
            EXPECT_GT(point.time, latest);
            EXPECT_FALSE(std::isnan(point.value));
            latest = point.time;
        }
    }
    EXPECT_EQ(latest, 99999);
}

TEST(ChartColumns, AValueThatIsMissingInterruptsTheLine)
{
    const auto columns = columns_with({1, 2, nan_value, 4, infinity, 6});
    EXPECT_TRUE(columns[1].joins);
    EXPECT_FALSE(columns[3].joins);
    EXPECT_FALSE(columns[5].joins);
    EXPECT_FALSE(columns[4].has_values());
    EXPECT_EQ(missing_columns(columns),
              (std::vector<bool>{false, false, true, false, true, false}));
}

TEST(ChartColumns, AHoleWithinAColumnIsKept)
{
    const time_grid grid({0, 99}, 2);
    column_track track(grid);
    for (int64_t time = 0; time < 100; ++time) {
        add(track, grid, time, time == 20 ? nan_value : 1.0F);
    }
    const auto columns = track.take();
    EXPECT_TRUE(columns[0].has_hole);
    EXPECT_FALSE(columns[1].has_hole);
    EXPECT_TRUE(columns[1].joins);
    EXPECT_EQ(missing_columns(columns), (std::vector<bool>{true, false}));
    const auto points = points_in(columns[0]);
    ASSERT_EQ(points.size(), 3U);
    EXPECT_EQ(points[1].time, 20);
    EXPECT_TRUE(std::isnan(points[1].value));
}

TEST(ChartColumns, ALineMayCrossEmptyColumnsButAHoleMayNot)
{
    const time_grid grid({0, 99}, 100);
    column_track track(grid);
    add(track, grid, 0, 1);
    add(track, grid, 10, 2);
    track.add_hole(11, 89);
    add(track, grid, 90, 3);
    const auto columns = track.take();
    EXPECT_TRUE(columns[10].joins);
    EXPECT_FALSE(columns[90].joins);
    const auto missing = missing_columns(columns);
    EXPECT_FALSE(missing[5]);
    EXPECT_FALSE(missing[10]);
    EXPECT_TRUE(missing[11]);
    EXPECT_TRUE(missing[50]);
    EXPECT_TRUE(missing[95]);
}

TEST(ChartColumns, IntervalsFillTheColumnsThatTheyReach)
{
    const time_grid grid({0, 99}, 10);
    column_track track(grid);
    track.add_interval({-50, 24, 1, 9, 3, 10});
    track.add_interval({25, 49, 2, 5, 4, 30});
    add(track, grid, 50, 7);
    const auto columns = track.take();
    EXPECT_EQ(columns[0].band_greatest, 9);
    EXPECT_EQ(columns[2].band_least, 1);
    EXPECT_DOUBLE_EQ(columns[2].band_mean, (3.0 * 10 + 4.0 * 30) / 40);
    EXPECT_EQ(columns[4].band_greatest, 5);
    // The line runs on into the samples.
    EXPECT_TRUE(columns[5].joins);
    EXPECT_FALSE(columns[5].has_band());
    EXPECT_EQ(columns[4].exit(), 4);
    EXPECT_EQ(columns[5].entry(), 7);
    EXPECT_EQ(*extremes_of(columns), (std::pair<double, double>{1, 9}));
}

TEST(ChartColumns, IntervalsWithoutValuesAreHoles)
{
    const time_grid grid({0, 99}, 10);
    column_track track(grid);
    track.add_interval({0, 29, 1, 1, 1, 3});
    track.add_interval({30, 59, 0, 0, 0, 0});
    track.add_interval({60, 99, -infinity, 1, 0, 3});
    const auto columns = track.take();
    EXPECT_FALSE(columns[3].has_values());
    EXPECT_FALSE(columns[8].has_values());
    EXPECT_TRUE(missing_columns(columns)[5]);
    EXPECT_TRUE(missing_columns(columns)[9]);
}

TEST(ChartColumns, ValuesFromBeforeAClockWasSetBackAreNotJoined)
{
    const time_grid grid({0, 99}, 10);
    column_track track(grid);
    add(track, grid, 50, 1);
    add(track, grid, 95, 1);
    add(track, grid, 10, 2);
    add(track, grid, 52, 3);
    const auto columns = track.take();
    EXPECT_FALSE(columns[1].joins);
    EXPECT_EQ(columns[5].greatest.value, 3);
    EXPECT_EQ(columns[5].least.value, 1);
}

TEST(ChartColumns, WhatLiesOutsideOfTheGridChangesNothing)
{
    const time_grid grid({0, 9}, 10);
    column_track track(grid);
    track.add_interval({-20, -10, 1, 9, 3, 10});
    track.add_interval({5, 4, 1, 9, 3, 10});
    track.add_hole(20, 30);
    track.add_hole(3, 2);
    for (const chart_column &column : track.take()) {
        EXPECT_FALSE(column.has_values());
        EXPECT_FALSE(column.has_hole);
    }
    EXPECT_FALSE(extremes_of({}));
    EXPECT_TRUE(points_in({}).empty());
}

} // namespace
