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

// Where step k goes on: the columns behind k, from the vector on that holds the first of them. The
// `passed` lanes of that vector lie before them.
struct elimination {
    double *rows;
    size_t stride;
    const double *pivot;
    size_t k;
    size_t column;
    size_t begin;
    size_t end;
    simd::mask passed;
};

// Exchanges the columns and turns column k into the factors of `count` rows.
inline void _find_factors(const elimination &step, size_t row, size_t count)
{
    for (size_t r = row; r < row + count; ++r) {
        double *at = step.rows + r * step.stride;
        const double exchanged = at[step.column];
        at[step.column] = at[step.k];
        at[step.k] = exchanged / step.pivot[step.k];
    }
}

// One vector of each row: the step and the magnitudes that it leaves.
template <size_t Rows, bool First>
[[gnu::always_inline]] inline void _eliminate_vector(const elimination &step, double *rows,
                                                     size_t j, const simd::vector *factor,
                                                     simd::vector *largest)
{
    const simd::vector p = simd::load(step.pivot + j);
#pragma GCC unroll 8
    for (size_t r = 0; r < Rows; ++r) {
        double *at = rows + r * step.stride + j;
        const simd::vector before = simd::load(at);
        const simd::vector x = simd::subtract(before, simd::multiply(factor[r], p));
        const simd::vector grown = simd::larger(simd::magnitude(x), largest[r]);
        if (First) {
            simd::store(at, simd::choose(step.passed, before, x));
            largest[r] = simd::choose(step.passed, largest[r], grown);
        } else {
            simd::store(at, x);
            largest[r] = grown;
        }
    }
}

// Rows row .. row + Rows - 1, whose factors stand in column k. Which of them has the largest
// magnitude is only looked at when one is larger than those before.
template <size_t Rows>
inline void _eliminate_rows(const elimination &step, size_t row, pivot_row *next)
{
    double *rows = step.rows + row * step.stride;
    simd::vector factor[Rows];
    simd::vector largest[Rows];
#pragma GCC unroll 8
    for (size_t r = 0; r < Rows; ++r) {
        factor[r] = simd::fill(rows[r * step.stride + step.k]);
        largest[r] = simd::fill(-1.0);
    }
    size_t j = step.begin;
    _eliminate_vector<Rows, true>(step, rows, j, factor, largest);
    for (j += width; j < step.end; j += width) {
        _eliminate_vector<Rows, false>(step, rows, j, factor, largest);
    }
    simd::vector of_all = largest[0];
#pragma GCC unroll 8
    for (size_t r = 1; r < Rows; ++r) {
        of_all = simd::larger(largest[r], of_all);
    }
    if (!simd::any_larger(of_all, simd::fill(next->magnitude))) {
        return;
    }
    for (size_t r = 0; r < Rows; ++r) {
        const double magnitude = simd::largest_lane(largest[r]);
        if (magnitude > next->magnitude) {
            *next = {magnitude, static_cast<uint32_t>(row + r)};
        }
    }
}

pivot_row _eliminate(double *rows, size_t stride, size_t n, size_t k, size_t column)
{
    const size_t begin = (k + 1) / width * width;
    const elimination step = {rows,
                              stride,
                              rows + k * stride,
                              k,
                              column,
                              begin,
                              (n + width - 1) / width * width,
                              simd::first_lanes(k + 1 - begin)};
    constexpr size_t group = simd::elimination_rows;
    pivot_row next;
    size_t row = k + 1;
    // One group ahead: a vector that is loaded right behind a store into a part of it has to wait.
    _find_factors(step, row, smaller(group, n - row));
    for (; row + group <= n; row += group) {
        const size_t ahead = row + group;
        _find_factors(step, ahead, smaller(group, n - ahead));
        _eliminate_rows<group>(step, row, &next);
    }
    for (; row < n; ++row) {
        _eliminate_rows<1>(step, row, &next);
    }
    return next;
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
