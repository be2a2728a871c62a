// How unusual the newest values of a sensor are, in all the ways a past can look.
#include <cmath>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <vector>

#include "analysis/unusual_score.hpp"
#include "analysis/unusual_text.hpp"
#include "cli/usual_values.hpp"

namespace
{

using namespace cli;
using ::testing::HasSubstr;

constexpr float endless = std::numeric_limits<float>::infinity();

// The values of a sensor by the number of the minute: history up to some minute, then raw samples.
class Score : public ::testing::Test
{
protected:
    using wave = std::function<float(int)>;

    static constexpr int length = 400;
    static constexpr int history = 240; // the first minutes are in intervals of ten

    // Between 0 and 10, in each ten minutes.
    static float usual(int minute) { return static_cast<float>((minute * 7) % 11); }
    static float quiet(int minute) { return minute < length - 3 ? usual(minute) : 5; }

    finding judge(const wave &values, int64_t step = 60, int64_t last = 0)
    {
        plan = plan_of(static_cast<uint64_t>(length - history), step, last, 1);
        sensor_track track(plan);
        for (int begin = 0; begin < history; begin += 10) {
            value_span interval;
            for (int i = begin; i < begin + 10; ++i) {
                if (!std::isnan(values(i))) {
                    interval.add(values(i));
                }
            }
            track.add_interval(interval, begin * step, (begin + 9) * step);
        }
        for (int i = history; i < length; ++i) {
            track.add_sample(values(i), i * step);
        }
        track.finish();
        return track.judge(true);
    }

    // The usual values, and others from so many minutes before the end on.
    finding judge_end(int minutes, const wave &values)
    {
        return judge([&](int i) { return i < length - minutes ? usual(i) : values(i); });
    }

