// Elimination with full pivoting: each step looks for the largest magnitude of what is left. Where
// there is memory for it, the rows lie on boundaries of cache lines meanwhile and the kernels make
// each step; otherwise it is made element by element in the matrix itself, to the same bits.
#include "matrix/lu_factorisation.hpp"

#include <algorithm>
#include <cmath>
#include <numeric>

#include <vesk/matrix_value.h>

#include "matrix/kernels/kernels.hpp"
#include "matrix/strided.hpp"
#include "support/checked_size.hpp"
#include "support/owner.hpp"

// The n rows that are being factorised, `stride` elements apart.
struct lu_rows {
    double *first;
    std::size_t stride;
    uint32_t n;

    double *at(uint32_t r) const { return first + r * stride; }
};

// ---- steps element by element ----

static void _matrix_lu_offer(pivot_row *largest, double magnitude, uint32_t row)
{
    if (magnitude > largest->magnitude) {
        *largest = {magnitude, row};
    }
}

// Step k on the rows below row k, where row k is not worth eliminating with or where there is no
// memory for the kernels.
static pivot_row _matrix_lu_step_in_place(const lu_rows &rows, uint32_t k, uint32_t column,
                                          bool eliminate)
{
    const double *pivot = rows.at(k);
    pivot_row next;
    for (uint32_t r = k + 1; r < rows.n; ++r) {
        double *row = rows.at(r);
        std::swap(row[k], row[column]);
        if (eliminate) {
            row[k] = row[k] / pivot[k];
        }
        for (uint32_t j = k + 1; j < rows.n; ++j) {
            if (eliminate) {
                row[j] = row[j] - row[k] * pivot[j];
            }
            _matrix_lu_offer(&next, fabs(row[j]), r);
        }
    }
    return next;
}

// The exchanges of columns in the rows that were finished before: those of each later step.
static void _matrix_lu_exchange_finished(const matrix_lu *lu)
{
    const uint32_t n = lu->matrix->nrows;
    for (uint32_t r = 0; r < n; ++r) {
        double *row = lu->matrix->values[r];
        for (uint32_t k = r + 1; k < n; ++k) {
            std::swap(row[k], row[_matrix_index_at(lu->q, k)]);
        }
    }
}

// ---- steps by the kernels ----

// The rows on boundaries, with elements behind their ends that no pivot is taken from.
class lu_work_area
{
public:
    explicit lu_work_area(uint32_t n)
        : n_(n), stride_(stride_for(n)), rows_(_matrix_allocate_scratch(n, stride_)),
          places_(allocate_places(n))
    {
    }

    explicit operator bool() const { return rows_ && places_; }
    lu_rows rows() const { return {rows_.get(), stride_, n_}; }

    void fill(const matrix *m)
    {
        for (uint32_t r = 0; r < n_; ++r) {
            double *row = rows().at(r);
            std::fill(std::copy_n(m->values[r], n_, row), row + stride_, NAN);
        }
    }

    // Copies the rows back, with the exchanges of columns that each of them has missed.
    void finish(const matrix_lu *lu);

private:
    // Whole vectors of every level; no power of two apart, because then rows would meet in the same
    // few places of a cache.
    static std::size_t stride_for(uint32_t n)
    {
        const std::size_t padded = (n + std::size_t{lu_unit} - 1) / lu_unit * lu_unit;
        return padded % (8 * lu_unit) == 0 ? padded + lu_unit : padded;
    }

    static uint32_t *allocate_places(uint32_t n)
    {
        std::size_t size = 0;
        return multiply_sizes(&size, n, 2 * sizeof(uint32_t))
                   ? static_cast<uint32_t *>(malloc(size))
                   : nullptr;
    }

    uint32_t n_;
    std::size_t stride_;
    owned_memory<double> rows_;
    owned_memory<uint32_t> places_; // n sources of columns, then what each column is the source of
};

// Row r misses the exchanges of the steps behind r. Going up, each row puts one more in front of
// those of the row below it, so the places that the columns come from are known at each row.
void lu_work_area::finish(const matrix_lu *lu)
{
    uint32_t *source = places_.get();
    uint32_t *target = source + n_;
    std::iota(source, source + n_, 0U);
    std::iota(target, target + n_, 0U);
    for (uint32_t r = n_; r-- > 0;) {
        const double *from = rows().at(r);
        double *to = lu->matrix->values[r];
        std::copy_n(from, r + 1, to);
        for (uint32_t j = r + 1; j < n_; ++j) {
            to[j] = from[source[j]];
        }
        const uint32_t other = _matrix_index_at(lu->q, r);
        std::swap(source[target[r]], source[target[other]]);
        std::swap(target[r], target[other]);
    }
}

// ---- factorisation ----

// The pivot of step k: the element found first, row by row, among those of the largest magnitude. A
// NaN at (k, k) stays, because no magnitude exceeds it.
static void _matrix_lu_choose_pivot(matrix_lu *lu, const lu_rows &rows, uint32_t k,
                                    const pivot_row &largest)
{
    uint32_t row = k;
    uint32_t column = k;
    if (!std::isnan(rows.at(k)[k]) && largest.magnitude >= 0.0) {
        row = largest.row;
        while (fabs(rows.at(row)[column]) != largest.magnitude) {
            ++column;
        }
    }
    lu->p->values[k][0] = row;
    lu->q->values[k][0] = column;
}

static void _matrix_lu_exchange_pivot(const matrix_lu *lu, const lu_rows &rows, uint32_t k)
{
    double *pivot = rows.at(k);
    double *other = rows.at(_matrix_index_at(lu->p, k));
    if (other != pivot) {
        std::swap_ranges(pivot, pivot + rows.n, other);
    }
    std::swap(pivot[k], pivot[_matrix_index_at(lu->q, k)]);
}

static void _matrix_lu_eliminate(matrix_lu *lu, const lu_rows &rows, bool by_kernels)
{
    pivot_row largest;
    for (uint32_t r = 0; r < rows.n; ++r) {
        _matrix_lu_offer(&largest, _matrix_kernels().largest_magnitude(rows.at(r), rows.n), r);
    }
    for (uint32_t k = 0; k < rows.n; ++k) {
        _matrix_lu_choose_pivot(lu, rows, k, largest);
        _matrix_lu_exchange_pivot(lu, rows, k);
        const double pivot = rows.at(k)[k];
        const bool eliminate = fabs(pivot) > matrix_value_unit_roundoff();
        if (eliminate) {
            lu->rank = k + 1;
        }
        lu->det = lu->det * pivot;
        const uint32_t column = _matrix_index_at(lu->q, k);
        largest = eliminate && by_kernels
                      ? _matrix_kernels().eliminate(rows.first, rows.stride, rows.n, k, column)
                      : _matrix_lu_step_in_place(rows, k, column, eliminate);
    }
}

void _matrix_lu_factorise(matrix_lu *lu)
{
    const uint32_t n = lu->matrix->nrows;
    lu_work_area area(n);
    if (!area) {
        _matrix_lu_eliminate(lu, {lu->matrix->values[0], n, n}, false);
        _matrix_lu_exchange_finished(lu);
        return;
    }
    area.fill(lu->matrix);
    _matrix_lu_eliminate(lu, area.rows(), true);
    area.finish(lu);
}
