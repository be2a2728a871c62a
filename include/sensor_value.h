/**
 * @file
 * @brief Sensor values: single-precision floats, of which a NaN means that there is no reading.
 */
#ifndef VESK_SENSOR_VALUE_H
#define VESK_SENSOR_VALUE_H

#include "vesk_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Compares two values with the absolute tolerance of float_compare(): no reading is below every
 * reading and equal to no reading.
 *
 * Aborts with "fabs (c) <= ((float) 1E-6)" on two equal infinities.
 *
 * @return -1, 0 or 1.
 */
VESK_API int sensor_value_compare(float a, float b);

/** @return 1 when sensor_value_compare() is 0, else 0; aborts like it. */
VESK_API int sensor_value_is_equal(float a, float b);

/** @return 1 when @p v is a reading, that is not a NaN; else 0. */
VESK_API int sensor_value_is_valid(float v);

/**
 * Reads a number as atof() does, and so with the decimal point of the process's locale.
 *
 * Aborts with "str != ((void *)0)".
 *
 * @return the number, rounded to single precision; 0 for a text that is no number.
 */
VESK_API float sensor_value_from_string(const char *str);

/** @return @p v as a double, unchanged. */
VESK_API double sensor_value_to_double(float v);

/**
 * What to store where there is no reading: a NaN, 0x7FFFFFFF in its bits. The library never writes
 * this variable, and takes every other NaN for the same.
 */
VESK_API extern float _qe_invalid_sensor_value;

#ifdef __cplusplus
}
#endif

#endif
