// The elements of a matrix as they lie in memory, for whole-matrix arithmetic: a view's elements
// are those of its source with the strides exchanged. What can only be had through slots is copied
// once.
#ifndef VESK_MATRIX_STRIDED_HPP
#define VESK_MATRIX_STRIDED_HPP

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "matrix/element_access.hpp"
#include "matrix/kernels/kernels.hpp"
#include "support/object.hpp"
#include "support/owner.hpp"

// Element (i, j) is base[i * row + j * column].
struct strided_elements {
    double *base;
    std::size_t row;
    std::size_t column;

    double &at(std::size_t i, std::size_t j) const { return base[i * row + j * column]; }
};

// False when the elements of `m` do not all lie in memory at fixed distances.
inline bool _matrix_find_elements(const matrix *m, strided_elements *elements)
{
    const element_rows found = _matrix_find_rows(m);
    if (found.rows == nullptr) {
        return false;
    }
    const uint32_t source_rows = found.exchanged ? m->ncols : m->nrows;
    const std::size_t distance =
        source_rows > 1 ? static_cast<std::size_t>(found.rows[1] - found.rows[0]) : 1;
    *elements = found.exchanged ? strided_elements{found.rows[0], 1, distance}
                                : strided_elements{found.rows[0], distance, 1};
    return true;
}

// Copies the elements of `m`, row after row, to memory that is not part of it.
inline void _matrix_copy_elements(const matrix *m, double *to)
{
    strided_elements found = {};
    if (_matrix_find_elements(m, &found) && found.column != 1) {
        _matrix_kernels().transpose(arrival::replace, found.base, found.column, to, m->ncols,
                                    m->nrows, m->ncols);
        return;
    }
    const element_reader elements(m);
    for (uint32_t i = 0; i < m->nrows; ++i) {
        elements.copy_run(i, 0, m->ncols, to + static_cast<std::size_t>(i) * m->ncols);
    }
}

// Memory to turn or pack operands in, on a boundary of cache lines. Null is no failure: whoever
// asks does without. The last-error cell stays as it is.
inline double *_matrix_allocate_scratch(std::size_t count)
{
    constexpr std::size_t line = 64;
    const std::size_t size = (count * sizeof(double) + line - 1) / line * line;
    return size == 0 ? nullptr : static_cast<double *>(aligned_alloc(line, size));
}

// sum[i] goes on over the elements of row i of x (and of y, when differences are folded; rows 0
// apart are one row for all).
void _matrix_fold_rows(fold what, const matrix_view &x, const matrix_view &y, std::size_t nrows,
                       std::size_t ncols, double *sum);

// The elements of an operand, in place or as a copy that lives as long as this object.
class operand
{
public:
    // How the operand must lie: anyhow, or with the elements of a row side by side.
    enum class layout { any, rows };

    explicit operand(const matrix *m, layout wanted = layout::any)
    {
        strided_elements found = {};
        if (_matrix_find_elements(m, &found) && (wanted == layout::any || found.column == 1)) {
            view_ = {found.base, found.row, found.column};
            return;
        }
        copy(m);
    }

    // False, with -22 in the last-error cell, when there was no memory for a copy.
    explicit operator bool() const { return view_.base != nullptr; }
    const matrix_view &view() const { return view_; }
    const double *row(std::size_t i) const { return view_.base + i * view_.row; }

private:
    void copy(const matrix *m)
    {
        copy_.reset(allocate<double>(static_cast<std::size_t>(m->nrows) * m->ncols));
        view_ = {copy_.get(), m->ncols, 1};
        if (copy_) {
            _matrix_copy_elements(m, copy_.get());
        }
    }

    owned_memory<double> copy_;
    matrix_view view_ = {};
};

#endif
