/**
 * @file
 * @brief LU decomposition with full pivoting, and what is built on it.
 *
 * The factorisation chooses the element of the largest magnitude of the trailing block as the pivot
 * of each step (G. H. Golub and C. F. Van Loan, Matrix Computations, "complete pivoting"), the one
 * found first when the block is read row by row. No step is fused except the sums of a
 * substitution, so the results are the same bits on every machine, except for the sign
 * and the payload of a NaN.
 */
#ifndef VESK_MATRIX_LU_H
#define VESK_MATRIX_LU_H

#include <stdint.h>

#include "matrix.h"
#include "vesk_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * A factorised matrix A of n x n: with the exchanges of `p` and `q` applied in order 0 .. n-1,
 * P A Q = L U. The record owns its matrices.
 */
typedef struct matrix_lu {
    struct matrix *matrix; /**< below the diagonal L, whose diagonal is 1; from it on upwards U */
    struct matrix *lower;  /**< made by matrix_lu_get_lower(), null until then */
    struct matrix *upper;  /**< made by matrix_lu_get_upper(), null until then */
    struct matrix *p;      /**< n x 1: the row exchanged with row k at step k */
    struct matrix *q;      /**< n x 1: the column exchanged with column k at step k */
    uint32_t rank;         /**< the last step with a pivot above 2.2e-16, plus one; at least 1 */
    double det;            /**< the product of the pivots; the exchanges do not change its sign */
} matrix_lu;

/**
 * Factorises a copy of @p m. A pivot of at most matrix_value_unit_roundoff() skips the elimination
 * of its step. Takes memory for n x n more elements while it works; without it, it is slower.
 *
 * @return the record, released with matrix_lu_destroy(), or null (QE_ERROR_NO_MEMORY (-22)). Aborts
 * with "rows == cols" when @p m is not square.
 */
VESK_API matrix_lu *matrix_lu_create(const matrix *m);

/**
 * Releases the record with all its matrices and sets the caller's pointer to null. Aborts with
 * "(*m)->matrix != ((void *)0)", "(*m)->p != ((void *)0)" or "(*m)->q != ((void *)0)" when the
 * record is not whole.
 */
VESK_API void matrix_lu_destroy(matrix_lu **m);

/** @return the rank; a matrix of zeros has rank 1. */
VESK_API uint32_t matrix_lu_get_rank(const matrix_lu *lu);

/** @return the product of the pivots: the determinant, but for its sign. */
VESK_API double matrix_lu_get_det(const matrix_lu *lu);

/**
 * @return L with the exchanges of rows undone, made once and owned by the record, or null
 * (QE_ERROR_NO_MEMORY (-22)). The lower times the upper factor gives the factorised matrix.
 */
VESK_API matrix *matrix_lu_get_lower(matrix_lu *lu);

/** @return U with the exchanges of columns undone, as matrix_lu_get_lower(). */
VESK_API matrix *matrix_lu_get_upper(matrix_lu *lu);

/**
 * Solves m x = b. Only the first column of @p b is solved; further ones come back with their rows
 * exchanged.
 *
 * @return x, like @p b and owned by the caller; null when @p m is singular, which leaves the
 * last-error cell as it is, or without memory (QE_ERROR_NO_MEMORY (-22)). Aborts with
 * "matrix_get_number_columns(m) == n" or "matrix_get_number_rows(b) == n", n being the rows of
 * @p m, when the shapes do not fit.
 */
VESK_API matrix *matrix_lu_solve_for(const matrix *m, const matrix *b);

/**
 * The inverse, by way of the inverses of both factors.
 *
 * @return a regular matrix owned by the caller; null when @p m is singular, which leaves the
 * last-error cell as it is, or without memory (QE_ERROR_NO_MEMORY (-22)). Aborts with "rows ==
 * cols" when @p m is not square.
 */
VESK_API matrix *matrix_inverse(const matrix *m);

#ifdef __cplusplus
}
#endif

#endif
