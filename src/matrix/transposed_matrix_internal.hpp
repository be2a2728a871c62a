// The type-specific object of a transposed matrix: the matrix that it shows, for those who store it
// or go to its elements directly. Not exported.
#ifndef VESK_MATRIX_TRANSPOSED_MATRIX_INTERNAL_HPP
#define VESK_MATRIX_TRANSPOSED_MATRIX_INTERNAL_HPP

#include <vesk/transposed_matrix.h>

struct transposed_matrix {
    signed char version;
    struct matrix *matrix;
    uint32_t owns_matrix;
};

// Whether the elements of a view are read and written by the library's own slots, so that whoever
// knows its source may go there at once. A caller's own slots are called for every element.
bool _transposed_matrix_has_own_access(const matrix *view);

// Whether a copy of a view is the library's own, a view of a copy.
bool _transposed_matrix_has_own_copy(const matrix *view);

#endif
