/**
 * @file
 * @brief Comparing floats with an absolute tolerance.
 */
#ifndef VESK_FLOAT_UTIL_H
#define VESK_FLOAT_UTIL_H

#include "vesk_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/** @return the tolerance, 1E-6 in single precision, as a double. */
VESK_API double float_epsilon(void);

/**
 * Compares with an absolute tolerance, as double_compare() does, with the difference taken in
 * single precision. NaN sorts below every number, and two NaNs are equal.
 *
 * Unlike double_compare(), it has no case for equal infinities: it aborts with
 * "fabs (c) <= ((float) 1E-6)" on them.
 *
 * @return -1, 0 or 1 as @p a is lower than, equal to or higher than @p b.
 */
VESK_API int float_compare(float a, float b);

/** @return 1 when float_compare() finds no difference, else 0. Aborts where that aborts. */
VESK_API int float_is_equal(float a, float b);

#ifdef __cplusplus
}
#endif

#endif
