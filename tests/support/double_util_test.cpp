// Comparisons of double precision: the tolerance, infinities, NaN.
#include <bit>
#include <cmath>
#include <cstdint>
#include <gtest/gtest.h>
#include <limits>

#include <vesk/double_util.h>

static constexpr double infinity = std::numeric_limits<double>::infinity();
static constexpr double nan_value = std::numeric_limits<double>::quiet_NaN();

TEST(DoubleUtil, HasConstantsOfExactBits)
{
    EXPECT_EQ(0x3EB0C6F7A0B5ED8DU, std::bit_cast<uint64_t>(double_epsilon()));
    EXPECT_EQ(0xFFEFFFFFFFFFFFFFU, std::bit_cast<uint64_t>(double_min()));
    EXPECT_EQ(0x7FEFFFFFFFFFFFFFU, std::bit_cast<uint64_t>(double_max()));
}

TEST(DoubleUtil, ComparesWithAnAbsoluteTolerance)
{
    EXPECT_EQ(0, double_compare(1.0, 1.0000005));
    EXPECT_EQ(-1, double_compare(1.0, 1.000002));
    EXPECT_EQ(1, double_compare(1.000002, 1.0));
    EXPECT_EQ(0, double_compare(1000000.0, 1000000.0000005));
    EXPECT_EQ(-1, double_compare(0.000001, 0.0000025));
    EXPECT_EQ(0, double_compare(-0.0, 0.0));
}

TEST(DoubleUtil, CountsTheToleranceItselfAsEqual)
{
    const double above = std::nextafter(double_epsilon(), 1.0);
    EXPECT_EQ(0, double_compare(double_epsilon(), 0.0));
    EXPECT_EQ(0, double_compare(0.0, double_epsilon()));
    EXPECT_EQ(1, double_compare(above, 0.0));
    EXPECT_EQ(-1, double_compare(0.0, above));
}

TEST(DoubleUtil, SortsNanBelowEveryNumber)
{
    EXPECT_EQ(-1, double_compare(nan_value, 5.0));
    EXPECT_EQ(1, double_compare(5.0, nan_value));
    EXPECT_EQ(-1, double_compare(nan_value, -infinity));
    EXPECT_EQ(1, double_compare(-infinity, nan_value));
    EXPECT_EQ(0, double_compare(nan_value, -nan_value));
}

TEST(DoubleUtil, FindsEqualInfinitiesEqual)
{
    EXPECT_EQ(0, double_compare(infinity, infinity));
    EXPECT_EQ(0, double_compare(-infinity, -infinity));
    EXPECT_EQ(1, double_compare(infinity, -infinity));
    EXPECT_EQ(-1, double_compare(-infinity, infinity));
    EXPECT_EQ(1, double_compare(infinity, double_max()));
    EXPECT_EQ(-1, double_compare(double_min(), double_max()));
}

TEST(DoubleUtil, IsEqualWhereCompareFindsNoDifference)
{
    EXPECT_EQ(1, double_is_equal(1.0, 1.0000005));
    EXPECT_EQ(0, double_is_equal(1.0, 1.000002));
    EXPECT_EQ(0, double_is_equal(1.000002, 1.0));
    EXPECT_EQ(1, double_is_equal(nan_value, nan_value));
    EXPECT_EQ(1, double_is_equal(infinity, infinity));
}
