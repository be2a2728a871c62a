// Comparisons of single precision: the tolerance, infinities, NaN.
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>

#include <vesk/float_util.h>

#include "common/aborts.hpp"

static constexpr float epsilon = 1E-6F;
static constexpr float float_infinity = std::numeric_limits<float>::infinity();
static constexpr float float_nan = std::numeric_limits<float>::quiet_NaN();

TEST(FloatUtil, HasAToleranceOfExactBits)
{
    EXPECT_EQ(0x3EB0C6F7A0000000U, std::bit_cast<uint64_t>(float_epsilon()));
    EXPECT_EQ(0x358637BDU, std::bit_cast<uint32_t>(epsilon));
}

TEST(FloatUtil, ComparesWithAnAbsoluteTolerance)
{
    EXPECT_EQ(0, float_compare(1.0F, 1.0000005F));
    EXPECT_EQ(-1, float_compare(1.0F, 1.000002F));
    EXPECT_EQ(1, float_compare(1.000002F, 1.0F));
    EXPECT_EQ(-1, float_compare(0.000001F, 0.0000025F));
    EXPECT_EQ(0, float_compare(-0.0F, 0.0F));
}

TEST(FloatUtil, CountsTheToleranceItselfAsEqual)
{
    const float above = std::nextafter(epsilon, 1.0F);
    EXPECT_EQ(0, float_compare(epsilon, 0.0F));
    EXPECT_EQ(0, float_compare(0.0F, epsilon));
    EXPECT_EQ(1, float_compare(above, 0.0F));
    EXPECT_EQ(-1, float_compare(0.0F, above));
}

TEST(FloatUtil, TakesTheDifferenceInSinglePrecision)
{
    // The exact difference is above the tolerance, but rounds to it.
    const float a = epsilon;
    const float b = -1E-14F;
    ASSERT_GT(static_cast<double>(a) - static_cast<double>(b), float_epsilon());
    EXPECT_EQ(0, float_compare(a, b));
    EXPECT_EQ(0, float_compare(b, a));
}

TEST(FloatUtil, SortsNanBelowEveryNumber)
{
    EXPECT_EQ(-1, float_compare(float_nan, 5.0F));
    EXPECT_EQ(1, float_compare(5.0F, float_nan));
    EXPECT_EQ(-1, float_compare(float_nan, -float_infinity));
    EXPECT_EQ(1, float_compare(-float_infinity, float_nan));
    EXPECT_EQ(0, float_compare(float_nan, -float_nan));
}

TEST(FloatUtil, ComparesInfinitiesOnlyWithOtherNumbers)
{
    EXPECT_EQ(1, float_compare(float_infinity, -float_infinity));
    EXPECT_EQ(-1, float_compare(5.0F, float_infinity));
    EXPECT_ABORTS(float_compare(float_infinity, float_infinity), "fabs (c) <= ((float) 1E-6)");
    EXPECT_ABORTS(float_compare(-float_infinity, -float_infinity), "fabs (c) <= ((float) 1E-6)");
    EXPECT_ABORTS(float_is_equal(float_infinity, float_infinity), "fabs (c) <= ((float) 1E-6)");
}

TEST(FloatUtil, IsEqualWhereCompareFindsNoDifference)
{
    EXPECT_EQ(1, float_is_equal(1.0F, 1.0000005F));
    EXPECT_EQ(0, float_is_equal(1.0F, 1.000002F));
    EXPECT_EQ(0, float_is_equal(1.000002F, 1.0F));
    EXPECT_EQ(1, float_is_equal(float_nan, float_nan));
}
