#ifndef VESK_MATRIX_SLICES_H
#define VESK_MATRIX_SLICES_H

#include <stdint.h>

#include "matrix.h"
#include "vesk_api.h"

#ifdef __cplusplus
extern "C" {
#endif

VESK_API matrix *matrix_get_columns(const matrix *m, const uint32_t *col_indices,
                                    uint32_t nindices);
VESK_API matrix *matrix_get_rows(const matrix *m, const uint32_t *row_indices, uint32_t nindices);
VESK_API int matrix_set_columns(matrix *m, const matrix *vals, const uint32_t *col_indices);
VESK_API int matrix_set_rows(matrix *m, const matrix *vals, const uint32_t *row_indices);
VESK_API matrix *matrix_get_submatrix(const matrix *m, uint32_t start_row, uint32_t nrows,
                                      uint32_t start_col, uint32_t ncols);
VESK_API void matrix_set_submatrix(matrix *m, const matrix *vals, uint32_t start_row,
                                   uint32_t nrows, uint32_t start_col, uint32_t ncols,
                                   uint32_t v_start_row, uint32_t v_start_col);

#ifdef __cplusplus
}
#endif

#endif
