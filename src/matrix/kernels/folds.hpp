// Sums over the elements of lines: along a line (each line in its own lane) or across the lines
// (each column in its own lane), so that every sum takes its elements in order.
#ifndef VESK_MATRIX_KERNELS_FOLDS_HPP
#define VESK_MATRIX_KERNELS_FOLDS_HPP

#include "matrix/kernels/kernels.hpp"
#include "matrix/kernels/transposition.hpp"
#include "matrix/kernels/vectors.hpp"

// Every level has its own copy.
// NOLINTBEGIN(misc-definitions-in-headers)
namespace
{

// Whether a fold has x only.
template <fold What>
constexpr bool alone = What != fold::squared_differences;

// What each element gives to the sum, and how it comes to it.
template <fold What>
inline simd::vector _fold_term(simd::vector x, simd::vector y)
{
    if constexpr (What == fold::magnitudes) {
        return simd::magnitude(x);
    } else if constexpr (What == fold::squared_differences) {
        const simd::vector difference = simd::subtract(x, y);
        return simd::multiply(difference, difference);
    } else {
        return x;
    }
}

template <fold What>
inline simd::vector _fold_step(simd::vector sum, simd::vector term)
{
    if constexpr (What == fold::squares) {
        return simd::fused(term, term, sum);
    } else {
        return simd::add(sum, term);
    }
}

template <size_t N>
struct vectors {
    static constexpr size_t count = N;
};

// Calls visit(vectors, begin, n) for groups of lines: the most vectors of them first, and what does
// not fill a vector last.
template <size_t Vectors, typename Visit>
inline void _visit_groups(size_t lines, size_t begin, Visit visit)
{
    constexpr size_t group = Vectors * width;
    for (; begin + group <= lines || (Vectors == 1 && begin < lines); begin += group) {
        visit(vectors<Vectors>{}, begin, smaller(group, lines - begin));
    }
    if constexpr (Vectors > 1) {
        _visit_groups<Vectors / 2>(lines, begin, visit);
    }
}

// terms[c] becomes what element c of so many lines of x (and of y) gives, a line in each lane. Of
// lines that are not there nothing is read.
template <fold What, typename Lanes>
inline void _load_terms(const double *x, size_t x_line, const double *y, size_t y_line,
                        size_t lines, Lanes lanes, simd::vector *terms)
{
#pragma GCC unroll 16
    for (size_t l = 0; l < width; ++l) {
        const size_t line = smaller(l, lines - 1);
        __builtin_prefetch(x + line * x_line + fetch_ahead);
        const simd::vector from_x = _load(x + line * x_line, lanes);
        terms[l] = _fold_term<What>(from_x, alone<What> ? from_x : _load(y + line * y_line, lanes));
    }
    simd::transpose(terms);
}

// Lines side by side, because each waits for its last sum: vectors of them, turned round on the
// way.
template <fold What, size_t Vectors>
void _fold_group(const fold_operands &o, size_t begin, size_t lines, double *sum)
{
    const simd::mask some = simd::first_lanes(smaller(width, lines));
    simd::vector total[Vectors];
#pragma GCC unroll 16
    for (size_t v = 0; v < Vectors; ++v) {
        total[v] = simd::load(sum + begin + v * width, some);
    }
    const auto add_elements = [&](size_t j, auto lanes, size_t n) __attribute__((always_inline))
    {
        simd::vector terms[Vectors][width];
#pragma GCC unroll 16
        for (size_t v = 0; v < Vectors; ++v) {
            const size_t line = begin + v * width;
            const double *y = alone<What> ? nullptr : o.y + line * o.y_line + j;
            _load_terms<What>(o.x + line * o.x_line + j, o.x_line, y, o.y_line, lines - v * width,
                              lanes, terms[v]);
        }
        for (size_t c = 0; c < n; ++c) {
#pragma GCC unroll 16
            for (size_t v = 0; v < Vectors; ++v) {
                total[v] = _fold_step<What>(total[v], terms[v][c]);
            }
        }
    };
    _visit_vectors(o.n, add_elements);
#pragma GCC unroll 16
    for (size_t v = 0; v < Vectors; ++v) {
        simd::store(sum + begin + v * width, total[v], some);
    }
}

// So many lines go side by side, each with a sum of its own: a vector of AVX-512, two of AVX2. A
// choice.
constexpr size_t fold_lines = 8;

template <fold What>
void _fold_lines(const fold_operands &o, double *sum)
{
    const auto fold_group = [&](auto group, size_t begin, size_t lines) {
        _fold_group<What, decltype(group)::count>(o, begin, lines, sum);
    };
    _visit_groups<fold_lines / width>(o.lines, 0, fold_group);
}

// So many columns of sums are 8 KB (16 KB where a mean goes with each of them), which leaves at
// least half of a first-level cache of 32 KB to the elements.
constexpr size_t statistics_columns = 1024;

// Several lines on each visit of the sums. With Same, y has one element for all of a line.
template <fold What, size_t Lines, bool Same>
void _fold_into(const fold_operands &o, size_t line, size_t begin, size_t columns, double *sum)
{
    for (; line + Lines <= o.lines; line += Lines) {
        const double *x = o.x + line * o.x_line + begin;
        const double *y = alone<What> ? nullptr : o.y + line * o.y_line + (Same ? 0 : begin);
        const auto add_lines = [&](size_t j, auto lanes, size_t) __attribute__((always_inline))
        {
            simd::vector total = _load(sum + begin + j, lanes);
#pragma GCC unroll 8
            for (size_t l = 0; l < Lines; ++l) {
                const simd::vector from_x = _load(x + l * o.x_line + j, lanes);
                const simd::vector from_y = alone<What> ? from_x
                                            : Same      ? simd::fill(y[l * o.y_line])
                                                        : _load(y + l * o.y_line + j, lanes);
                total = _fold_step<What>(total, _fold_term<What>(from_x, from_y));
            }
            _store(sum + begin + j, total, lanes);
        };
        _visit_vectors(columns, add_lines);
    }
    if constexpr (Lines > 1) {
        _fold_into<What, Lines / 2, Same>(o, line, begin, columns, sum);
    }
}

template <fold What>
void _fold_columns(const fold_operands &o, double *sum)
{
    for (size_t j = 0; j < o.n; j += statistics_columns) {
        const size_t columns = smaller(statistics_columns, o.n - j);
        if (!alone<What> && o.y_step == 0) {
            _fold_into<What, 4, true>(o, 0, j, columns, sum);
        } else {
            _fold_into<What, 4, false>(o, 0, j, columns, sum);
        }
    }
}

template <fold... All>
void _fold_any_along(fold what, const fold_operands &o, double *sum)
{
    ((what == All ? _fold_lines<All>(o, sum) : void()), ...);
}

template <fold... All>
void _fold_any_across(fold what, const fold_operands &o, double *sum)
{
    ((what == All ? _fold_columns<All>(o, sum) : void()), ...);
}

void _fold_along(fold what, const fold_operands &o, double *sum)
{
    _fold_any_along<fold::elements, fold::magnitudes, fold::squares, fold::squared_differences>(
        what, o, sum);
}

void _fold_across(fold what, const fold_operands &o, double *sum)
{
    _fold_any_across<fold::elements, fold::magnitudes, fold::squares, fold::squared_differences>(
        what, o, sum);
}

// The rows of y are turned round in squares, so that a vector holds the same column of several rows
// of both.
template <bool FromY>
void _fold_differences_of(const matrix_view &x, const matrix_view &y, size_t nrows, size_t ncols,
                          double *sum)
{
    // A choice: a line of each of so many columns is 8 KB, which stays in the first-level cache.
    constexpr size_t panel = 128;
    for (size_t j0 = 0; j0 < ncols; j0 += panel) {
        const size_t end = smaller(j0 + panel, ncols);
        size_t rows = _first_elements(x.base, nrows);
        for (size_t i = 0; i < nrows; i += rows, rows = smaller(width, nrows - i)) {
            const simd::mask lanes = simd::first_lanes(rows);
            simd::vector total = simd::load(sum + i, lanes);
            for (size_t j = j0; j < end; j += width) {
                const size_t columns = smaller(width, end - j);
                simd::vector square[width];
#pragma GCC unroll 16
                for (size_t r = 0; r < width; ++r) {
                    const double *row = y.base + (i + r) * y.row + j;
                    square[r] = simd::fill(0.0);
                    if (r < rows) {
                        square[r] = simd::load(row, simd::first_lanes(columns));
                        __builtin_prefetch(row + fetch_rows * y.row);
                    }
                }
                simd::transpose(square);
#pragma GCC unroll 16
                for (size_t c = 0; c < width; ++c) {
                    if (c < columns) {
                        const double *column = x.base + (j + c) * x.column + i;
                        __builtin_prefetch(column + fetch_ahead);
                        const simd::vector from_x = simd::load(column, lanes);
                        total = _fold_step<fold::squared_differences>(
                            total, FromY
                                       ? _fold_term<fold::squared_differences>(square[c], from_x)
                                       : _fold_term<fold::squared_differences>(from_x, square[c]));
                    }
                }
            }
            simd::store(sum + i, total, lanes);
        }
    }
}

void _fold_differences(const matrix_view &x, const matrix_view &y, bool from_y, size_t nrows,
                       size_t ncols, double *sum)
{
    if (from_y) {
        _fold_differences_of<true>(x, y, nrows, ncols, sum);
    } else {
        _fold_differences_of<false>(x, y, nrows, ncols, sum);
    }
}

} // namespace
// NOLINTEND(misc-definitions-in-headers)

#endif
