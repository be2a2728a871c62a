/**
 * @file
 * @brief Elements of matrices: doubles, compared with the tolerance of double_util.h.
 */
#ifndef VESK_MATRIX_VALUE_H
#define VESK_MATRIX_VALUE_H

#include "vesk_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/** @return the largest finite value, double_max(), whatever the arguments are. */
VESK_API double matrix_value_max(double a, double b);

/** @return the lowest finite value, double_min(), whatever the arguments are. */
VESK_API double matrix_value_min(double a, double b);

/** @return -1, 0 or 1, see double_compare(): 0 within the tolerance of 1E-6. */
VESK_API int matrix_value_compare(double a, double b);

/** @return 1 when matrix_value_compare() gives 0, else 0. */
VESK_API int matrix_value_is_equal(double a, double b);

/**
 * @return the number that the text begins with, as atof() reads it; 0 for any other text. The
 * decimal point is that of the locale.
 *
 * Aborts with "str != ((void *)0)".
 */
VESK_API double matrix_value_from_string(const char *str);

/**
 * @return 2.2e-16, below which a pivot counts as 0. It is the double nearest to that decimal, a
 * little less than the machine epsilon 2^-52.
 */
VESK_API double matrix_value_unit_roundoff(void);

#ifdef __cplusplus
}
#endif

#endif
