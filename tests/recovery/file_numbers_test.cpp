// The numbers of files: far from those that are taken, and not beyond the end of the 32 bits.
#include <gtest/gtest.h>
#include <initializer_list>

#include "recovery/file_numbers.hpp"

namespace
{

constexpr uint64_t end = uint64_t(1) << 32;

uint32_t find_free(std::initializer_list<uint32_t> taken, uint64_t start, uint64_t room)
{
    number_list list;
    for (const uint32_t number : taken) {
        EXPECT_TRUE(list.append(number));
    }
    return _vesk_find_free_numbers(&list, start, room);
}

uint32_t find_next(std::initializer_list<uint32_t> taken, uint64_t start)
{
    number_list list;
    for (const uint32_t number : taken) {
        EXPECT_TRUE(list.append(number));
    }
    return _vesk_find_next_number(&list, start);
}

TEST(FileNumbers, AStoredNumberIsBelievedWhenItIsNotFarAboveTheHighestFile)
{
    EXPECT_TRUE(_vesk_is_believable_number(6, 5));
    EXPECT_TRUE(_vesk_is_believable_number(5 + most_skipped_numbers, 5));
    EXPECT_FALSE(_vesk_is_believable_number(5 + 2 * most_skipped_numbers, 5));
    EXPECT_FALSE(_vesk_is_believable_number(UINT32_MAX, 5));
}

TEST(FileNumbers, FindsTheFirstGapWithRoom)
{
    EXPECT_EQ(1U, find_free({}, 1, 10));
    EXPECT_EQ(1U, find_free({11}, 1, 10));
    EXPECT_EQ(11U, find_free({10}, 1, 10));
    EXPECT_EQ(31U, find_free({30, 10, 20}, 1, 10)); // in whatever order they come
    EXPECT_EQ(12U, find_free({5, 11, 22}, 7, 10));
}

TEST(FileNumbers, FindsNoneBehindTheEndOfTheNumbers)
{
    EXPECT_EQ(0U, find_free({}, end, 1));
    EXPECT_EQ(0U, find_free({UINT32_MAX - 3}, UINT32_MAX - 5, 10));
}

TEST(FileNumbers, TheNextNumberIsTheFirstUnlessAFileStandsInItsWay)
{
    EXPECT_EQ(6U, find_next({}, 6));
    EXPECT_LT(6U, find_next({6}, 6));
    EXPECT_LT(7U, find_next({7}, 6));
}

TEST(FileNumbers, NearTheEndThereIsNoNextNumber)
{
    EXPECT_EQ(0U, find_next({}, end));
    EXPECT_EQ(0U, find_next({}, end - 1));
}

} // namespace
