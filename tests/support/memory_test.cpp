// Allocation: the codes that it stores, and where it ends the process.
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <vesk/error.h>
#include <vesk/memory.h>

#include "common/aborts.hpp"
#include "common/failing_calls.hpp"
#include "support/memory_internal.hpp"

TEST(Memory, ComesFromTheAllocatorOfTheSystem)
{
    void *block = _qe_malloc(10);
    ASSERT_NE(nullptr, block);
    memset(block, 1, 10);
    free(block);

    auto *zeroed = static_cast<char *>(_qe_calloc(3, 4));
    ASSERT_NE(nullptr, zeroed);
    for (int i = 0; i < 12; ++i) {
        EXPECT_EQ(0, zeroed[i]);
    }
    free(zeroed);

    char *copy = _qe_strdup("fan speed");
    EXPECT_STREQ("fan speed", copy);
    free(copy);
}

TEST(Memory, IsFreedByTheAllocatorOfTheSystem)
{
    const long blocks = count_live_blocks();
    void *block = malloc(10);
    EXPECT_EQ(blocks + 1, count_live_blocks());
    _qe_free(block);
    EXPECT_EQ(blocks, count_live_blocks());
    _qe_free(nullptr);
    EXPECT_EQ(blocks, count_live_blocks());
}

TEST(Memory, LeavesTheLastErrorAloneWhenThereIsNone)
{
    qe_set_last_error(-6);
    const failing_allocation none(1, failing_allocation::for_ever);
    EXPECT_EQ(nullptr, _qe_malloc(10));
    EXPECT_EQ(nullptr, _qe_calloc(1, 10));
    EXPECT_EQ(nullptr, _qe_strdup("fan"));
    EXPECT_EQ(-6, qe_get_last_error());
}

TEST(Heapify, CopiesTheBytesOfAnObject)
{
    const int numbers[] = {1, 2, 3};
    auto *copy = static_cast<int *>(qe_heapify(numbers, sizeof numbers));
    EXPECT_NE(numbers, copy);
    EXPECT_EQ(0, memcmp(numbers, copy, sizeof numbers));
    free(copy);
}

TEST(Heapify, OfNothingIsWhatAnEmptyAllocationIs)
{
    void *copy = qe_heapify("", 0);
    EXPECT_NE(nullptr, copy);
    free(copy);
}

TEST(Heapify, RefusesNull)
{
    EXPECT_ABORTS(qe_heapify(nullptr, 4), "p != ((void *)0)");
}

TEST(Heapify, AbortsWithoutMemory)
{
    EXPECT_ABORTS(
        {
            const failing_allocation first(1);
            qe_heapify("text", 4);
        },
        "copy != ((void *)0)");
}

// The level is read once in a process, so every test has a process of its own.
TEST(MemoryLevel, ComesFromTheEnvironment)
{
    EXPECT_EXIT(
        {
            setenv("QE_MEM_LEVEL", "7 of 9", 1);
            _exit(_qe_get_mem_level());
        },
        testing::ExitedWithCode(7), "");
}

TEST(MemoryLevel, IsZeroWhenNotSet)
{
    EXPECT_EXIT(
        {
            unsetenv("QE_MEM_LEVEL");
            _exit(_qe_get_mem_level());
        },
        testing::ExitedWithCode(0), "");
}

TEST(MemoryLevel, IsReadOnce)
{
    EXPECT_EXIT(
        {
            unsetenv("QE_MEM_LEVEL");
            _qe_get_mem_level();
            setenv("QE_MEM_LEVEL", "7", 1);
            _exit(_qe_get_mem_level());
        },
        testing::ExitedWithCode(0), "");
}
