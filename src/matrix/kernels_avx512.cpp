// The level of processors with AVX-512; the build compiles this file for them.
#include "matrix/kernels.hpp"

#ifdef __AVX512F__

#include "matrix/kernels_transpose.hpp"

namespace
{

struct simd {
    static constexpr const char *name = "avx512";
    static constexpr std::size_t width = 8;
    // 24 sums, three vectors of b and a factor leave four registers to spare.
    static constexpr std::size_t tile_rows = 8;
    static constexpr std::size_t tile_vectors = 3;
    static constexpr std::size_t block_depth = 320;
    static constexpr std::size_t block_rows = 192;
    static constexpr std::size_t block_columns = 4080;
    static constexpr std::size_t triangle_rows = 8;
    static constexpr std::size_t triangle_vectors = 2;

    static constexpr std::size_t square = 4;

    using vector = __m512d;
    using mask = __mmask8;

    static void transpose_square(const double *from, std::size_t from_stride, double *to,
                                 std::size_t to_stride)
    {
        _transpose_four(from, from_stride, to, to_stride);
    }
    static vector fill(double x) { return _mm512_set1_pd(x); }
    static vector load(const double *from) { return _mm512_loadu_pd(from); }
    static vector load(const double *from, mask m) { return _mm512_maskz_loadu_pd(m, from); }
    static void store(double *to, vector v) { _mm512_storeu_pd(to, v); }
    static void store(double *to, vector v, mask m) { _mm512_mask_storeu_pd(to, m, v); }
    static vector add(vector a, vector b) { return _mm512_add_pd(a, b); }
    static vector subtract(vector a, vector b) { return _mm512_sub_pd(a, b); }
    static vector multiply(vector a, vector b) { return _mm512_mul_pd(a, b); }
    static vector divide(vector a, vector b) { return _mm512_div_pd(a, b); }
    static vector negate(vector v)
    {
        return _mm512_castsi512_pd(
            _mm512_xor_si512(_mm512_castpd_si512(v), _mm512_castpd_si512(_mm512_set1_pd(-0.0))));
    }
    static vector fused(vector a, vector b, vector c) { return _mm512_fmadd_pd(a, b, c); }
    static vector magnitude(vector v) { return _mm512_abs_pd(v); }
    // `kept` where the other is NaN.
    static vector larger(vector v, vector kept) { return _mm512_mask_max_pd(kept, 0xff, v, kept); }
    // Of a vector without NaN.
    static double largest_lane(vector v)
    {
        return _largest_of_four(_mm256_max_pd(_mm512_maskz_extractf64x4_pd(0xf, v, 0),
                                              _mm512_maskz_extractf64x4_pd(0xf, v, 1)));
    }
    static vector choose(mask m, vector a, vector b) { return _mm512_mask_blend_pd(m, b, a); }
    static mask first_lanes(std::size_t n) { return static_cast<mask>((1U << n) - 1); }
};

} // namespace

#include "matrix/kernels_body.hpp"

const matrix_kernels *_matrix_kernels_avx512()
{
    return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("fma") ? &level : nullptr;
}

#else

const matrix_kernels *_matrix_kernels_avx512()
{
    return nullptr;
}

#endif
