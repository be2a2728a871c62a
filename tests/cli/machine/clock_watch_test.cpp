// Sleep, clocks that are set, and samples that come too late.
#include <gtest/gtest.h>

#include "machine/clock_watch.hpp"

namespace
{

using namespace cli;

TEST(ClockWatch, TellsNothingWhileTheClocksGoTogether)
{
    const clock_watch watch({1000, 10, 10});
    EXPECT_FALSE(watch.slept({1001, 11, 11}));
    EXPECT_FALSE(watch.was_set({1001, 11, 11}));
    // What a daemon slews in an hour.
    EXPECT_FALSE(watch.was_set({4601.8, 3610, 3610}));
}

TEST(ClockWatch, TellsThatTheMachineSlept)
{
    const clock_watch watch({1000, 10, 10});
    const auto found = watch.slept({1061, 11, 71});
    ASSERT_TRUE(found);
    EXPECT_EQ(found->from, 1000);
    EXPECT_EQ(found->to, 1061);
    EXPECT_EQ(found->seconds, 60);
    EXPECT_EQ(found->reason, "suspend");
    EXPECT_FALSE(watch.was_set({1061, 11, 71}));
}

TEST(ClockWatch, TellsThatTheClockWasSet)
{
    clock_watch watch({1000, 10, 10});
    const auto forward = watch.was_set({4601, 11, 11});
    ASSERT_TRUE(forward);
    EXPECT_EQ(forward->from, 1001);
    EXPECT_EQ(forward->to, 4601);
    EXPECT_EQ(forward->seconds, 3600);
    EXPECT_EQ(forward->reason, "clock");
    EXPECT_FALSE(watch.slept({4601, 11, 11}));
    watch.looked({4601, 11, 11});
    const auto back = watch.was_set({1003, 12, 12});
    ASSERT_TRUE(back);
    EXPECT_EQ(back->seconds, -3599);
    watch.looked({1003, 12, 12});
    EXPECT_FALSE(watch.was_set({1004, 13, 13}));
}

TEST(ClockWatch, TellsSleepAndASetClockApart)
{
    const clock_watch watch({1000, 10, 10});
    const clock_reading now = {2071, 11, 81};
    ASSERT_TRUE(watch.slept(now));
    EXPECT_EQ(watch.slept(now)->seconds, 70);
    ASSERT_TRUE(watch.was_set(now));
    EXPECT_EQ(watch.was_set(now)->seconds, 1000);
}

TEST(LateCount, IsNoneWhileSamplesComeInTime)
{
    late_count late(10);
    EXPECT_EQ(late.taken(1000, 1000), 0U);
    EXPECT_EQ(late.taken(1010, 1010), 0U);
    EXPECT_FALSE(late.due(0));
    EXPECT_FALSE(late.due(0, true));
}

TEST(LateCount, TellsOncePerMinute)
{
    late_count late(1);
    int64_t tick = 0;
    int told = 0;
    uint64_t missed = 0;
    for (double now = 0; now < 300; now += 3, tick += 3) {
        late.taken(tick, now);
        if (const auto found = late.due(now)) {
            ++told;
            missed += found->missed;
            EXPECT_EQ(found->reason, "late");
            EXPECT_EQ(found->seconds, static_cast<int64_t>(found->missed));
        }
    }
    const auto rest = late.due(300, true);
    ASSERT_TRUE(rest);
    EXPECT_EQ(told, 5);
    EXPECT_EQ(missed + rest->missed, 2 * 99U);
    EXPECT_EQ(rest->to, 297);
}

TEST(LateCount, IsNoneAcrossSleep)
{
    late_count late(1);
    late.taken(10, 10);
    late.forget();
    EXPECT_EQ(late.taken(5000, 5000), 0U);
    EXPECT_EQ(late.taken(5002, 5002), 1U);
    ASSERT_TRUE(late.due(0));
}

TEST(LateCount, BelievesNoClockThatWasSetForward)
{
    late_count late(1);
    late.taken(1000, 10);
    EXPECT_EQ(late.taken(630721000, 11), 0U);
    EXPECT_EQ(late.taken(630721001, 12), 0U);
    EXPECT_EQ(late.taken(630721100, 15), 2U);
    EXPECT_EQ(late.taken(630721102, 16.1), 1U) << "the one before came late";
}

TEST(LateCount, TakesAClockThatWasSetBackForNothing)
{
    late_count late(1);
    late.taken(5000, 5000);
    EXPECT_EQ(late.taken(10, 10), 0U);
    EXPECT_EQ(late.taken(11, 11), 0U);
}

} // namespace
