// How long is waited before another attempt.
#include <gtest/gtest.h>
#include <vector>

#include "push/retries.hpp"

namespace
{

using namespace cli;

TEST(Retries, PausesGrowUpToALimit)
{
    retries pace(100'000, 1);
    double wanted = retries::shortest;
    for (int i = 0; i < 20; ++i) {
        const std::optional<double> pause = pace.failed(i);
        ASSERT_TRUE(pause);
        EXPECT_GE(*pause, wanted / 2);
        EXPECT_LE(*pause, wanted);
        wanted = std::min(2 * wanted, retries::longest);
    }
}

TEST(Retries, ASuccessBeginsAnew)
{
    retries pace(10, 1);
    (void)pace.failed(0);
    (void)pace.failed(5);
    pace.succeeded();
    const std::optional<double> pause = pace.failed(1000);
    ASSERT_TRUE(pause);
    EXPECT_LE(*pause, retries::shortest);
}

TEST(Retries, TheLastPauseEndsWithThePatience)
{
    retries pace(10, 1);
    (void)pace.failed(0);
    const std::optional<double> last = pace.failed(9.99);
    ASSERT_TRUE(last);
    EXPECT_NEAR(*last, 0.01, 1e-9);
    EXPECT_EQ(pace.failed(10), std::nullopt);
}

TEST(Retries, WithoutPatienceThereIsOneAttempt)
{
    retries pace(0, 1);
    EXPECT_EQ(pace.failed(5), std::nullopt);
}

TEST(Retries, TwoMachinesDoNotWaitAlike)
{
    std::vector<double> pauses;
    for (const uint32_t seed : {1U, 2U, 3U}) {
        pauses.push_back(*retries(10, seed * 7919).failed(0));
    }
    EXPECT_NE(pauses[0], pauses[1]);
    EXPECT_NE(pauses[1], pauses[2]);
}

} // namespace
