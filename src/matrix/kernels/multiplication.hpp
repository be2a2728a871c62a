// Matrix multiplication: a tile of the result stays in registers while the depth passes by. Large
// operands are packed first, so that a tile reads memory in one run.
#ifndef VESK_MATRIX_KERNELS_MULTIPLICATION_HPP
#define VESK_MATRIX_KERNELS_MULTIPLICATION_HPP

#include "matrix/kernels/kernels.hpp"
#include "matrix/kernels/transposition.hpp"
#include "matrix/kernels/vectors.hpp"

// Every level has its own copy.
// NOLINTBEGIN(misc-definitions-in-headers)
namespace
{

constexpr size_t tile_columns = simd::tile_vectors * width;

struct tile_operands {
    const double *a;
    size_t a_row;
    size_t a_column;
    const double *b;
    size_t b_row;
    double *c;
    size_t c_row;
    size_t depth;
    bool resume;        // the tile holds the sums of an earlier block of the depth
    const double *next; // the tile of c to fetch meanwhile, or null
};

// A tile of Rows rows and Vectors vectors; of the last vector only the lanes of `last` exist when
// Edge is set.
template <size_t Rows, size_t Vectors, bool Edge>
void _tile(const tile_operands &t, simd::mask last)
{
    const auto load = [last](const double *from, size_t v) __attribute__((always_inline))
    {
        return Edge && v == Vectors - 1 ? simd::load(from + v * width, last)
                                        : simd::load(from + v * width);
    };
    simd::vector sum[Rows][Vectors];
#pragma GCC unroll 16
    for (size_t i = 0; i < Rows; ++i) {
#pragma GCC unroll 16
        for (size_t v = 0; v < Vectors; ++v) {
            sum[i][v] = t.resume ? load(t.c + i * t.c_row, v) : simd::fill(0.0);
        }
    }
    const double *a = t.a;
    const double *b = t.b;
    const auto step = [&]() __attribute__((always_inline))
    {
        simd::vector row[Vectors];
#pragma GCC unroll 16
        for (size_t v = 0; v < Vectors; ++v) {
            row[v] = load(b, v);
        }
#pragma GCC unroll 16
        for (size_t i = 0; i < Rows; ++i) {
            const simd::vector factor = simd::fill(a[i * t.a_row]);
#pragma GCC unroll 16
            for (size_t v = 0; v < Vectors; ++v) {
                sum[i][v] = simd::fused(factor, row[v], sum[i][v]);
            }
        }
        a += t.a_column;
        b += t.b_row;
    };
    size_t k = 0;
    if (t.next != nullptr) {
        // One line is fetched in each step: fetching all at once would delay the operands.
        constexpr size_t line = 8;
        constexpr size_t lines = (Vectors * width + line - 1) / line + 1;
        for (; k < smaller(Rows * lines, t.depth); ++k) {
            __builtin_prefetch(t.next + k / lines * t.c_row + k % lines * line, 1);
            step();
        }
    }
    for (; k < t.depth; ++k) {
        step();
    }
#pragma GCC unroll 16
    for (size_t i = 0; i < Rows; ++i) {
#pragma GCC unroll 16
        for (size_t v = 0; v < Vectors; ++v) {
            double *to = t.c + i * t.c_row + v * width;
            if (Edge && v == Vectors - 1) {
                simd::store(to, sum[i][v], last);
            } else {
                simd::store(to, sum[i][v]);
            }
        }
    }
}

// The functions for every shape of tile that occurs at the edges of a matrix.
struct tile_table {
    using function = void (*)(const tile_operands &, simd::mask);
    function at[simd::tile_rows][simd::tile_vectors][2] = {};

