// The type-specific object of a transposed matrix; not exported.
#ifndef VESK_MATRIX_TRANSPOSED_MATRIX_INTERNAL_HPP
#define VESK_MATRIX_TRANSPOSED_MATRIX_INTERNAL_HPP

#include <vesk/transposed_matrix.h>

struct transposed_matrix {
    signed char version;
    struct matrix *matrix;
    uint32_t owns_matrix;
};

#endif
