// Shared by the levels that have vectors of four elements at least.
#ifndef VESK_MATRIX_KERNELS_TRANSPOSE_HPP
#define VESK_MATRIX_KERNELS_TRANSPOSE_HPP

#include <cstddef>
#include <immintrin.h>

namespace
{

// Four rows of four elements, exchanged with their columns.
inline void _transpose_four(const double *from, std::size_t from_stride, double *to,
                            std::size_t to_stride)
{
    const __m256d row0 = _mm256_loadu_pd(from);
    const __m256d row1 = _mm256_loadu_pd(from + from_stride);
    const __m256d row2 = _mm256_loadu_pd(from + 2 * from_stride);
    const __m256d row3 = _mm256_loadu_pd(from + 3 * from_stride);
    const __m256d low01 = _mm256_unpacklo_pd(row0, row1);
    const __m256d high01 = _mm256_unpackhi_pd(row0, row1);
    const __m256d low23 = _mm256_unpacklo_pd(row2, row3);
    const __m256d high23 = _mm256_unpackhi_pd(row2, row3);
    _mm256_storeu_pd(to, _mm256_permute2f128_pd(low01, low23, 0x20));
    _mm256_storeu_pd(to + to_stride, _mm256_permute2f128_pd(high01, high23, 0x20));
    _mm256_storeu_pd(to + 2 * to_stride, _mm256_permute2f128_pd(low01, low23, 0x31));
    _mm256_storeu_pd(to + 3 * to_stride, _mm256_permute2f128_pd(high01, high23, 0x31));
}

inline double _largest_of_four(__m256d v)
{
    const __m128d halves = _mm_max_pd(_mm256_castpd256_pd128(v), _mm256_extractf128_pd(v, 1));
    return _mm_cvtsd_f64(_mm_max_sd(halves, _mm_unpackhi_pd(halves, halves)));
}

} // namespace

#endif
