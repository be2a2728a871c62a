// Readings of sensors: single-precision floats that are compared with a tolerance, where a NaN
// stands for no reading.
#include <cmath>
#include <cstdlib>

#include <vesk/float_util.h>
#include <vesk/sensor_value.h>

#include "support/precondition.hpp"

// A quiet NaN with every bit of the fraction set, 0x7FFFFFFF.
float _qe_invalid_sensor_value = __builtin_nanf("0x3fffff");

int sensor_value_compare(float a, float b)
{
    return float_compare(a, b);
}

int sensor_value_is_equal(float a, float b)
{
    return float_is_equal(a, b);
}

int sensor_value_is_valid(float v)
{
    return std::isnan(v) ? 0 : 1;
}

float sensor_value_from_string(const char *str)
{
    VESK_REQUIRE(str != nullptr, "str != ((void *)0)");
    return static_cast<float>(atof(str));
}

double sensor_value_to_double(float v)
{
    return v;
}
