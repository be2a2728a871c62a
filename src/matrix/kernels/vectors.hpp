// The vectors of a row: how a row of any length is loaded, stored and walked over by vectors.
// Shared by the inner loops in this folder, which kernels_body.hpp puts together.
#ifndef VESK_MATRIX_KERNELS_VECTORS_HPP
#define VESK_MATRIX_KERNELS_VECTORS_HPP

#include <cstddef>

#include "matrix/kernels/kernels.hpp"

// Every level has its own copy.
// NOLINTBEGIN(misc-definitions-in-headers)
namespace
{

using std::size_t;

constexpr size_t width = simd::width;

constexpr size_t smaller(size_t a, size_t b)
{
    return a < b ? a : b;
}

struct every_lane {
};

inline simd::vector _load(const double *from, every_lane)
{
    return simd::load(from);
}

inline simd::vector _load(const double *from, simd::mask lanes)
{
    return simd::load(from, lanes);
}

inline void _store(double *to, simd::vector v, every_lane)
{
    simd::store(to, v);
}

inline void _store(double *to, simd::vector v, simd::mask lanes)
{
    simd::store(to, v, lanes);
}

// Calls visit(begin, lanes, how many) for each vector of n elements; in line, so that what the
// visit carries along stays in registers.
template <typename Visit>
[[gnu::always_inline]] inline void _visit_vectors(size_t n, Visit visit)
{
    const size_t whole = n / width * width;
    for (size_t j = 0; j < whole; j += width) {
        visit(j, every_lane{}, width);
    }
    if (whole < n) {
        visit(whole, simd::first_lanes(n - whole), n - whole);
    }
}

// The elements before the first full vector that lies on a boundary of vectors: on long rows it
// pays to step over them, because a vector across two lines of the cache costs both. Measured with
// AVX-512 vectors, a decomposition of 1000 rows takes about a tenth longer without this. Where a
// row begins to be long is a choice.
size_t _elements_before_boundary(const double *row, size_t n)
{
    constexpr size_t long_row = 64;
    const size_t misplaced = reinterpret_cast<size_t>(row) / sizeof(double) % width;
    return n < long_row || misplaced == 0 ? 0 : width - misplaced;
}

// How many of n elements come first when a row is taken by vectors that lie on boundaries.
size_t _first_elements(const double *row, size_t n)
{
    const size_t before = _elements_before_boundary(row, n);
    return before > 0 ? before : smaller(width, n);
}

} // namespace
// NOLINTEND(misc-definitions-in-headers)

#endif
