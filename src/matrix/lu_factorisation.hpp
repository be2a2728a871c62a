// The elimination with full pivoting behind matrix_lu_create().
#ifndef VESK_MATRIX_LU_FACTORISATION_HPP
#define VESK_MATRIX_LU_FACTORISATION_HPP

#include <cstdint>

#include <vesk/matrix_lu.h>

// Turns lu->matrix, which holds the elements of a matrix, into its factors; fills in the exchanges
// p and q, the rank and the determinant of a record that has rank 1 and determinant 1.
void _matrix_lu_factorise(matrix_lu *lu);

// Row k of a column of exchanges.
inline uint32_t _matrix_index_at(const matrix *indices, uint32_t k)
{
    return static_cast<uint32_t>(indices->values[k][0]);
}

#endif
