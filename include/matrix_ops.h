/**
 * @file
 * @brief Arithmetic of whole matrices, statistics of columns and distances of rows.
 *
 * Every function takes matrices of any type. Results are the same bits on every machine,
 * except for the sign and the payload of a NaN: an element
 * is computed in the order that is given here, each step rounded to double precision, and a product
 * is fused with the sum that takes it (one rounding for both) exactly where the text says fused.
 *
 * A function that returns a matrix returns null, with QE_ERROR_NO_MEMORY (-22) in the last-error
 * cell, when there is no memory for the result; the caller owns the result and releases it with
 * matrix_destroy(). "Like m" means a new matrix of the type and shape of m, with copies of its
 * sensors and timestamps when it is a telemetry matrix. Operands must be non-null; shapes that do
 * not fit abort with the text that is quoted.
 */
#ifndef VESK_MATRIX_OPS_H
#define VESK_MATRIX_OPS_H

#include <stdint.h>

#include "matrix.h"
#include "vesk_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/** @return a matrix like @p m with m(i, j) * @p s, or null (QE_ERROR_NO_MEMORY (-22)). */
VESK_API matrix *matrix_scalar_multiply(const matrix *m, double s);

/**
 * @return a matrix like @p m with m(i, j) / @p s, or null: QE_ERROR_DIVISION_BY_ZERO (-10) when @p
 * s is zero within the tolerance of matrix_value_is_equal(), QE_ERROR_NO_MEMORY (-22) without
 * memory.
 */
VESK_API matrix *matrix_scalar_divide(const matrix *m, double s);

/**
 * Adds @p m2 to @p m1 in place, row by row from left to right, which shows where both share their
 * values. Aborts with "matrix_is_equal_dimensions (m1, m2)" when the shapes differ.
 */
VESK_API void matrix_accum(matrix *m1, const matrix *m2);

/**
 * @return a copy of @p m1, with its sensors and timestamps, to which @p m2 was added, or null
 * (QE_ERROR_NO_MEMORY (-22)). Aborts with "matrix_is_equal_dimensions (m1, m2)" when the shapes
 * differ.
 */
VESK_API matrix *matrix_add(const matrix *m1, const matrix *m2);

/**
 * @return a matrix like @p m1 with m1(i, j) - m2(i, j), or null (QE_ERROR_NO_MEMORY (-22)). Aborts
 * with "matrix_is_equal_dimensions(m1, m2) > 0" when the shapes differ.
 */
VESK_API matrix *matrix_subtract(const matrix *m1, const matrix *m2);

/**
 * The matrix product. Element (i, j) is the sum over k of m1(i, k) * m2(k, j), from 0.0 in
 * increasing k, fused at each step.
 *
 * @return a regular matrix with the rows of @p m1 and the columns of @p m2, or null
 * (QE_ERROR_NO_MEMORY (-22)). Aborts with "matrix_get_number_columns(m1) ==
 * matrix_get_number_rows(m2)" when the shapes do not fit.
 */
VESK_API matrix *matrix_multiply(const matrix *m1, const matrix *m2);

/** @return a matrix like @p m with m(i, j) * m(i, j), or null (QE_ERROR_NO_MEMORY (-22)). */
VESK_API matrix *matrix_elemental_square(const matrix *m);

/**
 * @return a matrix like @p m with the square roots of its elements, or null: QE_ERROR_NEGATIVE_ROOT
 * (-50) when an element is below 0.0 (-0.0 is not), QE_ERROR_NO_MEMORY (-22) without memory.
 */
VESK_API matrix *matrix_elemental_sqrt(const matrix *m);

/** @return a matrix like @p m with e raised to m(i, j), as exp() of the C library, or null
 * (QE_ERROR_NO_MEMORY (-22)).
 */
VESK_API matrix *matrix_elemental_exp(const matrix *m);

/** @return a matrix like @p m with the magnitudes of its elements, or null (QE_ERROR_NO_MEMORY
 * (-22)). */
VESK_API matrix *matrix_elemental_abs(const matrix *m);

/** @return a regular row with the sum of each column, from 0.0 in increasing row, or null
 * (QE_ERROR_NO_MEMORY (-22)). */
VESK_API matrix *matrix_column_sum(const matrix *m);

/** @return a regular row with matrix_column_sum() divided by the number of rows, or null
 * (QE_ERROR_NO_MEMORY (-22)). */
VESK_API matrix *matrix_column_mean(const matrix *m);

/**
 * The standard deviation of each column over all its rows: of the population, divided by the number
 * of rows and not by one less.
 *
 * One pass with the running mean (B. P. Welford, Note on a method for calculating corrected sums of
 * squares and products, Technometrics 4, 1962): for each x, d = x - mean, mean += d / count, and
 * m2 += d * (x - mean), fused; the result is the square root of m2 / rows.
 *
 * @return a regular row, or null (QE_ERROR_NO_MEMORY (-22)).
 */
VESK_API matrix *matrix_column_std_dev(const matrix *m);

/**
 * @return a regular column with the Euclidean length of each row, the root of the sum of its
 * squares, fused from 0.0 in increasing column, or null (QE_ERROR_NO_MEMORY (-22)).
 */
VESK_API matrix *matrix_euclidean_length(const matrix *m);

/**
 * @return a regular column with the Euclidean distance of each row of @p m1 from the same row of
 * @p m2 (not fused), or null (QE_ERROR_NO_MEMORY (-22)). Aborts with "rows1 ==
 * matrix_get_number_rows (m2)" or "cols1 == matrix_get_number_columns (m2)" when the shapes differ.
 */
VESK_API matrix *matrix_euclidean_distance(const matrix *m1, const matrix *m2);

/**
 * @return a regular column with the square of the Euclidean distance of each row of @p m1 from the
 * row @p m2 (not fused, no root), or null (QE_ERROR_NO_MEMORY (-22)). Aborts with
 * "matrix_get_number_rows (m2) == 1" or "ncols == matrix_get_number_columns (m2)" when the shapes
 * do not fit.
 */
VESK_API matrix *matrix_euclidean_distance_sq_with_row_vector(const matrix *m1, const matrix *m2);

/**
 * Shifts and scales each column: (m(i, j) - mean(0, j)) / std(0, j). A deviation that is zero
 * within tolerance counts as 1.0, so a constant column is only shifted.
 *
 * @return a copy of @p m (regular where @p m is a transposed view), or null (QE_ERROR_NO_MEMORY
 * (-22)). Aborts with "matrix_get_number_rows (mean) == 1", "matrix_get_number_columns (mean) ==
 * cols" or "matrix_is_equal_dimensions (mean, std)" when the shapes do not fit.
 */
VESK_API matrix *matrix_gaussian_normalize(const matrix *m, const matrix *mean, const matrix *std);

/**
 * The way back: m(i, j) * std(0, j) + mean(0, j), fused, with the same rule for deviations of zero.
 *
 * @return as matrix_gaussian_normalize(), which see for what aborts.
 */
VESK_API matrix *matrix_gaussian_denormalize(const matrix *m, const matrix *mean,
                                             const matrix *std);

/** Sets every element of @p m to 0.0. */
VESK_API void matrix_clear(matrix *m);

/** Adds @p v to m(@p i, @p j); aborts as matrix_get() when the element does not exist. */
VESK_API void matrix_accum_element(matrix *m, uint32_t i, uint32_t j, double v);

#ifdef __cplusplus
}
#endif

#endif
