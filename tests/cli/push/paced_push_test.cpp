// When a box is pushed beside a recording, and what is told of it.
#include <gtest/gtest.h>
#include <time.h>

#include "push/paced_push.hpp"

namespace
{

using namespace cli;

// Looks until a push that has begun has ended, at the time @p now.
void let_end(paced_push &push, double now)
{
    constexpr timespec moment = {0, 2'000'000};
    for (int looks = 0; looks < 10'000; ++looks) {
        push.look(now);
        if (push.seconds_to_look(now) > 1) {
            return;
        }
        nanosleep(&moment, nullptr);
    }
    FAIL() << "the push does not end";
}

// Begins the next push, lets it end, and returns the time until the one behind it.
double push_once(paced_push &push, double &now)
{
    push.look(now);
    now += push.seconds_to_look(now);
    let_end(push, now);
    return push.seconds_to_look(now);
}

TEST(PacedPush, BeginsWithinOnePeriodAndGoesOnInPeriods)
{
    paced_push push("true", 600, 7);
    double now = 1000;
    push.look(now);
    EXPECT_LE(push.seconds_to_look(now), 600);
    for (int i = 0; i < 3; ++i) {
        const double pause = push_once(push, now);
        EXPECT_GE(pause, 540);
        EXPECT_LE(pause, 660);
        EXPECT_EQ(push.take_notice(), std::nullopt);
    }
}

TEST(PacedPush, FailuresMakeItRarerAndAreToldOnce)
{
    paced_push push("echo 'no way'; exit 1", 600, 8);
    double now = 1000;
    double least = 1080;
    for (int i = 0; i < 5; ++i) {
        EXPECT_GE(push_once(push, now), least);
        least = std::min(2 * least, 4320.0);
        const std::optional<std::string> notice = push.take_notice();
        EXPECT_EQ(notice.has_value(), i == 0);
        if (notice) {
            EXPECT_NE(notice->find("no way"), std::string::npos);
        }
    }
}

TEST(PacedPush, ASuccessAfterFailuresIsTold)
{
    // The first one makes the file that the second one finds.
    char pattern[] = "/tmp/vesk-paced-XXXXXX";
    const std::string folder = mkdtemp(pattern);
    paced_push push("[ -e " + folder + "/x ] || { touch " + folder + "/x; exit 1; }", 600, 9);
    double now = 1000;
    (void)push_once(push, now);
    EXPECT_TRUE(push.take_notice());
    EXPECT_LE(push_once(push, now), 660);
    EXPECT_EQ(push.take_notice(), "pushes succeed again");
    EXPECT_EQ(unlink((folder + "/x").c_str()) + rmdir(folder.c_str()), 0);
}

TEST(PacedPush, WhatItSaysIsShortAndPrintable)
{
    paced_push push("head -c 300000 /dev/zero | tr '\\0' '\\033'; exit 1", 600, 10);
    double now = 1000;
    (void)push_once(push, now);
    const std::optional<std::string> notice = push.take_notice();
    ASSERT_TRUE(notice);
    EXPECT_LT(notice->size(), 600U);
    EXPECT_EQ(notice->find('\x1b'), std::string::npos);
}

} // namespace
