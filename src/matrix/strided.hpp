// The elements of a matrix as they lie in memory, for whole-matrix arithmetic: a view's elements
// are those of its source with the strides exchanged. What can only be had through slots is for the
// plain way that every operation has beside its fast one.
#ifndef VESK_MATRIX_STRIDED_HPP
#define VESK_MATRIX_STRIDED_HPP

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "matrix/element_access.hpp"
#include "matrix/kernels/kernels.hpp"
#include "support/checked_size.hpp"

// False when the elements of `m` do not all lie in memory at fixed distances.
inline bool _matrix_find_view(const matrix *m, matrix_view *view)
{
    const element_rows found = _matrix_find_rows(m);
    if (found.rows == nullptr) {
        return false;
    }
    const uint32_t source_rows = found.exchanged ? m->ncols : m->nrows;
    const std::size_t distance =
        source_rows > 1 ? static_cast<std::size_t>(found.rows[1] - found.rows[0]) : 1;
    *view = found.exchanged ? matrix_view{found.rows[0], 1, distance}
                            : matrix_view{found.rows[0], distance, 1};
    return true;
}

// Copies the elements of `m`, row after row, to memory that is not part of it.
inline void _matrix_copy_elements(const matrix *m, double *to)
{
    matrix_view found = {};
    if (_matrix_find_view(m, &found) && found.column != 1) {
        _matrix_kernels().transpose(arrival::replace, found.base, found.column, to, m->ncols,
                                    m->nrows, m->ncols);
        return;
    }
    const element_reader elements(m);
    for (uint32_t i = 0; i < m->nrows; ++i) {
        elements.copy_run(i, 0, m->ncols, to + static_cast<std::size_t>(i) * m->ncols);
    }
}

// Memory to turn or pack `rows` x `columns` elements in, on a boundary of cache lines. Null is no
// failure: the caller works without that memory. The last-error cell stays as it is.
inline double *_matrix_allocate_scratch(std::size_t rows, std::size_t columns = 1)
{
    constexpr std::size_t line = 64;
    std::size_t size = 0;
    if (!multiply_sizes_rounded(&size, line, rows, columns, sizeof(double)) || size == 0) {
        return nullptr;
    }
    return static_cast<double *>(aligned_alloc(line, size));
}

// sum[i] goes on over the elements of row i of x (and of y, when differences are folded; rows 0
// apart are one row for all).
void _matrix_fold_rows(fold what, const matrix_view &x, const matrix_view &y, std::size_t nrows,
                       std::size_t ncols, double *sum);

#endif
