// What the AVX2 and the AVX-512 level share: the largest of four elements, in which both end their
// search of a vector.
#ifndef VESK_MATRIX_KERNELS_KERNELS_AVX_HPP
#define VESK_MATRIX_KERNELS_KERNELS_AVX_HPP

#include <immintrin.h>

namespace
{

inline double _largest_of_four(__m256d v)
{
    const __m128d halves = _mm_max_pd(_mm256_castpd256_pd128(v), _mm256_extractf128_pd(v, 1));
    return _mm_cvtsd_f64(_mm_max_sd(halves, _mm_unpackhi_pd(halves, halves)));
}

} // namespace

#endif
