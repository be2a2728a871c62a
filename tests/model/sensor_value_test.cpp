// Readings: what is missing, how readings compare, and their text.
#include <bit>
#include <cmath>
#include <cstdint>
#include <gtest/gtest.h>
#include <limits>

#include <vesk/sensor_value.h>

#include "common/aborts.hpp"

static const float nan_value = std::numeric_limits<float>::quiet_NaN();
static const float infinity = std::numeric_limits<float>::infinity();

TEST(SensorValue, MarksMissingReadingsWithAllBitsButTheSign)
{
    EXPECT_EQ(0x7FFFFFFFU, std::bit_cast<uint32_t>(_qe_invalid_sensor_value));
    EXPECT_EQ(0, sensor_value_is_valid(_qe_invalid_sensor_value));
}

TEST(SensorValue, OfAMissingReadingCanBeReplaced)
{
    const float before = _qe_invalid_sensor_value;
    _qe_invalid_sensor_value = nan_value;
    EXPECT_EQ(0, sensor_value_is_valid(_qe_invalid_sensor_value));
    _qe_invalid_sensor_value = before;
}

TEST(SensorValue, IsValidUnlessItIsNaN)
{
    for (const float v : {0.0F, -0.0F, 1.5F, -3e38F, infinity, -infinity}) {
        EXPECT_EQ(1, sensor_value_is_valid(v));
    }
    EXPECT_EQ(0, sensor_value_is_valid(nan_value));
    EXPECT_EQ(0, sensor_value_is_valid(-nan_value));
}

TEST(SensorValue, ComparesWithTolerance)
{
    EXPECT_EQ(0, sensor_value_compare(1.0F, 1.0000005F));
    EXPECT_EQ(-1, sensor_value_compare(1.0F, 1.000002F));
    EXPECT_EQ(1, sensor_value_compare(2.0F, 1.0F));
    EXPECT_EQ(1, sensor_value_is_equal(1.0F, 1.0000005F));
    EXPECT_EQ(0, sensor_value_is_equal(1.0F, 1.000002F));
}

TEST(SensorValue, SortsMissingReadingsFirst)
{
    EXPECT_EQ(-1, sensor_value_compare(nan_value, -3e38F));
    EXPECT_EQ(1, sensor_value_compare(-3e38F, nan_value));
    EXPECT_EQ(0, sensor_value_compare(nan_value, _qe_invalid_sensor_value));
    EXPECT_EQ(1, sensor_value_is_equal(nan_value, nan_value));
}

TEST(SensorValue, CannotCompareEqualInfinities)
{
    EXPECT_ABORTS(sensor_value_compare(infinity, infinity), "fabs (c) <= ((float) 1E-6)");
    EXPECT_ABORTS(sensor_value_is_equal(-infinity, -infinity), "fabs (c) <= ((float) 1E-6)");
}

TEST(SensorValue, IsReadFromText)
{
    EXPECT_EQ(12.5F, sensor_value_from_string("12.5"));
    EXPECT_EQ(-1e10F, sensor_value_from_string(" -1e10 volts"));
    EXPECT_EQ(0.1F, sensor_value_from_string("0.1"));
    EXPECT_EQ(0.0F, sensor_value_from_string("hot"));
    EXPECT_EQ(0.0F, sensor_value_from_string(""));
    EXPECT_EQ(0, sensor_value_is_valid(sensor_value_from_string("nan")));
    EXPECT_EQ(infinity, sensor_value_from_string("1e300"));
    EXPECT_ABORTS(sensor_value_from_string(nullptr), "str != ((void *)0)");
}

TEST(SensorValue, WidensToDoubleUnchanged)
{
    EXPECT_EQ(static_cast<double>(0.1F), sensor_value_to_double(0.1F));
    EXPECT_TRUE(std::isnan(sensor_value_to_double(_qe_invalid_sensor_value)));
}
