// Shared by the three types of matrix; not exported.
#ifndef VESK_MATRIX_MATRIX_INTERNAL_HPP
#define VESK_MATRIX_MATRIX_INTERNAL_HPP

#include <vesk/matrix.h>

// Sets the header of `m`, without touching its type-specific object and its slots. Returns 0.
int _matrix_init(matrix *m, uint32_t type, uint32_t nrows, uint32_t ncols);

// Clears the header of `m`.
void _matrix_destruct(matrix *m);

// Copies the slots of `from` to `to` and gives `to` direct access when `from` has it. Returns 0, or
// the negative last error when direct access fails.
int _matrix_copy_metadata(const matrix *from, matrix *to);

#endif
