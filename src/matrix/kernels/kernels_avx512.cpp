// The level of processors with AVX-512: vectors of eight elements. The build compiles this file for
// such processors; on others it is not called.
#include "matrix/kernels/kernels.hpp"

#ifdef __AVX512F__

#include "matrix/kernels/kernels_avx.hpp"

namespace
{

struct simd {
    static constexpr const char *name = "avx512";
    static constexpr std::size_t width = 8;
    // 24 sums, three vectors of b and a factor leave four registers to spare.
    static constexpr std::size_t tile_rows = 8;
    static constexpr std::size_t tile_vectors = 3;
    // 64 x 512 doubles of a are 256 KB: a quarter of a second-level cache of 1 MB.
    static constexpr std::size_t block_depth = 512;
    static constexpr std::size_t block_rows = 64;
    static constexpr std::size_t block_columns = 4080;
    static constexpr std::size_t triangle_rows = 8;
    static constexpr std::size_t triangle_vectors = 2;
    static constexpr std::size_t elimination_rows = 4;
    static constexpr std::size_t two_eliminations_rows = 4;
    static constexpr std::size_t moment_vectors = 4;

    using vector = __m512d;
    using mask = __mmask8;

    static void transpose(vector *rows)
    {
        // Pairs of elements, then pairs of pairs, then halves.
        vector pairs[8];
        for (int r = 0; r < 8; r += 2) {
            pairs[r] = _mm512_maskz_unpacklo_pd(0xff, rows[r], rows[r + 1]);
            pairs[r + 1] = _mm512_maskz_unpackhi_pd(0xff, rows[r], rows[r + 1]);
        }
        for (int r = 0; r < 2; ++r) {
            const vector low0 = _mm512_maskz_shuffle_f64x2(0xff, pairs[r], pairs[r + 2], 0x44);
            const vector low1 = _mm512_maskz_shuffle_f64x2(0xff, pairs[r + 4], pairs[r + 6], 0x44);
            const vector high0 = _mm512_maskz_shuffle_f64x2(0xff, pairs[r], pairs[r + 2], 0xee);
            const vector high1 = _mm512_maskz_shuffle_f64x2(0xff, pairs[r + 4], pairs[r + 6], 0xee);
            rows[r] = _mm512_maskz_shuffle_f64x2(0xff, low0, low1, 0x88);
            rows[r + 2] = _mm512_maskz_shuffle_f64x2(0xff, low0, low1, 0xdd);
            rows[r + 4] = _mm512_maskz_shuffle_f64x2(0xff, high0, high1, 0x88);
            rows[r + 6] = _mm512_maskz_shuffle_f64x2(0xff, high0, high1, 0xdd);
        }
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
    static bool any_as_large(vector v, vector than)
    {
        return _mm512_cmp_pd_mask(v, than, _CMP_GE_OQ) != 0;
    }
    // The largest element of a vector that holds no NaN.
    static double largest_lane(vector v)
    {
        return _largest_of_four(_mm256_max_pd(_mm512_maskz_extractf64x4_pd(0xf, v, 0),
                                              _mm512_maskz_extractf64x4_pd(0xf, v, 1)));
    }
    static vector choose(mask m, vector a, vector b) { return _mm512_mask_blend_pd(m, b, a); }
    static mask first_lanes(std::size_t n) { return static_cast<mask>((1U << n) - 1); }
};

} // namespace

#include "matrix/kernels/kernels_body.hpp"

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
