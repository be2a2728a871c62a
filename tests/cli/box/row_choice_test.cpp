// Shows which rows of a box and its tiers are chosen for which time.
#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "box/row_choice.hpp"

namespace
{

using namespace cli;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

// Minutes from the first one on, each from its first second to the next whole minute.
row_source minutes(int first, int count)
{
    row_source source;
    for (int i = 0; i < count; ++i) {
        source.rows.push_back({(first + i) * 60 + 1, (first + i + 1) * 60});
    }
    return source;
}

row_source history(std::vector<row_span> rows)
{
    return {std::move(rows), true, true};
}

// The number of seconds that chosen rows tell of more than once.
int64_t told_twice(const row_choice &choice, const std::vector<row_source> &sources)
{
    std::vector<row_span> spans;
    for (std::size_t i = 0; i < sources.size(); ++i) {
        for (std::size_t row = 0; row < sources[i].rows.size(); ++row) {
            if (choice.chosen[i][row]) {
                spans.push_back(sources[i].rows[row]);
            }
        }
    }
    std::sort(spans.begin(), spans.end(),
              [](const row_span &one, const row_span &other) { return one.start < other.start; });
    int64_t twice = 0;
    for (std::size_t i = 1; i < spans.size(); ++i) {
        twice += std::max<int64_t>(0, spans[i - 1].end - spans[i].start + 1);
    }
    return twice;
}

TEST(RowChoice, RowsBeforeTheRawSamplesAreChosen)
{
    const row_choice choice = choose_rows({{301, 400}}, {history({}), minutes(0, 6)});
    EXPECT_THAT(choice.chosen[1], ElementsAre(true, true, true, true, true, false));
    EXPECT_THAT(choice.hidden, IsEmpty());
    ASSERT_EQ(choice.segments.size(), 1U);
    EXPECT_EQ(choice.segments[0].source, 1U);
}

TEST(RowChoice, TellsWhatIsLeftOutBetweenTwoSources)
{
    // The fifth minute tells of 20 seconds that no interval tells of.
    const row_choice choice =
        choose_rows({}, {history({{261, 280}, {281, 300}, {301, 320}}), minutes(0, 5)});
    EXPECT_THAT(choice.chosen[1], ElementsAre(true, true, true, true, false));
    ASSERT_EQ(choice.left_out.size(), 1U);
    EXPECT_EQ(choice.left_out[0].start, 241);
    EXPECT_EQ(choice.left_out[0].end, 260);
}

TEST(RowChoice, WhatNoRowTellsOfIsNotLeftOut)
{
    const row_choice choice = choose_rows({}, {history({{301, 320}, {321, 340}}), minutes(0, 4)});
    EXPECT_THAT(choice.left_out, IsEmpty());
}

TEST(RowChoice, ARowThatEndsAmongTheRawSamplesHidesThem)
{
    const row_choice choice = choose_rows({{330, 400}}, {history({}), minutes(0, 6)});
    EXPECT_THAT(choice.chosen[1], ElementsAre(true, true, true, true, true, true));
    ASSERT_EQ(choice.hidden.size(), 1U);
    EXPECT_EQ(choice.hidden[0].start, 330);
    EXPECT_EQ(choice.hidden[0].end, 360);
}

// A recording begins in the midst of a minute, and of an hour: the rows of both tell nothing else.
TEST(RowChoice, NoRowHidesRawSamplesThatNothingIsOlderThan)
{
    row_source minute;
    minute.rows.push_back({301, 345});
    row_source hour;
    hour.rows.push_back({1, 345});
    const row_choice choice = choose_rows({{330, 345}}, {history({}), minute, hour});
    EXPECT_THAT(choice.chosen[1], ElementsAre(false));
    EXPECT_THAT(choice.chosen[2], ElementsAre(false));
    EXPECT_THAT(choice.hidden, IsEmpty());
}

// The recording ended and began again within a minute.
TEST(RowChoice, OnlyTheFirstRawSamplesAreHidden)
{
    const row_source rows = {{{181, 240}, {241, 270}, {271, 300}}};
    const row_choice choice = choose_rows({{200, 270}, {290, 350}}, {history({{1, 180}}), rows});
    EXPECT_THAT(choice.chosen[1], ElementsAre(true, false, false));
    ASSERT_EQ(choice.hidden.size(), 1U);
    EXPECT_EQ(choice.hidden[0].start, 200);
    EXPECT_EQ(choice.hidden[0].end, 240);
}

// Samples of a gap that was no gap when they were taken: files of the box are lost.
TEST(RowChoice, ARowWithinAGapOfTheRawSamplesIsChosen)
{
    const row_choice choice = choose_rows({{181, 240}, {330, 400}}, {history({}), minutes(2, 4)});
    EXPECT_THAT(choice.chosen[1], ElementsAre(true, false, true, false));
    EXPECT_THAT(choice.hidden, IsEmpty());
}

TEST(RowChoice, HistoryOfTheBoxIsChosenWhereItIsFiner)
{
    std::vector<row_span> rows = {{1, 120}, {121, 240}};
    for (int64_t i = 241; i < 300; i += 15) {
        rows.push_back({i, i + 14});
    }
    const std::vector<row_source> sources = {history(rows), minutes(0, 5)};
    const row_choice choice = choose_rows({{301, 400}}, sources);
    EXPECT_THAT(choice.chosen[0], ElementsAre(false, false, true, true, true, true));
    EXPECT_THAT(choice.chosen[1], ElementsAre(true, true, true, true, false));
    EXPECT_EQ(told_twice(choice, sources), 0);
    EXPECT_EQ(choice.segments.size(), 2U);
}

TEST(RowChoice, HistoryOfTheBoxIsChosenWhereTheTierHasNothing)
{
    const std::vector<row_source> sources = {history({{1, 600}, {601, 1200}, {1201, 1800}}),
                                             minutes(15, 15)};
    const row_choice choice = choose_rows({{1801, 1900}}, sources);
    EXPECT_THAT(choice.chosen[0], ElementsAre(true, false, false));
    EXPECT_EQ(told_twice(choice, sources), 0);
    ASSERT_EQ(choice.segments.size(), 2U);
    EXPECT_EQ(choice.segments[0].source, 0U);
    EXPECT_EQ(choice.segments[1].source, 1U);
}

TEST(RowChoice, TheFinerOfTwoTiersIsChosen)
{
    row_source hours;
    for (int i = 0; i < 4; ++i) {
        hours.rows.push_back({i * 3600 + 1, (i + 1) * 3600});
    }
    const std::vector<row_source> sources = {history({}), minutes(120, 100), hours};
    const row_choice choice = choose_rows({{220 * 60 + 1, 14400}}, sources);
    EXPECT_THAT(choice.chosen[2], ElementsAre(true, true, false, false));
    EXPECT_EQ(told_twice(choice, sources), 0);
}

TEST(RowChoice, NothingIsToldTwiceWhereSeamsFallAnywhere)
{
    for (int64_t begin = 200; begin < 330; ++begin) {
        std::vector<row_span> rows;
        for (int64_t i = begin - 7 * 20; i < begin; i += 20) {
            rows.push_back({i, i + 19});
        }
        const std::vector<row_source> sources = {history(rows), minutes(0, 6)};
        const row_choice choice = choose_rows({{begin, 400}}, sources);
        EXPECT_EQ(told_twice(choice, sources), 0) << begin;
    }
}

// The clock was set back: the rows overlap, and hold different samples.
TEST(RowChoice, AllRowsOfOneSourceAreChosenAlthoughTheyOverlap)
{
    row_source source = minutes(0, 5);
    const row_source again = minutes(2, 2);
    source.rows.insert(source.rows.end(), again.rows.begin(), again.rows.end());
    const row_choice choice = choose_rows({{1000, 1100}}, {history({}), source});
    EXPECT_EQ(std::count(choice.chosen[1].begin(), choice.chosen[1].end(), true), 7);
}

TEST(RowChoice, ManyPiecesAreHandedOutSourceBySource)
{
    row_source odd;
    std::vector<row_span> even;
    for (int64_t i = 0; i < 400; i += 2) {
        odd.rows.push_back({i * 60 + 1, (i + 1) * 60});
        even.push_back({(i + 1) * 60 + 1, (i + 2) * 60});
    }
    const row_choice choice = choose_rows({}, {history(even), odd});
    EXPECT_EQ(choice.segments.size(), 2U);
}

} // namespace
