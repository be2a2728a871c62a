// The elements of any matrix, without a call for each: a view is followed to the values that it
// shows once, instead of at every element. Where that cannot be done, and where a check would fail,
// the call goes to matrix_get() or matrix_set(), so that results, the order of reads and writes
// (operands may share their values) and aborts are always theirs.
//
// An object of these classes holds for as long as no matrix involved is resized, destroyed or given
// direct access.
#ifndef VESK_MATRIX_ELEMENT_ACCESS_HPP
#define VESK_MATRIX_ELEMENT_ACCESS_HPP

#include <cstdint>
#include <string.h>

#include <vesk/matrix.h>

// Where the elements lie: element (i, j) is rows[i][j], or rows[j][i] when they are exchanged. Null
// rows when the elements can only be had through the slots.
struct element_rows {
    double **rows;
    bool exchanged;
};

element_rows _matrix_find_rows(const matrix *m);

class element_reader
{
public:
    explicit element_reader(const matrix *m) : m_(m), found_(_matrix_find_rows(m)) {}

    double get(uint32_t i, uint32_t j) const
    {
        if (found_.rows == nullptr || i >= m_->nrows || j >= m_->ncols) {
            return matrix_get(m_, i, j);
        }
        // Row pointers are never null, which the analyzer cannot know.
        // NOLINTNEXTLINE(clang-analyzer-core.NullDereference)
        return found_.exchanged ? found_.rows[j][i] : found_.rows[i][j];
    }

    // Row `i` where it lies in memory in one piece, null where it does not.
    const double *find_row(uint32_t i) const
    {
        const bool in_place = found_.rows != nullptr && !found_.exchanged && i < m_->nrows;
        return in_place ? found_.rows[i] : nullptr;
    }

    // The `n` elements of row `i` from column `j` on, into memory that is not part of the matrix.
    void copy_run(uint32_t i, uint32_t j, uint32_t n, double *to) const
    {
        const double *row = find_row(i);
        if (row != nullptr && j <= m_->ncols && n <= m_->ncols - j) {
            memcpy(to, row + j, n * sizeof(double));
            return;
        }
        for (uint32_t k = 0; k < n; ++k) {
            to[k] = get(i, j + k);
        }
    }

private:
    const matrix *m_;
    element_rows found_;
};

// One row, to be read like an array within the bounds of the matrix.
class element_row
{
public:
    element_row(const element_reader &elements, uint32_t i)
        : elements_(elements), in_place_(elements.find_row(i)), i_(i)
    {
    }

    double operator[](uint32_t j) const
    {
        return in_place_ != nullptr ? in_place_[j] : elements_.get(i_, j);
    }

private:
    const element_reader &elements_;
    const double *in_place_;
    uint32_t i_;
};

class element_writer
{
public:
    explicit element_writer(matrix *m) : m_(m), found_(_matrix_find_rows(m)) {}

    void set(uint32_t i, uint32_t j, double value) const
    {
        if (found_.rows == nullptr || i >= m_->nrows || j >= m_->ncols) {
            matrix_set(m_, i, j, value);
        } else if (found_.exchanged) {
            found_.rows[j][i] = value;
        } else {
            found_.rows[i][j] = value;
        }
    }

private:
    matrix *m_;
    element_rows found_;
};

#endif
