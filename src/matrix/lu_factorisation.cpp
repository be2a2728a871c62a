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

// ---- what the rows have missed ----

// The exchanges of columns in rows that were factorised in place: those of each later step.
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

// ---- memory for the kernels ----

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

// The steps in their order. On many rows two steps are made in one visit of them: the first only
// finds the factors and the next pivot, and the rows are written with the second.
class lu_elimination
{
public:
    lu_elimination(matrix_lu *lu, const lu_rows &rows, bool by_kernels)
        : lu_(lu), rows_(rows), by_kernels_(by_kernels)
    {
        for (uint32_t r = 0; r < rows.n; ++r) {
            offer(&largest_, _matrix_kernels().largest_magnitude(rows.at(r), rows.n), r);
        }
    }

    void run()
    {
        for (uint32_t k = 0; k < rows_.n; ++k) {
            if (is_behind_ && !takes_found_row(k)) {
                catch_up(k);
            }
            choose_pivot(k);
            exchange(k);
            const double pivot = rows_.at(k)[k];
            const bool eliminate = fabs(pivot) > matrix_value_unit_roundoff();
            if (eliminate) {
                lu_->rank = k + 1;
            }
            lu_->det = lu_->det * pivot;
            step(k, eliminate);
        }
    }

private:
    // From so many rows on writing each of them once for two steps is worth the work that it
    // repeats: they do not fit into the first cache. A choice.
    static constexpr uint32_t many_rows = 128;

    static void offer(pivot_row *largest, double magnitude, uint32_t row)
    {
        if (magnitude > largest->magnitude) {
            *largest = {magnitude, row};
        }
    }

    uint32_t column_of(uint32_t k) const { return _matrix_index_at(lu_->q, k); }

    // What element (r, j) is once step k - 1 is made.
    double caught_up(uint32_t r, uint32_t k, uint32_t j) const
    {
        return rows_.at(r)[j] - rows_.at(r)[k - 1] * rows_.at(k - 1)[j];
    }

    void catch_up_row(uint32_t r, uint32_t k)
    {
        for (uint32_t j = k; j < rows_.n; ++j) {
            rows_.at(r)[j] = caught_up(r, k, j);
        }
    }

    void catch_up(uint32_t k)
    {
        for (uint32_t r = k; r < rows_.n; ++r) {
            catch_up_row(r, k);
        }
        is_behind_ = false;
    }

    // Whether step k eliminates, with a pivot from the row that was found.
    bool takes_found_row(uint32_t k) const
    {
        return !std::isnan(caught_up(k, k, k)) && largest_.magnitude > matrix_value_unit_roundoff();
    }

    // The element found first, row by row, among those of the largest magnitude. A NaN at (k, k)
    // stays, because no magnitude exceeds it.
    void choose_pivot(uint32_t k)
    {
        uint32_t row = k;
        uint32_t column = k;
        if (is_behind_) {
            catch_up_row(largest_.row, k);
        }
        if (is_behind_ || (!std::isnan(rows_.at(k)[k]) && largest_.magnitude >= 0.0)) {
            row = largest_.row;
            while (fabs(rows_.at(row)[column]) != largest_.magnitude) {
                ++column;
            }
        }
        lu_->p->values[k][0] = row;
        lu_->q->values[k][0] = column;
    }

    void exchange(uint32_t k)
    {
        double *pivot = rows_.at(k);
        double *other = rows_.at(_matrix_index_at(lu_->p, k));
        if (other != pivot) {
            std::swap_ranges(pivot, pivot + rows_.n, other);
        }
        std::swap(pivot[k], pivot[column_of(k)]);
    }

    void step(uint32_t k, bool eliminate)
    {
        const matrix_kernels &kernels = _matrix_kernels();
        const uint32_t column = column_of(k);
        if (is_behind_) {
            // For this visit the columns of the row above are where those of the others are.
            double *above = rows_.at(k - 1);
            std::swap(above[k], above[column]);
            largest_ = kernels.eliminate_two(rows_.first, rows_.stride, rows_.n, k, column);
            std::swap(above[k], above[column]);
            is_behind_ = false;
        } else if (eliminate && by_kernels_) {
            is_behind_ = rows_.n - k > many_rows;
            largest_ =
                kernels.eliminate(rows_.first, rows_.stride, rows_.n, k, column, !is_behind_);
        } else {
            step_in_place(k, column, eliminate);
        }
    }

    // Step k element by element, where row k is not worth eliminating with or where there is no
    // memory for the kernels.
    void step_in_place(uint32_t k, uint32_t column, bool eliminate)
    {
        const double *pivot = rows_.at(k);
        largest_ = {};
        for (uint32_t r = k + 1; r < rows_.n; ++r) {
            double *row = rows_.at(r);
            std::swap(row[k], row[column]);
            if (eliminate) {
                row[k] = row[k] / pivot[k];
            }
            for (uint32_t j = k + 1; j < rows_.n; ++j) {
                if (eliminate) {
                    row[j] = row[j] - row[k] * pivot[j];
                }
                offer(&largest_, fabs(row[j]), r);
            }
        }
    }

    matrix_lu *lu_;
    lu_rows rows_;
    bool by_kernels_;
    pivot_row largest_;      // of the rows and columns that are left
    bool is_behind_ = false; // what is left lacks the last step, but for its factors
};

void _matrix_lu_factorise(matrix_lu *lu)
{
    const uint32_t n = lu->matrix->nrows;
    lu_work_area area(n);
    if (!area) {
        lu_elimination(lu, {lu->matrix->values[0], n, n}, false).run();
        _matrix_lu_exchange_finished(lu);
        return;
    }
    area.fill(lu->matrix);
    lu_elimination(lu, area.rows(), true).run();
    area.finish(lu);
}
