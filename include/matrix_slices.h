/**
 * @file
 * @brief Rows, columns and blocks of matrices.
 *
 * Whole rows and columns are taken with what belongs to them: rows of a telemetry matrix are a
 * telemetry matrix with their timestamps, and one row of it is a telemetry vector. Blocks are
 * values only.
 *
 * Rows and columns are named by lists of indices, in any order and with repetitions. Every matrix
 * must be non-null, live and usable ("m->type > 0", "m->nrows > 0", "m->ncols > 0").
 */
#ifndef VESK_MATRIX_SLICES_H
#define VESK_MATRIX_SLICES_H

#include <stdint.h>

#include "matrix.h"
#include "vesk_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Makes a matrix of the type of @p m whose column k is column `col_indices[k]` of @p m.
 *
 * Aborts with "col_indices != ((void *)0)" or "nindices > 0", and on a telemetry matrix with
 * "indices[i] < matrix_get_number_columns (tmatrix->matrix)". The indices into other matrices
 * are not checked: they must be in range.
 *
 * @return the new matrix; null with QE_ERROR_NO_MEMORY (-22) without memory.
 */
VESK_API matrix *matrix_get_columns(const matrix *m, const uint32_t *col_indices,
                                    uint32_t nindices);

/**
 * Makes a matrix of the type of @p m whose row k is row `row_indices[k]` of @p m.
 *
 * Aborts with "row_indices != ((void *)0)" or "nindices > 0", and on a telemetry matrix with
 * "indices[i] < matrix_get_number_rows (tmatrix->matrix)". The indices into other matrices are not
 * checked: they must be in range.
 *
 * @return the new matrix; null with QE_ERROR_NO_MEMORY (-22) without memory.
 */
VESK_API matrix *matrix_get_rows(const matrix *m, const uint32_t *row_indices, uint32_t nindices);

/**
 * Overwrites column `col_indices[k]` of @p m with column k of @p vals, for all columns of @p vals.
 *
 * When both are telemetry matrices, the sensors of the columns come along, and all timestamps of
 * @p vals replace those of @p m. The sensors are written into the list that all copies of the
 * sensor array share, so matrices that have the same array see them, too.
 *
 * Aborts with "vals != ((void *)0)", "m->nrows == vals->nrows" or "col_indices != ((void *)0)", and
 * as matrix_set() on an index that is out of range.
 *
 * @return 0; or QE_ERROR_NO_MEMORY (-22) without memory, when the values and the sensors are
 * written already and the timestamps are those of before.
 */
VESK_API int matrix_set_columns(matrix *m, const matrix *vals, const uint32_t *col_indices);

/**
 * Overwrites row `row_indices[k]` of @p m with row k of @p vals, for all rows of @p vals.
 *
 * When both are telemetry matrices, the timestamps of the rows come along, and the sensors of
 * @p vals replace those of @p m; other matrices that shared them keep the old ones.
 *
 * Aborts with "vals != ((void *)0)", "m->ncols == vals->ncols" or "row_indices != ((void *)0)", and
 * as matrix_set() on an index that is out of range.
 *
 * @return 0; or QE_ERROR_NO_MEMORY (-22) without memory, when the values are written already, and
 * perhaps the timestamps, and the sensors are those of before.
 */
VESK_API int matrix_set_rows(matrix *m, const matrix *vals, const uint32_t *row_indices);

/**
 * Makes a regular matrix of a block of @p m, whatever the type of @p m: element (i, j) of it is
 * element (start_row + i, start_col + j) of @p m.
 *
 * Aborts with, in this order, "start_row < matrix_get_number_rows(m)",
 * "start_row + nrows - 1 < matrix_get_number_rows(m)", "start_col < matrix_get_number_columns(m)",
 * "start_col + ncols - 1 < matrix_get_number_columns(m)", "nrows > 0" or "ncols > 0".
 *
 * @return the new matrix; null with QE_ERROR_NO_MEMORY (-22) without memory.
 */
VESK_API matrix *matrix_get_submatrix(const matrix *m, uint32_t start_row, uint32_t nrows,
                                      uint32_t start_col, uint32_t ncols);

/**
 * Overwrites a block of @p m of @p nrows rows and @p ncols columns that begins at (start_row,
 * start_col) with the block of @p vals that begins at (v_start_row, v_start_col). Sensors and
 * timestamps stay as they are.
 *
 * Aborts with the bounds of matrix_get_submatrix(), then the same for @p vals:
 * "v_start_row < matrix_get_number_rows(vals)",
 * "v_start_row + nrows - 1 < matrix_get_number_rows(vals)",
 * "v_start_col < matrix_get_number_columns(vals)",
 * "v_start_col + ncols - 1 < matrix_get_number_columns(vals)".
 */
VESK_API void matrix_set_submatrix(matrix *m, const matrix *vals, uint32_t start_row,
                                   uint32_t nrows, uint32_t start_col, uint32_t ncols,
                                   uint32_t v_start_row, uint32_t v_start_col);

#ifdef __cplusplus
}
#endif

#endif
