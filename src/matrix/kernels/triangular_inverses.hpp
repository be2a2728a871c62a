// The inverses of triangles, a panel of columns at a time: the columns lie side by side in vectors,
// and a mask keeps those out whose diagonal is not yet reached.
#ifndef VESK_MATRIX_KERNELS_TRIANGULAR_INVERSES_HPP
#define VESK_MATRIX_KERNELS_TRIANGULAR_INVERSES_HPP

#include "matrix/kernels/kernels.hpp"
#include "matrix/kernels/vectors.hpp"

// Every level has its own copy.
// NOLINTBEGIN(misc-definitions-in-headers)
namespace
{

// The lanes of vector `v` of a group of columns among its first `columns` columns.
inline simd::mask _lanes_before(size_t columns, size_t v)
{
    const size_t passed = v * width;
    return simd::first_lanes(columns <= passed ? 0 : smaller(columns - passed, width));
}

// Rows i .. i + Rows - 1 of the inverse of a lower triangle, in a group of columns that begins at
// the diagonal of row 0. Column j takes part from row j on.
template <size_t Rows, size_t Vectors>
void _invert_lower_rows(const double *triangle, size_t stride, double *panel, size_t panel_stride,
                        size_t i)
{
    constexpr size_t columns = Vectors * width;
    const double *factor = triangle + i * stride;
    simd::vector sum[Rows][Vectors];
#pragma GCC unroll 16
    for (size_t r = 0; r < Rows; ++r) {
#pragma GCC unroll 16
        for (size_t v = 0; v < Vectors; ++v) {
            sum[r][v] = simd::fill(0.0);
        }
    }
    size_t k = 0;
    for (; k < smaller(columns, i); ++k) {
        const double *row = panel + k * panel_stride;
#pragma GCC unroll 16
        for (size_t v = 0; v < Vectors; ++v) {
            const simd::mask lanes = _lanes_before(k + 1, v);
            const simd::vector x = simd::load(row + v * width);
#pragma GCC unroll 16
            for (size_t r = 0; r < Rows; ++r) {
                const simd::vector product = simd::multiply(simd::fill(factor[r * stride + k]), x);
                sum[r][v] = simd::choose(lanes, simd::add(sum[r][v], product), sum[r][v]);
            }
        }
    }
    for (; k < i; ++k) {
        const double *row = panel + k * panel_stride;
#pragma GCC unroll 16
        for (size_t r = 0; r < Rows; ++r) {
            const simd::vector f = simd::fill(factor[r * stride + k]);
#pragma GCC unroll 16
            for (size_t v = 0; v < Vectors; ++v) {
                sum[r][v] = simd::add(sum[r][v], simd::multiply(f, simd::load(row + v * width)));
            }
        }
    }
    // Each row that is done goes into those below it.
#pragma GCC unroll 16
    for (size_t r = 0; r < Rows; ++r) {
        const size_t begun = i + r;
#pragma GCC unroll 16
        for (size_t v = 0; v < Vectors; ++v) {
            const simd::mask lanes = _lanes_before(begun + 1, v);
            const simd::vector edge = simd::choose(lanes, simd::fill(1.0), simd::fill(0.0));
            const simd::vector done =
                simd::choose(_lanes_before(begun, v), simd::negate(sum[r][v]), edge);
            simd::store(panel + begun * panel_stride + v * width, done);
#pragma GCC unroll 16
            for (size_t s = r + 1; s < Rows; ++s) {
                const simd::vector f = simd::fill(factor[s * stride + begun]);
                sum[s][v] =
                    simd::choose(lanes, simd::add(sum[s][v], simd::multiply(f, done)), sum[s][v]);
            }
        }
    }
}

// Inverts the rows from i to n - 1, `Rows` at a time as long as so many remain, then fewer.
template <size_t Rows, size_t Vectors>
void _invert_lower_group(const double *triangle, size_t stride, size_t n, double *panel,
                         size_t panel_stride, size_t i)
{
    for (; i + Rows <= n; i += Rows) {
        _invert_lower_rows<Rows, Vectors>(triangle, stride, panel, panel_stride, i);
    }
    if constexpr (Rows > 1) {
        _invert_lower_group<Rows / 2, Vectors>(triangle, stride, n, panel, panel_stride, i);
    }
}

// As many vectors of columns at a time as there are, from column j to column end - 1.
template <size_t Vectors>
void _invert_lower_columns(const double *triangle, size_t stride, size_t n, double *panel,
                           size_t panel_stride, size_t j, size_t end)
{
    constexpr size_t columns = Vectors * width;
    for (; j < end && end - j > columns - width; j += columns) {
        _invert_lower_group<simd::triangle_rows, Vectors>(triangle + j * stride + j, stride, n - j,
                                                          panel + j * panel_stride + j,
                                                          panel_stride, 0);
    }
    if constexpr (Vectors > 1) {
        _invert_lower_columns<Vectors / 2>(triangle, stride, n, panel, panel_stride, j, end);
    }
}

void _invert_lower(const double *factors, size_t stride, size_t n, size_t first, size_t columns,
                   double *panel, size_t panel_stride)
{
    _invert_lower_columns<simd::triangle_vectors>(factors + first * stride + first, stride,
                                                  n - first, panel + first * panel_stride,
                                                  panel_stride, 0, columns);
}

// What rows k .. of an upper triangle add to the sums of row i in a group of columns that begins at
// `first`. From vector `Begin` on all columns are still beside the diagonal of row k.
template <size_t Vectors, size_t Begin>
[[gnu::always_inline]] inline void _add_upper_rows(simd::vector *sum, const double *factor,
                                                   const double *panel, size_t panel_stride,
                                                   size_t k, size_t first, size_t end)
{
    const size_t whole_end = smaller(first + Begin * width + 1, end);
    for (; k < whole_end; ++k) {
        const simd::vector f = simd::fill(factor[k]);
        const double *row = panel + k * panel_stride;
#pragma GCC unroll 16
        for (size_t v = Begin; v < Vectors; ++v) {
            sum[v] = simd::add(sum[v], simd::multiply(f, simd::load(row + v * width)));
        }
    }
    const size_t part_end = smaller(first + (Begin + 1) * width, end);
    for (; k < part_end; ++k) {
        const simd::vector f = simd::fill(factor[k]);
        const double *row = panel + k * panel_stride;
        const simd::mask ended = simd::first_lanes(k - first - Begin * width);
        sum[Begin] =
            simd::choose(ended, sum[Begin],
                         simd::add(sum[Begin], simd::multiply(f, simd::load(row + Begin * width))));
#pragma GCC unroll 16
        for (size_t v = Begin + 1; v < Vectors; ++v) {
            sum[v] = simd::add(sum[v], simd::multiply(f, simd::load(row + v * width)));
        }
    }
    if constexpr (Begin + 1 < Vectors) {
        _add_upper_rows<Vectors, Begin + 1>(sum, factor, panel, panel_stride, k, first, end);
    }
}

// Each row of the inverse of an upper triangle begins its sums with the row below it, so rows come
// one by one, from the last.
template <size_t Vectors>
void _invert_upper_group(const double *factors, size_t stride, size_t first, size_t end,
                         double *panel, size_t panel_stride)
{
    for (size_t i = end; i-- > 0;) {
        const double *factor = factors + i * stride;
        simd::vector sum[Vectors];
#pragma GCC unroll 16
        for (size_t v = 0; v < Vectors; ++v) {
            sum[v] = simd::fill(0.0);
        }
        _add_upper_rows<Vectors, 0>(sum, factor, panel, panel_stride, i + 1, first, end);
        const simd::vector diagonal = simd::fill(factor[i]);
        const simd::vector edge = simd::divide(simd::fill(1.0), diagonal);
        const size_t before = i < first ? 0 : i - first;
        const size_t passed = i < first ? 0 : before + 1;
#pragma GCC unroll 16
        for (size_t v = 0; v < Vectors; ++v) {
            const simd::vector to_diagonal =
                simd::choose(_lanes_before(before, v), simd::fill(0.0), edge);
            simd::store(panel + i * panel_stride + v * width,
                        simd::choose(_lanes_before(passed, v), to_diagonal,
                                     simd::divide(simd::negate(sum[v]), diagonal)));
        }
    }
}

template <size_t Vectors>
void _invert_upper_columns(const double *factors, size_t stride, size_t n, size_t first,
                           double *panel, size_t panel_stride, size_t j, size_t end)
{
    constexpr size_t columns = Vectors * width;
    for (; j < end && end - j > columns - width; j += columns) {
        _invert_upper_group<Vectors>(factors, stride, first + j, smaller(first + j + columns, n),
                                     panel + j, panel_stride);
    }
    if constexpr (Vectors > 1) {
        _invert_upper_columns<Vectors / 2>(factors, stride, n, first, panel, panel_stride, j, end);
    }
}

void _invert_upper(const double *factors, size_t stride, size_t n, size_t first, size_t columns,
                   double *panel, size_t panel_stride)
{
    _invert_upper_columns<8>(factors, stride, n, first, panel, panel_stride, 0, columns);
}

} // namespace
// NOLINTEND(misc-definitions-in-headers)

#endif
