// The mean of each column and the sum of the squares around it, by the running-mean method
// (Welford 1962), each column in its own lane.
#ifndef VESK_MATRIX_KERNELS_MOMENTS_HPP
#define VESK_MATRIX_KERNELS_MOMENTS_HPP

#include "matrix/kernels/folds.hpp"
#include "matrix/kernels/kernels.hpp"
#include "matrix/kernels/vectors.hpp"

// Every level has its own copy.
// NOLINTBEGIN(misc-definitions-in-headers)
namespace
{

// Adds the next element of each column to its mean and to its sum of squares.
inline void _add_to_moments(simd::vector x, simd::vector count, simd::vector *mean,
                            simd::vector *m2)
{
    const simd::vector difference = simd::subtract(x, *mean);
    *mean = simd::add(*mean, simd::divide(difference, count));
    *m2 = simd::fused(difference, simd::subtract(x, *mean), *m2);
}

// Walks over the rows in the outer loop, because each row lies in one piece.
void _moments_across(const double *base, size_t stride, size_t m, size_t n, double *mean,
                     double *m2)
{
    double count = 0.0;
    for (size_t i = 0; i < m; ++i) {
        const double *row = base + i * stride;
        count += 1.0;
        const auto add_row = [&](size_t j, auto lanes, size_t) __attribute__((always_inline))
        {
            simd::vector means = _load(mean + j, lanes);
            simd::vector squares = _load(m2 + j, lanes);
            _add_to_moments(_load(row + j, lanes), simd::fill(count), &means, &squares);
            _store(mean + j, means, lanes);
            _store(m2 + j, squares, lanes);
        };
        _visit_vectors(n, add_row);
    }
}

// So many rows are turned round at a time, few columns after few: where columns lie a power of two
// apart, the cache has few places for the same row of all of them. A choice: the elements that were
// turned round take at most 16 KB.
constexpr size_t moment_rows = 64;

// Walks over the columns in the outer loop, because each column lies in one piece. Several columns
// go side by side, because each step of one waits for its last mean.
template <size_t Vectors>
void _moments_along(const double *base, size_t stride, size_t m, size_t n, double *mean, double *m2)
{
    simd::vector means[Vectors];
    simd::vector squares[Vectors];
#pragma GCC unroll 16
    for (size_t v = 0; v < Vectors; ++v) {
        means[v] = squares[v] = simd::fill(0.0);
    }
    double count = 0.0;
    for (size_t i = 0; i < m; i += moment_rows) {
        const size_t rows = smaller(moment_rows, m - i);
        simd::vector elements[Vectors][moment_rows];
#pragma GCC unroll 16
        for (size_t v = 0; v < Vectors; ++v) {
            const auto turn_round = [&](size_t r, auto lanes, size_t) __attribute__((always_inline))
            {
                _load_terms<fold::elements>(base + v * width * stride + i + r, stride, nullptr, 0,
                                            n - v * width, lanes, elements[v] + r);
            };
            _visit_vectors(rows, turn_round);
        }
        for (size_t r = 0; r < rows; ++r) {
            count += 1.0;
#pragma GCC unroll 16
            for (size_t v = 0; v < Vectors; ++v) {
                _add_to_moments(elements[v][r], simd::fill(count), &means[v], &squares[v]);
            }
        }
    }
    const simd::mask some = simd::first_lanes(smaller(width, n));
#pragma GCC unroll 16
    for (size_t v = 0; v < Vectors; ++v) {
        simd::store(mean + v * width, means[v], some);
        simd::store(m2 + v * width, squares[v], some);
    }
}

void _moments(const matrix_view &x, size_t m, size_t n, double *mean, double *m2)
{
    if (x.column != 1) {
        const auto add_group = [&](auto group, size_t j, size_t columns) {
            _moments_along<decltype(group)::count>(x.base + j * x.column, x.column, m, columns,
                                                   mean + j, m2 + j);
        };
        _visit_groups<simd::moment_vectors>(n, 0, add_group);
        return;
    }
    for (size_t j = 0; j < n; j += statistics_columns) {
        _moments_across(x.base + j, x.row, m, smaller(statistics_columns, n - j), mean + j, m2 + j);
    }
}

} // namespace
// NOLINTEND(misc-definitions-in-headers)

#endif