    cell_plan plan;
};

TEST_F(Score, IsThatOfTheFormula)
{
    // Between 0 and 1 in turns, so that all intervals have a swing of 1 and the median is 0.5; then
    // 5 for the last three minutes.
    const finding found =
        judge([](int i) { return i < length - 3 ? static_cast<float>(i % 2) : 5.0F; });
    EXPECT_EQ(found.kind, verdict::judged);
    // 24 intervals of history, and 100 raw samples before the last 60.
    EXPECT_EQ(found.intervals, 34U);
    EXPECT_DOUBLE_EQ(found.usual_swing, 1);
    const double distance = 4.5 / std::sqrt(5.0);
    const double rarity = -std::log10(0.5 / 34);
    EXPECT_NEAR(found.score, std::log10(distance + 0.0001) + 0.2 * rarity, 1e-12);
    EXPECT_DOUBLE_EQ(found.from, 0.5);
    EXPECT_DOUBLE_EQ(found.to, 5);
    EXPECT_EQ(found.within, 5U) << "the shortest length with the greatest distance";
    EXPECT_DOUBLE_EQ(found.reached, 0);
    EXPECT_DOUBLE_EQ(found.factor(), 4.5);
}

TEST_F(Score, OfUsualValuesIsLow)
{
    EXPECT_LT(judge(usual).score, perhaps_from);
    EXPECT_EQ(level_of(judge(usual)), "nothing unusual");
}

TEST_F(Score, OfAJumpIsHighUpwardsAndDownwards)
{
    const finding up = judge_end(10, [](int i) { return 100 + usual(i); });
    const finding down = judge_end(10, [](int i) { return -100 - usual(i); });
    EXPECT_GT(up.score, unusual_from);
    EXPECT_GT(down.score, unusual_from);
    EXPECT_GT(up.to, up.from);
    EXPECT_LT(down.to, down.from);
    EXPECT_EQ(level_of(up), "unusual");
}

TEST_F(Score, IsHigherForWhatThePastNeverReached)
{
    const auto burst = [](int i) { return i >= length - 10 ? 100 + usual(i) : usual(i); };
    const finding first = judge(burst);
    const finding again = judge([&](int i) { return i >= 50 && i < 60 ? 150.0F : burst(i); });
    EXPECT_DOUBLE_EQ(first.reached, 0);
    EXPECT_NEAR(again.reached, 1.0 / 34, 1e-12);
    EXPECT_GT(first.score, again.score);
}

TEST_F(Score, DoesNotChangeWithTheUnitOfAValueOrWithALargeOffset)
{
    const auto values = [](int i) { return i < length - 5 ? usual(i) : 40.0F; };
    const double score = judge(values).score;
    EXPECT_NEAR(judge([&](int i) { return 1024 * values(i); }).score, score, 1e-9);
    // Half of the digits of a single are taken by the offset; sums of squares would be lost.
    EXPECT_NEAR(judge([&](int i) { return 8388608 + values(i); }).score, score, 1e-9);
}

TEST_F(Score, OfASensorThatNeverMovedIsNone)
{
    const finding found = judge([](int) { return 7.0F; });
    EXPECT_EQ(found.kind, verdict::never_moved);
    EXPECT_TRUE(is_more_unusual(judge(usual), found));
    EXPECT_FALSE(is_more_unusual(found, judge(usual)));
    EXPECT_EQ(sentence_of(found, "::a", 60), "::a has never moved from 7");
}

TEST_F(Score, OfTheFirstMoveIsAmongTheHighest)
{
    const finding found = judge([](int i) { return i < length - 2 ? 7.0F : 7.5F; });
    EXPECT_TRUE(found.first_move);
    EXPECT_GT(found.score, 1.5);
    EXPECT_EQ(sentence_of(found, "::a", 60),
              "::a rose from 7 to 7.5 within the last 5 samples, it had never moved before");
}

TEST_F(Score, OfASensorThatWentAwayIsPerhaps)
{
    const finding found = judge_end(60, [](int) { return missing; });
    EXPECT_EQ(found.kind, verdict::missing);
    EXPECT_DOUBLE_EQ(found.score, 0);
    EXPECT_EQ(judge_end(59, [](int) { return missing; }).kind, verdict::judged);
    EXPECT_EQ(sentence_of(found, "::a", 60),
              "::a has no value within the last 60 samples, and had values before");
}

TEST_F(Score, OfANewSensorIsPerhaps)
{
    const finding found = judge([](int i) { return i < length - 60 ? missing : usual(i); });
    EXPECT_EQ(found.kind, verdict::appeared);
    EXPECT_DOUBLE_EQ(found.score, 0);
    EXPECT_EQ(level_of(found), "perhaps");
    EXPECT_EQ(sentence_of(found, "::a", 60),
              "::a is new within the last 60 samples: it has no past to compare with");
}

TEST_F(Score, OfASensorWithoutValuesIsNone)
{
    EXPECT_EQ(judge([](int) { return missing; }).kind, verdict::not_judged);
    EXPECT_EQ(judge([](int) { return endless; }).kind, verdict::not_judged);
}

TEST_F(Score, SkipsMissingReadingsAndInfinities)
{
    const auto gappy = [](float gap) {
        return [gap](int i) {
            return i % 3 == 0 && i >= history ? gap : i < length - 4 ? usual(i) : 90.0F;
        };
    };
    const finding found = judge(gappy(missing));
    EXPECT_TRUE(std::isfinite(found.score));
    EXPECT_GT(found.score, unusual_from);
    EXPECT_DOUBLE_EQ(judge(gappy(endless)).score, found.score);
    EXPECT_DOUBLE_EQ(judge(gappy(-endless)).score, found.score);
}

TEST_F(Score, OfAShortPastIsMarked)
{
    const finding found = judge([](int i) {
        return i < length - 130 ? missing : i < length - 5 ? usual(i) : 100.0F;
    });
    EXPECT_EQ(found.kind, verdict::judged);
    EXPECT_EQ(found.intervals, 7U);
    EXPECT_TRUE(found.few_intervals);
    EXPECT_THAT(sentence_of(found, "::a", 60), HasSubstr(" (only 7 past intervals)"));
    EXPECT_FALSE(judge(usual).few_intervals);
}

TEST_F(Score, OfASensorThatGotStuckIsPerhaps)
{
    const finding found = judge_end(45, [](int) { return 5.0F; });
    EXPECT_EQ(found.kind, verdict::stuck);
    EXPECT_EQ(found.unchanged, 45U);
    EXPECT_GE(found.score, perhaps_from);
    EXPECT_EQ(sentence_of(found, "::a", 60), "::a has not changed for 45 samples, at 5");
}

TEST_F(Score, CountsARunThatBeganInHistory)
{
    // Intervals of the run are no older ones, so they do not count as rest.
    const finding found = judge([](int i) { return i < 220 ? usual(i) : 5.0F; });
    EXPECT_EQ(found.kind, verdict::stuck);
    EXPECT_EQ(found.unchanged, 180U);
}

TEST_F(Score, OfARestThatIsShortOrUsualOrHasLittlePastIsNotStuck)
{
    EXPECT_EQ(judge_end(29, [](int) { return 5.5F; }).kind, verdict::judged);
    // It rests for ten minutes in each hundred.
    EXPECT_EQ(judge([](int i) { return i % 100 < 10 || i >= length - 45 ? 5.0F : usual(i); }).kind,
              verdict::judged);
    EXPECT_EQ(judge([](int i) {
                  return i < 170 ? missing : i < length - 45 ? usual(i) : 5.0F;
              }).kind,
              verdict::judged);
}

TEST_F(Score, OfACounterIsThatOfItsRate)
{
    // About 60 in a minute, then 6000.
    const auto counter = [](int i) {
        const int steady = 60 * i + 3 * ((i * i) % 7);
        return static_cast<float>(i < length - 5 ? steady : steady + 6000 * (i - length + 6));
    };
    const finding found = judge(counter);
    EXPECT_TRUE(found.is_rate);
    EXPECT_GT(found.score, unusual_from);
    EXPECT_NEAR(found.from, 1, 0.1);
    EXPECT_NEAR(found.to, 101, 0.1);
    EXPECT_THAT(sentence_of(found, "::a", 60), HasSubstr("::a's rate in a second rose from "));
    // The counter itself is always higher than ever before.
    EXPECT_LT(judge([](int i) { return static_cast<float>(60 * i + 3 * ((i * i) % 7)); }).score,
              perhaps_from);
}

TEST_F(Score, DoesNotTakeAValueThatGoesUpAndDownForACounter)
{
    // Each ten of them begin with the least value and end with the greatest one.
    EXPECT_FALSE(judge([](int i) { return static_cast<float>(i % 2); }).is_rate);
    EXPECT_FALSE(judge([](int i) { return static_cast<float>(i % 10); }).is_rate);
}

TEST_F(Score, LeavesOutTheResetOfACounter)
{
    const finding found = judge([](int i) {
        const int begin = i < length - 30 ? 0 : length - 30;
        return static_cast<float>(60 * (i - begin) + 3 * ((i * i) % 7));
    });
    EXPECT_TRUE(found.is_rate);
    EXPECT_LT(found.score, perhaps_from);
}

TEST_F(Score, LooksAtTheSameSharesOfOtherRates)
{
    // 160 samples are about as many as those once a minute.
    const auto values = [](int i) { return i < length - 5 ? usual(i) : 40.0F; };
    EXPECT_DOUBLE_EQ(judge(values, 1).score, judge(values, 60).score);
    EXPECT_EQ(plan_of(7200, 1, 0, 1).unit, 40U);
    EXPECT_EQ(plan_of(7200, 60, 0, 1).unit, 1U);
    EXPECT_EQ(plan_of(7200, 0, 0, 1).unit, 1U);
    const cell_plan odd = plan_of(7210, 1, 0, 1);
    EXPECT_EQ(odd.first, 7210 % odd.unit) << "the newest cell is complete";
}

TEST_F(Score, OfMoreSamplesInACellFindsTheSameIncident)
{
    plan = plan_of(7200, 1, 0, 1);
    sensor_track track(plan);
    for (int i = 0; i < 7200; ++i) {
        track.add_sample(i < 7100 ? usual(i) : 100.0F, i);
    }
    track.finish();
    const finding found = track.judge(true);
    EXPECT_GT(found.score, unusual_from);
    EXPECT_EQ(found.within, 200U);
    EXPECT_DOUBLE_EQ(found.from, 5);
    EXPECT_EQ(found.intervals, 12U);
}

TEST_F(Score, ComparesAsMuchAsIsAskedFor)
{
    EXPECT_EQ(plan_of(200, 60, 600, 1).newest, 10U);
    EXPECT_EQ(plan_of(200, 60, 600, 1).unit, 1U);
    EXPECT_EQ(plan_of(7200, 1, 600, 1).newest, 60U);
    EXPECT_EQ(plan_of(7200, 1, 600, 1).unit, 10U);
    EXPECT_EQ(plan_of(200, 60, 1, 1).newest, 1U);
    const finding found = judge(quiet, 60, 600);
    EXPECT_EQ(found.intervals, 39U) << "what is older than the last ten samples is past";
}

TEST_F(Score, LeavesOutLengthsAboveHalfOfTheSamples)
{
    plan = plan_of(100, 60, 0, 1);
    sensor_track track(plan);
    for (int i = 0; i < 100; ++i) {
        // Only the length of 60 would see it.
        track.add_sample(i == 45 ? 100.0F : usual(i), 60 * i);
    }
    track.finish();
    EXPECT_LE(track.judge(true).within, 20U);
    plan = plan_of(8, 60, 0, 1);
    sensor_track tiny(plan);
    tiny.add_interval({0, 1, 0, 1, 10}, 0, 9);
    for (int i = 0; i < 8; ++i) {
        tiny.add_sample(usual(i), 60 * i);
    }
    tiny.finish();
    EXPECT_EQ(tiny.judge(true).kind, verdict::not_judged);
}

TEST_F(Score, OfABoxWithoutAnyPastIsNone)
{
    plan = plan_of(50, 60, 0, 1);
    sensor_track track(plan);
    for (int i = 0; i < 50; ++i) {
        track.add_sample(usual(i), 60 * i);
    }
    track.finish();
    EXPECT_FALSE(track.has_past());
    EXPECT_EQ(track.judge(false).kind, verdict::not_judged);
}

TEST_F(Score, OfHistoryWithoutRawSamplesIsNone)
{
    plan = plan_of(0, 0, 0, 1);
    sensor_track track(plan);
    track.add_interval({0, 1, 0, 1, 10}, 0, 9);
    track.finish();
    EXPECT_EQ(track.judge(true).kind, verdict::not_judged);
}

TEST_F(Score, CutsThePastSoThatItsNewestIntervalIsWhole)
{
    plan = plan_of(83, 60, 0, 1);
    value_track track(plan);
    for (int i = 0; i < 83; ++i) {
        track.add_sample(static_cast<float>(i));
    }
    track.finish();
    ASSERT_EQ(track.past().size(), 3U);
    EXPECT_EQ(track.past()[0].count, 3U);
    EXPECT_EQ(track.past()[2].count, 10U);
    EXPECT_FLOAT_EQ(track.past()[2].greatest, 22);
}

TEST_F(Score, KeepsABoundedPast)
{
    plan = plan_of(200, 60, 0, 1'000'000);
    EXPECT_EQ(plan.most_intervals, 64U);
    value_track track(plan);
    for (int i = 0; i < 100000; ++i) {
        const auto value = static_cast<float>(i);
        track.add_interval({value, value + 1, value, value + 1, 10});
    }
    EXPECT_LE(track.past().size(), 64U);
    EXPECT_FLOAT_EQ(track.past().front().least, 0);
    EXPECT_FLOAT_EQ(track.past().back().greatest, 100000);
    EXPECT_FLOAT_EQ(track.all().greatest, 100000);
}

TEST_F(Score, OfExtremeNumbersIsFinite)
{
    constexpr float huge = std::numeric_limits<float>::max();
    const finding found =
        judge([](int i) { return i < length - 3 ? usual(i) * (huge / 20) : -huge; });
    EXPECT_TRUE(std::isfinite(found.score));
    EXPECT_TRUE(std::isfinite(found.factor()));
    constexpr float tiny = std::numeric_limits<float>::denorm_min();
    EXPECT_TRUE(std::isfinite(judge([](int i) { return i < length - 3 ? 0 : tiny; }).score));
}

TEST(Sentence, IsInTheWordsOfAMonitor)
{
    finding found;
    found.kind = verdict::judged;
    found.from = 16.7;
    found.to = 79.5;
    found.within = 60;
    found.usual_swing = 20.3;
    found.reached = 0.007;
    found.intervals = 40;
    EXPECT_EQ(sentence_of(found, "::cpu.busy_percent", 60),
              "::cpu.busy_percent rose from 16.7 to 79.5 within the last 60 samples, 3.1 times its "
              "usual swing (20.3); 0.7 % of past intervals reached that far");
    found.reached = 0;
    found.from = 1000000;
    found.to = 1000001;
    EXPECT_THAT(sentence_of(found, "::a", 60), HasSubstr("rose from 1000000 to 1000001"));
    EXPECT_THAT(sentence_of(found, "::a", 60), HasSubstr("; no past interval reached that far"));
}

TEST(Sentence, HasTheUnitsOfTheSensorWherePeopleReadIt)
{
    finding found;
    found.kind = verdict::judged;
    found.from = 0;
    found.to = 8e10;
    found.within = 60;
    found.usual_swing = 3 * 1024 * 1024;
    found.reached = 0.007;
    found.intervals = 40;
    const auto sentence = [&](const char *sensor) {
        return sentence_of(found, sensor, 60, amounts::with_units);
    };
    EXPECT_THAT(sentence("::a_bytes"), HasSubstr("rose from 0 B to 74.5 GiB within"));
    EXPECT_THAT(sentence("::a_bytes"), HasSubstr("usual swing (3 MiB); 0.7 %"));
    found.is_rate = true;
    EXPECT_THAT(sentence("::a_bytes"), HasSubstr("rate in a second rose from 0 B/s to 80 GB/s"));
    EXPECT_THAT(sentence("::a"), HasSubstr("rose from 0 /s to 8e+10 /s"));
    found.is_rate = false;
    found.from = 41.25;
    found.to = 41.5;
    EXPECT_THAT(sentence("::cpu_C"), HasSubstr("rose from 41.25 C to 41.5 C"));
    EXPECT_THAT(sentence("::cpu"), HasSubstr("rose from 41.25 to 41.5 within"));
    found.kind = verdict::stuck;
    found.value = 2048;
    found.unchanged = 40;
    EXPECT_THAT(sentence("::a_bytes"), HasSubstr("not changed for 40 samples, at 2 KiB"));
}

} // namespace
