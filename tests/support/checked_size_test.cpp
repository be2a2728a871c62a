// Products of sizes that a small machine cannot hold.
#include <cstdint>
#include <gtest/gtest.h>

#include "support/checked_size.hpp"

namespace
{

TEST(MultiplySizes, RefusesWhatTheSizeCannotHold)
{
    uint32_t size = 7;
    EXPECT_TRUE(multiply_sizes(&size, 65535U, 65537U));
    EXPECT_EQ(UINT32_MAX, size);
    EXPECT_FALSE(multiply_sizes(&size, 65536U, 65536U));
    EXPECT_EQ(UINT32_MAX, size);
    // What a factor has overflowed another one cannot undo.
    EXPECT_FALSE(multiply_sizes(&size, 65536U, 65536U, 0U));
}

TEST(MultiplySizes, HoldsFactorsThatAreWiderThanTheSize)
{
    uint32_t size = 0;
    EXPECT_FALSE(multiply_sizes(&size, uint64_t{1} << 32, 1U));
    EXPECT_TRUE(multiply_sizes(&size, uint64_t{1} << 31, 1U));
    EXPECT_EQ(1U << 31, size);
}

TEST(MultiplySizes, RefusesTheRowsOfAViewThatAreTurnedRoundOnASmallMachine)
{
    // 32 rows of 2^24 + 1 columns: cut to 32 bits this was some hundred bytes for 4 GB.
    uint32_t size = 0;
    EXPECT_FALSE(multiply_sizes_rounded(&size, 64U, 32U, (1U << 24) + 1, 8U));
    EXPECT_TRUE(multiply_sizes_rounded(&size, 64U, 32U, (1U << 23) - 1, 8U));
    EXPECT_EQ((1U << 31) - 256, size);
}

TEST(MultiplySizes, RoundsUpUnlessThatOverflows)
{
    uint32_t size = 0;
    EXPECT_TRUE(multiply_sizes_rounded(&size, 64U, 3U, 8U));
    EXPECT_EQ(64U, size);
    EXPECT_TRUE(multiply_sizes_rounded(&size, 64U, 16U, 8U));
    EXPECT_EQ(128U, size);
    EXPECT_FALSE(multiply_sizes_rounded(&size, 64U, UINT32_MAX, 1U));
}

} // namespace
