#ifndef VESK_MATRIX_LU_H
#define VESK_MATRIX_LU_H

#include <stdint.h>

#include "matrix.h"
#include "vesk_api.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct matrix_lu {
    struct matrix *matrix;
    struct matrix *lower;
    struct matrix *upper;
    struct matrix *p;
    struct matrix *q;
    uint32_t rank;
    double det;
} matrix_lu;

VESK_API matrix_lu *matrix_lu_create(const matrix *m);
VESK_API void matrix_lu_destroy(matrix_lu **m);
VESK_API uint32_t matrix_lu_get_rank(const matrix_lu *lu);
VESK_API double matrix_lu_get_det(const matrix_lu *lu);
VESK_API matrix *matrix_lu_get_lower(matrix_lu *lu);
VESK_API matrix *matrix_lu_get_upper(matrix_lu *lu);
VESK_API matrix *matrix_lu_solve_for(const matrix *m, const matrix *b);
VESK_API matrix *matrix_inverse(const matrix *m);

#ifdef __cplusplus
}
#endif

#endif
