// Where the intervals begin that an engine lacks.
#include <gtest/gtest.h>
#include <vector>

#include "push/chain_place.hpp"

namespace
{

using namespace cli;

using chain = std::vector<chain_link>;

void expect_place(const chain_place &place, std::size_t first, int64_t known)
{
    EXPECT_EQ(place.first, first);
    EXPECT_EQ(place.known, known);
}

TEST(ChainPlace, WithoutAnyKnownAllAreNew)
{
    expect_place(find_place(chain{{0, 9}, {10, 19}}, 4, std::nullopt), 0, 0);
}

TEST(ChainPlace, InTheSameHistoryItIsThePlaceBehind)
{
    const chain links = {{0, 9}, {10, 19}, {20, 29}};
    expect_place(find_place(links, 4, known_interval{10, 19, 4, 1}), 2, 0);
    expect_place(find_place(links, 4, known_interval{20, 29, 4, 2}), 3, 0);
}

TEST(ChainPlace, AMergedIntervalEndsWhereItEnded)
{
    // [0 9] and [10 19] are one now.
    const chain links = {{0, 19}, {20, 39}, {40, 49}, {50, 59}};
    expect_place(find_place(links, 6, known_interval{30, 39, 4, 3}), 2, 0);
}

TEST(ChainPlace, OneThatGoesOnBehindTheKnownEndIsMarked)
{
    const chain links = {{0, 79}, {80, 89}};
    expect_place(find_place(links, 12, known_interval{30, 39, 4, 3}), 0, 39);
}

TEST(ChainPlace, OfEqualEndsTheOneAtTheExpectedPlaceCounts)
{
    // The clock was set back by 40 behind the fourth.
    const chain links = {{0, 19}, {20, 39}, {40, 59}, {60, 79}, {40, 49}, {50, 59}, {60, 69}};
    expect_place(find_place(links, 6, known_interval{50, 59, 6, 5}), 6, 0);
    expect_place(find_place(links, 8, known_interval{50, 59, 6, 5}), 3, 0);
}

TEST(ChainPlace, AnIntervalAcrossAStepBackIsFoundByItsEnd)
{
    // What was known began behind the step; merged with what stood before, it begins in the future.
    const chain links = {{0, 99}, {500, 29}, {30, 39}};
    expect_place(find_place(links, 6, known_interval{20, 29, 4, 3}), 2, 0);
}

TEST(ChainPlace, OfAnotherBoxNothingIsKnown)
{
    const chain links = {{1000, 1009}, {1010, 1019}};
    expect_place(find_place(links, 4, known_interval{0, 9, 4, 1}), 0, 0);
}

TEST(ChainPlace, WhereEverythingIsKnownNothingIsNew)
{
    const chain links = {{0, 9}, {10, 19}};
    expect_place(find_place(links, 6, known_interval{30, 39, 4, 3}), 2, 0);
}

TEST(ChainPlace, NumbersOfFilesAreBelievedWithCare)
{
    const chain links = {{0, 9}, {10, 19}};
    expect_place(find_place(links, 1, known_interval{10, 19, 4'000'000'000U, 4'000'000'000U}), 2,
                 0);
    expect_place(find_place(links, 4'000'000'000U, known_interval{10, 19, 0, 7}), 2, 0);
}

} // namespace
