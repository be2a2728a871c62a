/**
 * @file
 * @brief Comparing doubles with an absolute tolerance.
 */
#ifndef VESK_DOUBLE_UTIL_H
#define VESK_DOUBLE_UTIL_H

#include "vesk_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/** @return the tolerance, 1E-6. */
VESK_API double double_epsilon(void);

/** @return the lowest finite double, -1.7976931348623157E308; not the smallest positive one. */
VESK_API double double_min(void);

/** @return the highest finite double, 1.7976931348623157E308. */
VESK_API double double_max(void);

/**
 * Compares with an absolute tolerance: numbers that differ by no more than double_epsilon() are
 * equal, however small or large they are. So are equal infinities. NaN sorts below every number,
 * and two NaNs are equal.
 *
 * The relation is not transitive and therefore no order to sort by.
 *
 * @return -1, 0 or 1 as @p a is lower than, equal to or higher than @p b.
 */
VESK_API int double_compare(double a, double b);

/** @return 1 when double_compare() finds no difference, else 0. */
VESK_API int double_is_equal(double a, double b);

#ifdef __cplusplus
}
#endif

#endif
