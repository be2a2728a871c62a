// The store from which zlib takes its memory again instead of asking the system.
#include <gtest/gtest.h>
#include <string.h>

#include "common/failing_calls.hpp"
#include "io/zlib_memory.hpp"

TEST(ZlibMemory, HandsOutAgainWhatWasGivenBack)
{
    zlib_memory memory = {};
    void *large = zlib_memory_take(&memory, 100, 8);
    void *small = zlib_memory_take(&memory, 10, 8);
    ASSERT_NE(nullptr, large);
    ASSERT_NE(nullptr, small);
    zlib_memory_give_back(&memory, small);
    zlib_memory_give_back(&memory, large);
    EXPECT_EQ(large, zlib_memory_take(&memory, 100, 8));
    EXPECT_EQ(small, zlib_memory_take(&memory, 10, 8));
    zlib_memory_release(&memory);
}

TEST(ZlibMemory, HandsOutOnlyBlocksThatAreLargeEnough)
{
    zlib_memory memory = {};
    void *small = zlib_memory_take(&memory, 10, 8);
    zlib_memory_give_back(&memory, small);
    void *large = zlib_memory_take(&memory, 11, 8);
    EXPECT_NE(small, large);
    memset(large, 1, 88);
    zlib_memory_release(&memory);
}

TEST(ZlibMemory, GoesOnWhenItHasNoPlaceLeft)
{
    constexpr int more_than_kept = 12;
    zlib_memory memory = {};
    void *blocks[more_than_kept];
    for (void *&block : blocks) {
        block = zlib_memory_take(&memory, 1, 100);
        ASSERT_NE(nullptr, block);
        memset(block, 1, 100);
    }
    // What is not kept is freed at once, the rest by the release.
    for (void *block : blocks) {
        zlib_memory_give_back(&memory, block);
    }
    zlib_memory_release(&memory);
}

TEST(ZlibMemory, TriesAgainAfterAFailure)
{
    zlib_memory memory = {};
    {
        const failing_allocation failing(1);
        EXPECT_EQ(nullptr, zlib_memory_take(&memory, 1, 100));
    }
    EXPECT_NE(nullptr, zlib_memory_take(&memory, 1, 100));
    zlib_memory_release(&memory);
}
