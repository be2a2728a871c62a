// The step of an elimination (a row loses a multiple of the pivot row), which finds the next pivot
// on the way, and the search for the largest magnitude of a row.
#ifndef VESK_MATRIX_KERNELS_ELIMINATION_HPP
#define VESK_MATRIX_KERNELS_ELIMINATION_HPP

#include "matrix/kernels/kernels.hpp"
#include "matrix/kernels/vectors.hpp"

// Every level has its own copy.
// NOLINTBEGIN(misc-definitions-in-headers)
namespace
{

// One vector of each row: the step of the elimination and the magnitudes that it leaves.
template <size_t Rows, bool Edge>
inline void _eliminate_vector(double *rows, size_t stride, const simd::vector *factor,
                              const double *pivot, simd::mask lanes, simd::vector *largest)
{
    const simd::vector p = Edge ? simd::load(pivot, lanes) : simd::load(pivot);
#pragma GCC unroll 4
    for (size_t r = 0; r < Rows; ++r) {
        double *at = rows + r * stride;
        const simd::vector x = simd::subtract(Edge ? simd::load(at, lanes) : simd::load(at),
                                              simd::multiply(factor[r], p));
        const simd::vector grown = simd::larger(simd::magnitude(x), largest[r]);
        if (Edge) {
            simd::store(at, x, lanes);
            largest[r] = simd::choose(lanes, grown, largest[r]);
        } else {
            simd::store(at, x);
            largest[r] = grown;
        }
    }
}

template <size_t Rows>
void _eliminate_in(double *rows, size_t stride, const double *factor, const double *pivot, size_t n,
                   double *largest)
{
    simd::vector factors[Rows];
    simd::vector magnitudes[Rows];
#pragma GCC unroll 4
    for (size_t r = 0; r < Rows; ++r) {
        factors[r] = simd::fill(factor[r]);
        magnitudes[r] = simd::fill(-1.0);
    }
    const simd::mask all = simd::first_lanes(width);
    size_t j = _elements_before_boundary(rows, n);
    if (j > 0) {
        _eliminate_vector<Rows, true>(rows, stride, factors, pivot, simd::first_lanes(j),
                                      magnitudes);
    }
    for (; j + width <= n; j += width) {
        _eliminate_vector<Rows, false>(rows + j, stride, factors, pivot + j, all, magnitudes);
    }
    if (j < n) {
        _eliminate_vector<Rows, true>(rows + j, stride, factors, pivot + j,
                                      simd::first_lanes(n - j), magnitudes);
    }
    for (size_t r = 0; r < Rows; ++r) {
        largest[r] = simd::largest_lane(magnitudes[r]);
    }
}

void _eliminate(double *rows, size_t stride, size_t count, const double *factor,
                const double *pivot, size_t n, double *largest)
{
    if (count == eliminate_rows) {
        _eliminate_in<eliminate_rows>(rows, stride, factor, pivot, n, largest);
        return;
    }
    for (size_t r = 0; r < count; ++r) {
        _eliminate_in<1>(rows + r * stride, stride, factor + r, pivot, n, largest + r);
    }
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
