// The transposition of one block of memory into another, by squares as wide as a vector. Squares at
// the edges, of which not every row or column exists, are loaded and stored with masks.
#ifndef VESK_MATRIX_KERNELS_TRANSPOSITION_HPP
#define VESK_MATRIX_KERNELS_TRANSPOSITION_HPP

#include "matrix/kernels/kernels.hpp"
#include "matrix/kernels/vectors.hpp"

// Every level has its own copy.
// NOLINTBEGIN(misc-definitions-in-headers)
namespace
{

template <arrival What>
inline simd::vector _arrive(simd::vector old, simd::vector x)
{
    if constexpr (What == arrival::add) {
        return simd::add(old, x);
    } else if constexpr (What == arrival::subtract) {
        return simd::subtract(old, x);
    } else {
        return x;
    }
}

// What is fetched beforehand: elements behind those read in a row (two lines of the cache), and
// rows behind the vectors of a square. Both are choices: half and twice as much measured no
// differently, within the noise of the machine.
constexpr size_t fetch_ahead = 16;
constexpr size_t fetch_rows = 8;

template <arrival What, bool Fetch>
inline void _transpose_square(const double *from, size_t from_stride, double *to, size_t to_stride)
{
    simd::vector square[width];
#pragma GCC unroll 16
    for (size_t r = 0; r < width; ++r) {
        square[r] = simd::load(from + r * from_stride);
        if (Fetch) {
            __builtin_prefetch(from + r * from_stride + fetch_ahead);
        }
    }
    simd::transpose(square);
#pragma GCC unroll 16
    for (size_t r = 0; r < width; ++r) {
        double *row = to + r * to_stride;
        if (Fetch) {
            __builtin_prefetch(row + fetch_rows * to_stride, 1);
        }
        const simd::vector old = What == arrival::replace ? square[r] : simd::load(row);
        simd::store(row, _arrive<What>(old, square[r]));
    }
}

// A square of which only m columns and n rows exist.
template <arrival What>
void _transpose_part(const double *from, size_t from_stride, double *to, size_t to_stride, size_t m,
                     size_t n)
{
    const simd::mask columns = simd::first_lanes(m);
    const simd::mask rows = simd::first_lanes(n);
    simd::vector square[width];
#pragma GCC unroll 16
    for (size_t r = 0; r < width; ++r) {
        square[r] = r < n ? simd::load(from + r * from_stride, columns) : simd::fill(0.0);
    }
    simd::transpose(square);
#pragma GCC unroll 16
    for (size_t r = 0; r < width; ++r) {
        if (r < m) {
            double *row = to + r * to_stride;
            const simd::vector old = What == arrival::replace ? square[r] : simd::load(row, rows);
            simd::store(row, _arrive<What>(old, square[r]), rows);
        }
    }
}

template <arrival What, bool Fetch>
inline void _transpose_corner(const double *from, size_t from_stride, double *to, size_t to_stride,
                              size_t m, size_t n)
{
    if (m >= width && n >= width) {
        _transpose_square<What, Fetch>(from, from_stride, to, to_stride);
    } else {
        _transpose_part<What>(from, from_stride, to, to_stride, smaller(width, m),
                              smaller(width, n));
    }
}

// Transposes a small block, from left to right in its rows.
void _transpose_block(const double *from, size_t from_stride, double *to, size_t to_stride,
                      size_t m, size_t n)
{
    for (size_t j = 0; j < n; j += width) {
        for (size_t i = 0; i < m; i += width) {
            _transpose_corner<arrival::replace, false>(from + j * from_stride + i, from_stride,
                                                       to + i * to_stride + j, to_stride, m - i,
                                                       n - j);
        }
    }
}

// Transposes in panels of rows of `from` and, within them, in groups of elements that fill a line
// of the cache.
template <arrival What>
void _transpose_panels(const double *from, size_t from_stride, double *to, size_t to_stride,
                       size_t m, size_t n)
{
    // A choice: a line of each of so many rows is 8 KB, which stays in the first-level cache.
    constexpr size_t panel = 128;
    for (size_t j0 = 0; j0 < n; j0 += panel) {
        size_t columns = _first_elements(from, m);
        for (size_t i = 0; i < m; i += columns, columns = smaller(width, m - i)) {
            for (size_t j = j0; j < smaller(j0 + panel, n); j += width) {
                _transpose_corner<What, (width > 1)>(from + j * from_stride + i, from_stride,
                                                     to + i * to_stride + j, to_stride, columns,
                                                     n - j);
            }
        }
    }
}

void _transpose(arrival what, const double *from, size_t from_stride, double *to, size_t to_stride,
                size_t m, size_t n)
{
    if (what == arrival::replace) {
        _transpose_panels<arrival::replace>(from, from_stride, to, to_stride, m, n);
    } else if (what == arrival::add) {
        _transpose_panels<arrival::add>(from, from_stride, to, to_stride, m, n);
    } else {
        _transpose_panels<arrival::subtract>(from, from_stride, to, to_stride, m, n);
    }
}

} // namespace
// NOLINTEND(misc-definitions-in-headers)

#endif
