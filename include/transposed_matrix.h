#ifndef VESK_TRANSPOSED_MATRIX_H
#define VESK_TRANSPOSED_MATRIX_H

#include "matrix.h"
#include "vesk_api.h"

#ifdef __cplusplus
extern "C" {
#endif

VESK_API int transposed_matrix_init(matrix *m, matrix *orig_m);
VESK_API matrix *transposed_matrix_create(matrix *matrix);
VESK_API matrix *transposed_matrix_detach_original_matrix(matrix *m);

#ifdef __cplusplus
}
#endif

#endif
