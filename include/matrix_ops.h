#ifndef VESK_MATRIX_OPS_H
#define VESK_MATRIX_OPS_H

#include <stdint.h>

#include "matrix.h"
#include "vesk_api.h"

#ifdef __cplusplus
extern "C" {
#endif

VESK_API matrix *matrix_scalar_multiply(const matrix *m, double s);
VESK_API matrix *matrix_scalar_divide(const matrix *m, double s);
VESK_API void matrix_accum(matrix *m1, const matrix *m2);
VESK_API matrix *matrix_add(const matrix *m1, const matrix *m2);
VESK_API matrix *matrix_subtract(const matrix *m1, const matrix *m2);
VESK_API matrix *matrix_multiply(const matrix *m1, const matrix *m2);
VESK_API matrix *matrix_elemental_square(const matrix *m);
VESK_API matrix *matrix_elemental_sqrt(const matrix *m);
VESK_API matrix *matrix_elemental_exp(const matrix *m);
VESK_API matrix *matrix_elemental_abs(const matrix *m);
VESK_API matrix *matrix_column_sum(const matrix *m);
VESK_API matrix *matrix_column_mean(const matrix *m);
VESK_API matrix *matrix_column_std_dev(const matrix *m);
VESK_API matrix *matrix_euclidean_length(const matrix *m);
VESK_API matrix *matrix_euclidean_distance(const matrix *m1, const matrix *m2);
VESK_API matrix *matrix_euclidean_distance_sq_with_row_vector(const matrix *m1, const matrix *m2);
VESK_API matrix *matrix_gaussian_normalize(const matrix *m, const matrix *mean, const matrix *std);
VESK_API matrix *matrix_gaussian_denormalize(const matrix *m, const matrix *mean,
                                             const matrix *std);
VESK_API void matrix_clear(matrix *m);
VESK_API void matrix_accum_element(matrix *m, uint32_t i, uint32_t j, double v);

#ifdef __cplusplus
}
#endif

#endif
