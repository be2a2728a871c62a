// A step of an elimination with full pivoting (the rows below the pivot row lose multiples of it),
// which finds the next pivot on the way, and the search for the largest magnitude of a row.
#ifndef VESK_MATRIX_KERNELS_ELIMINATION_HPP
#define VESK_MATRIX_KERNELS_ELIMINATION_HPP

#include "matrix/kernels/kernels.hpp"
#include "matrix/kernels/vectors.hpp"

// Every level has its own copy.
// NOLINTBEGIN(misc-definitions-in-headers)
namespace
{

// What a visit of the rows does: one step, one step of which nothing but the factors is written, or
// the step before, which was not written, and one more.
enum class visit { one_step, unwritten_step, two_steps };

// Step k goes on in the columns behind k, from the vector on that holds the first of them. The
// `passed` lanes of that vector lie before them.
struct elimination {
    double *rows;
    size_t stride;
    size_t n;
    size_t k;
    size_t column;
    size_t begin;
    simd::mask passed;

    double *row(size_t r) const { return rows + r * stride; }
};

elimination _elimination_of(double *rows, size_t stride, size_t n, size_t k, size_t column)
{
    const size_t begin = (k + 1) / width * width;
    return {rows, stride, n, k, column, begin, simd::first_lanes(k + 1 - begin)};
}

// Exchanges the columns and turns column k into the factors of `count` rows.
template <visit What>
inline void _find_factors(const elimination &step, size_t first, size_t count)
{
    const size_t k = step.k;
    for (size_t r = first; r < first + count; ++r) {
        double *row = step.row(r);
        double exchanged = row[step.column];
        row[step.column] = row[k];
        if (What == visit::two_steps) {
            exchanged = exchanged - row[k - 1] * step.row(k - 1)[k];
        }
        row[k] = exchanged / step.row(k)[k];
    }
}

// What rows that are visited together lose to the pivot rows, and the magnitudes that are left.
template <size_t Rows>
struct visited_rows {
    double *first;
    simd::vector factor[Rows];
    simd::vector factor_before[Rows]; // of the step before
    simd::vector largest[Rows];
};

// One vector of each row.
template <visit What, bool First, size_t Rows>
[[gnu::always_inline]] inline void _eliminate_vector(const elimination &step, size_t j,
                                                     visited_rows<Rows> &rows)
{
    const simd::vector pivot = simd::load(step.row(step.k) + j);
    const simd::vector pivot_before =
        What == visit::two_steps ? simd::load(step.row(step.k - 1) + j) : pivot;
#pragma GCC unroll 8
    for (size_t r = 0; r < Rows; ++r) {
        double *at = rows.first + r * step.stride + j;
        const simd::vector found = simd::load(at);
        simd::vector x = found;
        if (What == visit::two_steps) {
            x = simd::subtract(x, simd::multiply(rows.factor_before[r], pivot_before));
        }
        x = simd::subtract(x, simd::multiply(rows.factor[r], pivot));
        const simd::vector grown = simd::larger(simd::magnitude(x), rows.largest[r]);
        if (What != visit::unwritten_step) {
            simd::store(at, First ? simd::choose(step.passed, found, x) : x);
        }
        rows.largest[r] = First ? simd::choose(step.passed, rows.largest[r], grown) : grown;
    }
}

enum class direction { down, up };

// Of rows that are equally good the first one, from top to bottom, is taken.
template <size_t Rows>
[[gnu::noinline]] void _offer_rows(const visited_rows<Rows> &rows, size_t row, direction order,
                                   pivot_row *next)
{
    for (size_t i = 0; i < Rows; ++i) {
        const size_t r = order == direction::down ? i : Rows - 1 - i;
        const double magnitude = simd::largest_lane(rows.largest[r]);
        if (magnitude > next->magnitude ||
            (order == direction::up && magnitude == next->magnitude)) {
            *next = {magnitude, static_cast<uint32_t>(row + r)};
        }
    }
}

// `Rows` rows from `row` on, whose factors stand in column k. Which of them has the largest
// magnitude is only looked at when one is as large as those before.
template <visit What, size_t Rows>
[[gnu::always_inline]] inline void _eliminate_rows(const elimination &step, size_t row,
                                                   direction order, pivot_row *next)
{
    visited_rows<Rows> rows;
    rows.first = step.row(row);
#pragma GCC unroll 8
    for (size_t r = 0; r < Rows; ++r) {
        const double *factor = rows.first + r * step.stride + step.k;
        rows.factor[r] = simd::fill(*factor);
        if (What == visit::two_steps) {
            rows.factor_before[r] = simd::fill(factor[-1]);
        }
        rows.largest[r] = simd::fill(-1.0);
    }
    size_t j = step.begin;
    _eliminate_vector<What, true>(step, j, rows);
    for (j += width; j < step.n; j += width) {
        _eliminate_vector<What, false>(step, j, rows);
    }
    simd::vector of_all = rows.largest[0];
#pragma GCC unroll 8
    for (size_t r = 1; r < Rows; ++r) {
        of_all = simd::larger(rows.largest[r], of_all);
    }
    if (simd::any_as_large(of_all, simd::fill(next->magnitude))) {
        // A copy, so that the rows themselves stay in registers.
        const visited_rows<Rows> kept = rows;
        _offer_rows(kept, row, order, next);
    }
}

// From the first row to the last one.
template <visit What, size_t Rows>
pivot_row _visit_downwards(const elimination &step)
{
    const size_t n = step.n;
    pivot_row next;
    size_t row = step.k + 1;
    // One group ahead: a vector that is loaded right behind a store into a part of it has to wait.
    _find_factors<What>(step, row, smaller(Rows, n - row));
    for (; row + Rows <= n; row += Rows) {
        const size_t ahead = row + Rows;
        _find_factors<What>(step, ahead, smaller(Rows, n - ahead));
        _eliminate_rows<What, Rows>(step, row, direction::down, &next);
    }
    for (; row < n; ++row) {
        _eliminate_rows<What, 1>(step, row, direction::down, &next);
    }
    return next;
}

// From the last row to the first one.
template <visit What, size_t Rows>
pivot_row _visit_upwards(const elimination &step)
{
    const size_t end = step.k + 1;
    pivot_row next;
    size_t row = step.n;
    size_t ahead = row - smaller(Rows, row - end);
    _find_factors<What>(step, ahead, row - ahead);
    while (row - end >= Rows) {
        row = ahead;
        ahead = row - smaller(Rows, row - end);
        _find_factors<What>(step, ahead, row - ahead);
        _eliminate_rows<What, Rows>(step, row, direction::up, &next);
    }
    while (row > end) {
        --row;
        _eliminate_rows<What, 1>(step, row, direction::up, &next);
    }
    return next;
}

// Every other visit goes upwards, because of many rows those that were visited last are still in
// the cache.
template <visit What, size_t Rows>
pivot_row _visit_rows(const elimination &step)
{
    return step.k % 2 == 0 ? _visit_downwards<What, Rows>(step) : _visit_upwards<What, Rows>(step);
}

pivot_row _eliminate(double *rows, size_t stride, size_t n, size_t k, size_t column, bool write)
{
    const elimination step = _elimination_of(rows, stride, n, k, column);
    return write ? _visit_rows<visit::one_step, simd::elimination_rows>(step)
                 : _visit_rows<visit::unwritten_step, simd::elimination_rows>(step);
}

pivot_row _eliminate_two(double *rows, size_t stride, size_t n, size_t k, size_t column)
{
    return _visit_rows<visit::two_steps, simd::two_eliminations_rows>(
        _elimination_of(rows, stride, n, k, column));
}

double _largest_magnitude(const double *row, size_t n)
{
    simd::vector largest = simd::fill(-1.0);
    size_t j = 0;
    for (; j + width <= n; j += width) {
        largest = simd::larger(simd::magnitude(simd::load(row + j)), largest);
    }
    if (j < n) {
        const simd::mask lanes = simd::first_lanes(n - j);
        largest = simd::choose(
            lanes, simd::larger(simd::magnitude(simd::load(row + j, lanes)), largest), largest);
    }
    return simd::largest_lane(largest);
}

} // namespace
// NOLINTEND(misc-definitions-in-headers)

#endif
