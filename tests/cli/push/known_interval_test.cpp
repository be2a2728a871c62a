// Which of two pushed intervals is the later one.
#include <gtest/gtest.h>

#include "push/known_interval.hpp"

namespace
{

using namespace cli;

TEST(KnownInterval, IsBehindTheOnesBeforeItInItsHistory)
{
    const known_interval first{10, 19, 4, 1};
    const known_interval second{20, 29, 4, 2};
    EXPECT_TRUE(second.is_behind(first));
    EXPECT_FALSE(first.is_behind(second));
    EXPECT_FALSE(first.is_behind(first));
}

TEST(KnownInterval, OfALaterHistoryIsBehindWhateverTheClockSaid)
{
    const known_interval before{100, 190, 4, 9};
    const known_interval after{10, 19, 6, 0};
    EXPECT_TRUE(after.is_behind(before));
    EXPECT_FALSE(before.is_behind(after));
}

} // namespace
