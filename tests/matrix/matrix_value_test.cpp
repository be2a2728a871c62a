// A single value of a matrix: its extremes, its tolerance in comparisons, and how it is read from
// text.
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>

#include <vesk/matrix_value.h>

#include "common/aborts.hpp"

static uint64_t bits(double value)
{
    return std::bit_cast<uint64_t>(value);
}

TEST(MatrixValue, HasTheFiniteExtremesWhateverIsPassed)
{
    EXPECT_EQ(0x7FEFFFFFFFFFFFFFU, bits(matrix_value_max(1, 2)));
    EXPECT_EQ(0x7FEFFFFFFFFFFFFFU, bits(matrix_value_max(NAN, -5)));
    EXPECT_EQ(0xFFEFFFFFFFFFFFFFU, bits(matrix_value_min(1, 2)));
    EXPECT_EQ(0xFFEFFFFFFFFFFFFFU, bits(matrix_value_min(NAN, -5)));
}

TEST(MatrixValue, ComparesWithinATolerance)
{
    EXPECT_EQ(0, matrix_value_compare(1.0, 1.0000005));
    EXPECT_EQ(-1, matrix_value_compare(1.0, 1.000002));
    EXPECT_EQ(1, matrix_value_compare(1.000002, 1.0));
    EXPECT_EQ(-1, matrix_value_compare(NAN, 1.0));
    EXPECT_EQ(1, matrix_value_is_equal(1.0, 1.0000005));
    EXPECT_EQ(0, matrix_value_is_equal(1.0, 1.000002));
    EXPECT_EQ(1, matrix_value_is_equal(NAN, NAN));
}

TEST(MatrixValue, IsReadFromText)
{
    EXPECT_EQ(-2.5, matrix_value_from_string("-2.5"));
    EXPECT_EQ(1000.0, matrix_value_from_string(" 1e3 more"));
    EXPECT_EQ(0.0, matrix_value_from_string("none"));
    EXPECT_EQ(0.0, matrix_value_from_string(""));
    EXPECT_ABORTS(matrix_value_from_string(nullptr), "str != ((void *)0)");
}

TEST(MatrixValue, RoundoffIsADecimalNotTheMachineEpsilon)
{
    EXPECT_EQ(0x3CAFB49140A1644FU, bits(matrix_value_unit_roundoff()));
    EXPECT_EQ(2.2e-16, matrix_value_unit_roundoff());
    EXPECT_LT(matrix_value_unit_roundoff(), std::numeric_limits<double>::epsilon());
}
