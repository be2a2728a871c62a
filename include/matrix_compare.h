#ifndef VESK_MATRIX_COMPARE_H
#define VESK_MATRIX_COMPARE_H

#include "matrix.h"
#include "vesk_api.h"

#ifdef __cplusplus
extern "C" {
#endif

VESK_API int matrix_is_equal_dimensions(const matrix *m1, const matrix *m2);
VESK_API int matrix_is_equal(const matrix *m1, const matrix *m2);
VESK_API int matrix_is_less(const matrix *m1, const matrix *m2);
VESK_API int matrix_is_less_equal(const matrix *m1, const matrix *m2);
VESK_API int matrix_is_greater(const matrix *m1, const matrix *m2);
VESK_API int matrix_is_greater_equal(const matrix *m1, const matrix *m2);
VESK_API int matrix_is_equal_scalar(const matrix *m, double s);
VESK_API int matrix_is_less_scalar(const matrix *m, double s);
VESK_API int matrix_is_less_equal_scalar(const matrix *m, double s);
VESK_API int matrix_is_greater_scalar(const matrix *m, double s);
VESK_API int matrix_is_greater_equal_scalar(const matrix *m, double s);

#ifdef __cplusplus
}
#endif

#endif
