// The columns of a page keep every extreme, end at gaps, and have room on the page.
#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>

#include "cli/usual_values.hpp"
#include "page/chart_series.hpp"

namespace
{

using namespace cli;

uint64_t numbers_of(uint64_t intervals, uint64_t samples, std::size_t sensors)
{
    const chart_plan plan = chart_plan::of(intervals, samples, sensors);
    const auto up = [](uint64_t count, uint64_t by) { return (count + by - 1) / by; };
    return 3 * up(intervals, plan.intervals_in_column) +
           3 * up(plan.grouped_samples, plan.samples_in_column) + samples - plan.grouped_samples;
}

TEST(ChartPlan, WhatFitsStaysAsItIs)
{
    const chart_plan plan = chart_plan::of(120, 1000, 100);
    EXPECT_EQ(plan.intervals_in_column, 1U);
    EXPECT_EQ(plan.grouped_samples, 0U);
}

TEST(ChartPlan, AnyBoxHasRoomOnThePage)
{
    for (const std::size_t sensors : {1U, 10U, 100U, 1000U, 10000U}) {
        for (const uint64_t intervals : {0U, 1U, 120U, 65534U}) {
            for (const uint64_t samples : {0U, 1U, 1000U, 1000000U, 4000000000U}) {
                const uint64_t numbers = numbers_of(intervals, samples, sensors);
                // Each takes 16/3 characters.
                EXPECT_LE(numbers * sensors * 16 / 3, 18'200'000U)
                    << sensors << " " << intervals << " " << samples;
            }
        }
    }
    EXPECT_LE(numbers_of(120, 1000000, 100) * 100 * 16 / 3, 1'000'000U);
}

TEST(ChartPlan, TheNewestSamplesOfALongBoxStaySingle)
{
    const chart_plan plan = chart_plan::of(120, 1000000, 100);
    EXPECT_GE(1000000 - plan.grouped_samples, 400U);
}

std::vector<bool> holes_of(const std::vector<row_span> &left_out)
{
    chart_series charts({}, 0, {}, 60, left_out);
    const vesk_hb_record_events events = {};
    charts.on_interval({0, 1740, {}, &events});
    // Half an hour later than the next one would be.
    charts.on_interval({3600, 5340, {}, &events});
    charts.on_sample({9000, {}});
    charts.finish();
    std::vector<bool> holes;
    for (const time_column &column : charts.columns()) {
        holes.push_back(column.follows_gap);
    }
    return holes;
}

TEST(ChartSeries, WhatIsOnlyLeftOutIsNoHole)
{
    EXPECT_EQ(holes_of({}), (std::vector<bool>{false, true, true}));
    EXPECT_EQ(holes_of({{1741, 3599}}), (std::vector<bool>{false, false, true}));
}

class LongBox : public ::testing::Test
{
protected:
    LongBox() : plan(chart_plan::of(0, samples, 1)), charts(plan, 1, {}, 1) {}

    void add(uint64_t number, float value)
    {
        charts.on_sample({static_cast<int64_t>(number), std::span(&value, 1)});
    }

    static constexpr uint64_t samples = 100000;
    chart_plan plan;
    chart_series charts;
};

TEST_F(LongBox, EveryExtremeIsInItsColumn)
{
    for (uint64_t i = 0; i < samples; ++i) {
        float value = 5;
        if (i % 9973 == 0) {
            value = i % 2 == 0 ? 1000 : -1000;
        }
        add(i, value);
    }
    charts.finish();
    for (uint64_t i = 0; i < samples; i += 9973) {
        const auto &columns = charts.columns();
        const auto found = std::find_if(columns.begin(), columns.end(), [&](const auto &column) {
            return column.end >= static_cast<int64_t>(i);
        });
        const auto values = charts.at(0, static_cast<std::size_t>(found - columns.begin()));
        EXPECT_EQ(i % 2 == 0 ? values.greatest : values.least, i % 2 == 0 ? 1000 : -1000) << i;
    }
    EXPECT_LE(charts.columns().size(), 12000U);
}

TEST_F(LongBox, AGroupEndsAtAGap)
{
    for (uint64_t i = 0; i < plan.samples_in_column / 2; ++i) {
        add(i, 1);
    }
    charts.on_gap({1, 500});
    add(500, 2);
    charts.finish();
    ASSERT_EQ(charts.columns().size(), 2U);
    EXPECT_FALSE(charts.columns()[0].follows_gap);
    EXPECT_TRUE(charts.columns()[1].follows_gap);
    EXPECT_EQ(charts.at(0, 0).greatest, 1);
    EXPECT_EQ(charts.at(0, 1).least, 2);
}

TEST_F(LongBox, ABoxOfGapsAloneMakesNoLongerPage)
{
    for (uint64_t i = 0; i < samples; ++i) {
        if (i > 0) {
            charts.on_gap({static_cast<int64_t>(i) - 1, static_cast<int64_t>(i)});
        }
        add(i, 1);
    }
    charts.finish();
    EXPECT_LE(charts.columns().size(), 12200U);
}

TEST(ChartSeries, MissingReadingsAreHolesAndLeaveTheOtherSensorsAlone)
{
    chart_series charts({}, 2, {}, 1);
    const std::vector<float> first = {1, missing};
    const std::vector<float> second = {missing, 2};
    charts.on_sample({10, first});
    charts.on_sample({11, second});
    charts.finish();
    EXPECT_EQ(charts.at(0, 0).mean, 1);
    EXPECT_TRUE(std::isnan(charts.at(1, 0).mean));
    EXPECT_TRUE(std::isnan(charts.at(0, 1).mean));
    EXPECT_EQ(charts.at(1, 1).mean, 2);
}

TEST(ChartSeries, SamplesFollowIntervalsWithoutASeamUnlessThereIsAGap)
{
    vesk_hb_record_events events = {};
    hist_value summary = {};
    hist_value_init(&summary);
    for (const float value : {1.0F, 3.0F}) {
        hist_value_update(&summary, value);
    }
    const interval_summary row_value = {summary};
    const interval_summary *const values[] = {&row_value};
    for (const int64_t next : {61, 3600}) {
        chart_series charts({}, 1, {}, 1);
        charts.on_interval({1, 60, values, &events});
        const float value = 2;
        charts.on_sample({next, std::span(&value, 1)});
        charts.finish();
        ASSERT_EQ(charts.columns().size(), 2U);
        EXPECT_EQ(charts.wide_columns(), 1U);
        EXPECT_EQ(charts.at(0, 0).least, 1);
        EXPECT_EQ(charts.at(0, 0).mean, 2);
        EXPECT_EQ(charts.at(0, 0).greatest, 3);
        EXPECT_EQ(charts.columns()[1].follows_gap, next == 3600);
    }
}

} // namespace
