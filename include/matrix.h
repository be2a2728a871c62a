#ifndef VESK_MATRIX_H
#define VESK_MATRIX_H

#include <stdint.h>

#include "vesk_api.h"

#ifdef __cplusplus
extern "C" {
#endif

enum { MATRIX_TYPE_REGULAR = 1, MATRIX_TYPE_TRANSPOSED = 2, MATRIX_TYPE_TELEMETRY = 3 };

typedef struct matrix matrix;

struct matrix {
    signed char version;
    uint32_t type;
    double **values;
    uint32_t nrows;
    uint32_t ncols;
    void *matrix;
    void (*fn_destroy)(void **object);
    double (*fn_get)(void *object, uint32_t i, uint32_t j);
    void (*fn_set)(void *object, uint32_t i, uint32_t j, double value);
    void *(*fn_create_like)(void *object);
    void *(*fn_get_col_slice)(void *object, const uint32_t *indices, uint32_t n);
    void *(*fn_get_row_slice)(void *object, const uint32_t *indices, uint32_t n);
    void *(*fn_copy)(void *object);
    int (*fn_resize)(void *object, uint32_t nrows, uint32_t ncols);
    int (*fn_set_rows)(void *object, const struct matrix *vals, const uint32_t *indices);
    int (*fn_set_columns)(void *object, const struct matrix *vals, const uint32_t *indices);
};

VESK_API int matrix_init(matrix *m, uint32_t nrows, uint32_t ncols);
VESK_API matrix *matrix_create(uint32_t nrows, uint32_t ncols);
VESK_API matrix *matrix_create_with_dimensions(uint32_t nrows, uint32_t ncols);
VESK_API int matrix_init_null(matrix *m);
VESK_API matrix *matrix_create_null(void);
VESK_API matrix *matrix_create_like(const matrix *m);
VESK_API matrix *matrix_create_like_binary_operands(const matrix *m1, const matrix *m2);
VESK_API matrix *matrix_create_identity(uint32_t m);
VESK_API matrix *matrix_create_ones(uint32_t m, uint32_t n);
VESK_API double matrix_get(const matrix *m, uint32_t i, uint32_t j);
VESK_API void matrix_set(matrix *m, uint32_t i, uint32_t j, double value);
VESK_API uint32_t matrix_get_number_rows(const matrix *m);
VESK_API uint32_t matrix_get_number_columns(const matrix *m);
VESK_API uint32_t matrix_get_type(const matrix *m);
VESK_API double **matrix_enable_direct_access(matrix *m);
VESK_API int matrix_resize(matrix *matrix, uint32_t nrows, uint32_t ncols);
VESK_API matrix *matrix_copy(const matrix *m);
VESK_API void matrix_destruct(matrix *m);
VESK_API void matrix_destroy(matrix **m);
VESK_API double matrix_norm_F(const matrix *m);
VESK_API double matrix_norm_inf(const matrix *m);
VESK_API double matrix_condition_number_inf(const matrix *m);

#ifdef __cplusplus
}
#endif

#endif
