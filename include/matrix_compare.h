/**
 * @file
 * @brief Comparisons of whole matrices.
 *
 * Only matrix_is_equal() knows a tolerance; everything else compares exactly, so that a comparison
 * with NaN never holds. Matrices of different shapes are not equal, less or greater: the result is
 * 0, not an error. The first element that fails ends a comparison.
 *
 * Two operands must be non-null ("m1 != ((void *)0)", "m2 != ((void *)0)") and live, and no operand
 * may be a null record ("m->nrows > 0").
 */
#ifndef VESK_MATRIX_COMPARE_H
#define VESK_MATRIX_COMPARE_H

#include "matrix.h"
#include "vesk_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/** @return 1 when the numbers of rows are equal and those of columns, too, else 0. */
VESK_API int matrix_is_equal_dimensions(const matrix *m1, const matrix *m2);

/**
 * @return 1 when the shapes are equal and all pairs of elements within the tolerance of 1E-6, else
 * 0. Two NaN count as equal, see double_compare(). The types of the matrices, their sensors and
 * timestamps do not matter.
 */
VESK_API int matrix_is_equal(const matrix *m1, const matrix *m2);

/** @return 1 when the shapes are equal and m1(i, j) < m2(i, j) everywhere, else 0. */
VESK_API int matrix_is_less(const matrix *m1, const matrix *m2);

/** @return 1 when the shapes are equal and m1(i, j) <= m2(i, j) everywhere, else 0. */
VESK_API int matrix_is_less_equal(const matrix *m1, const matrix *m2);

/** @return 1 when the shapes are equal and m1(i, j) > m2(i, j) everywhere, else 0. */
VESK_API int matrix_is_greater(const matrix *m1, const matrix *m2);

/** @return 1 when the shapes are equal and m1(i, j) >= m2(i, j) everywhere, else 0. */
VESK_API int matrix_is_greater_equal(const matrix *m1, const matrix *m2);

/** @return 1 when m(i, j) == @p s everywhere, without tolerance, else 0. */
VESK_API int matrix_is_equal_scalar(const matrix *m, double s);

/** @return 1 when m(i, j) < @p s everywhere, else 0. */
VESK_API int matrix_is_less_scalar(const matrix *m, double s);

/** @return 1 when m(i, j) <= @p s everywhere, else 0. */
VESK_API int matrix_is_less_equal_scalar(const matrix *m, double s);

/** @return 1 when m(i, j) > @p s everywhere, else 0. */
VESK_API int matrix_is_greater_scalar(const matrix *m, double s);

/** @return 1 when m(i, j) >= @p s everywhere, else 0. */
VESK_API int matrix_is_greater_equal_scalar(const matrix *m, double s);

#ifdef __cplusplus
}
#endif

#endif