    template <size_t Rows, size_t Vectors>
    constexpr void add()
    {
        at[Rows - 1][Vectors - 1][0] = _tile<Rows, Vectors, false>;
        at[Rows - 1][Vectors - 1][1] = _tile<Rows, Vectors, true>;
        if constexpr (Vectors > 1) {
            add<Rows, Vectors - 1>();
        } else if constexpr (Rows > 1) {
            add<Rows - 1, simd::tile_vectors>();
        }
    }
    constexpr tile_table() { add<simd::tile_rows, simd::tile_vectors>(); }
};

constexpr tile_table tiles;

void _run_tile(const tile_operands &t, size_t rows, size_t columns)
{
    const size_t vectors = (columns + width - 1) / width;
    const size_t last = columns - (vectors - 1) * width;
    tiles.at[rows - 1][vectors - 1][last == width ? 0 : 1](t, simd::first_lanes(last));
}

// Operands as they lie; b must have its columns side by side.
void _multiply_unpacked(const matrix_view &a, const matrix_view &b, double *c, size_t c_row,
                        size_t m, size_t n, size_t depth)
{
    for (size_t j = 0; j < n; j += tile_columns) {
        for (size_t i = 0; i < m; i += simd::tile_rows) {
            _run_tile({a.base + i * a.row, a.row, a.column, b.base + j, b.row, c + i * c_row + j,
                       c_row, depth, false, nullptr},
                      smaller(simd::tile_rows, m - i), smaller(tile_columns, n - j));
        }
    }
}

// Rows of `columns` elements, one after the other.
void _copy_rows(const double *from, size_t from_stride, double *to, size_t to_stride, size_t rows,
                size_t columns)
{
    for (size_t r = 0; r < rows; ++r, from += from_stride, to += to_stride) {
        const auto copy = [&](size_t j, auto lanes, size_t) __attribute__((always_inline))
        {
            _store(to + j, _load(from + j, lanes), lanes);
        };
        _visit_vectors(columns, copy);
    }
}

// `rows` x `columns` elements of a view, packed.
void _pack(const matrix_view &from, size_t rows, size_t columns, double *to, size_t to_stride)
{
    if (from.column == 1) {
        _copy_rows(from.base, from.row, to, to_stride, rows, columns);
    } else {
        _transpose_block(from.base, from.column, to, to_stride, rows, columns);
    }
}

// b in slivers of tile_columns columns, row after row, so that a tile reads memory in one run.
void _pack_columns(const matrix_view &b, size_t depth, size_t n, double *to)
{
    for (size_t j = 0; j < n; j += tile_columns) {
        _pack({b.base + j * b.column, b.row, b.column}, depth, smaller(tile_columns, n - j), to,
              tile_columns);
        to += tile_columns * depth;
    }
}

// a in slivers of tile_rows rows, column after column.
void _pack_rows(const matrix_view &a, size_t m, size_t depth, double *to)
{
    for (size_t i = 0; i < m; i += simd::tile_rows) {
        _pack({a.base + i * a.row, a.column, a.row}, depth, smaller(simd::tile_rows, m - i), to,
              simd::tile_rows);
        to += simd::tile_rows * depth;
    }
}

// Blocks of a (256 KB with AVX-512, 384 KB with AVX2) stay in a second-level cache of 1 MB, slivers
// of b in the first-level cache where they fit (24 KB with AVX2; the 96 KB of AVX-512 do not). The
// sums of a block of the depth are carried in c to the next one.
void _multiply_packed(const matrix_view &a, const matrix_view &b, double *c, size_t c_row, size_t m,
                      size_t n, size_t depth, double *scratch)
{
    double *rows = scratch;
    double *columns = scratch + simd::block_rows * smaller(depth, simd::block_depth);
    for (size_t j0 = 0; j0 < n; j0 += simd::block_columns) {
        const size_t nj = smaller(simd::block_columns, n - j0);
        for (size_t k0 = 0; k0 < depth; k0 += simd::block_depth) {
            const size_t nk = smaller(simd::block_depth, depth - k0);
            _pack_columns({b.base + k0 * b.row + j0 * b.column, b.row, b.column}, nk, nj, columns);
            for (size_t i0 = 0; i0 < m; i0 += simd::block_rows) {
                const size_t ni = smaller(simd::block_rows, m - i0);
                _pack_rows({a.base + i0 * a.row + k0 * a.column, a.row, a.column}, ni, nk, rows);
                for (size_t j = 0; j < nj; j += tile_columns) {
                    for (size_t i = 0; i < ni; i += simd::tile_rows) {
                        double *tile = c + (i0 + i) * c_row + j0 + j;
                        const bool last = ni - i <= simd::tile_rows;
                        _run_tile({rows + i * nk, 1, simd::tile_rows, columns + j * nk,
                                   tile_columns, tile, c_row, nk, k0 > 0,
                                   last ? nullptr : tile + simd::tile_rows * c_row},
                                  smaller(simd::tile_rows, ni - i), smaller(tile_columns, nj - j));
                    }
                }
            }
        }
    }
}

// Below this many elements (1 MB of them, a second-level cache) b stays in the cache as it lies,
// and packing costs more than it brings.
constexpr size_t unpacked_elements = size_t(1) << 17;

size_t _multiply_scratch(size_t, size_t n, size_t depth)
{
    if (n * depth < unpacked_elements) {
        return 0;
    }
    const size_t columns = smaller(n + tile_columns - 1, simd::block_columns);
    return smaller(depth, simd::block_depth) * (simd::block_rows + columns);
}

void _multiply_slowly(const matrix_view &a, const matrix_view &b, double *c, size_t c_row, size_t m,
                      size_t n, size_t depth)
{
    for (size_t i = 0; i < m; ++i) {
        for (size_t j = 0; j < n; ++j) {
            double sum = 0.0;
            for (size_t k = 0; k < depth; ++k) {
                sum = __builtin_fma(a.base[i * a.row + k * a.column],
                                    b.base[k * b.row + j * b.column], sum);
            }
            c[i * c_row + j] = sum;
        }
    }
}

void _multiply(const matrix_view &a, const matrix_view &b, double *c, size_t c_row, size_t m,
               size_t n, size_t depth, double *scratch)
{
    if (scratch != nullptr) {
        _multiply_packed(a, b, c, c_row, m, n, depth, scratch);
    } else if (b.column == 1) {
        _multiply_unpacked(a, b, c, c_row, m, n, depth);
    } else {
        _multiply_slowly(a, b, c, c_row, m, n, depth);
    }
}

} // namespace
// NOLINTEND(misc-definitions-in-headers)

#endif
