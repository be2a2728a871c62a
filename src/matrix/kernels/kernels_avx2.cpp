// The level of processors with AVX2 and fused multiply-add: vectors of four elements. The build
// compiles this file for such processors; on others it is not called.
#include "matrix/kernels/kernels.hpp"

#if defined __AVX2__ && defined __FMA__

#include "matrix/kernels/kernels_avx.hpp"

namespace
{

struct simd {
    static constexpr const char *name = "avx2";
    static constexpr std::size_t width = 4;
    // 12 sums, three vectors of b and a factor are the sixteen registers.
    static constexpr std::size_t tile_rows = 4;
    static constexpr std::size_t tile_vectors = 3;
    // 192 x 256 doubles of a are 384 KB: less than half of a second-level cache of 1 MB.
    static constexpr std::size_t block_depth = 256;
    static constexpr std::size_t block_rows = 192;
    static constexpr std::size_t block_columns = 4080;
    static constexpr std::size_t triangle_rows = 4;
    static constexpr std::size_t triangle_vectors = 2;
    static constexpr std::size_t elimination_rows = 4;
    static constexpr std::size_t two_eliminations_rows = 2;
    static constexpr std::size_t moment_vectors = 4;

    using vector = __m256d;
    using mask = __m256i;

    static void transpose(vector *rows)
    {
        const vector low01 = _mm256_unpacklo_pd(rows[0], rows[1]);
        const vector high01 = _mm256_unpackhi_pd(rows[0], rows[1]);
        const vector low23 = _mm256_unpacklo_pd(rows[2], rows[3]);
        const vector high23 = _mm256_unpackhi_pd(rows[2], rows[3]);
        rows[0] = _mm256_permute2f128_pd(low01, low23, 0x20);
        rows[1] = _mm256_permute2f128_pd(high01, high23, 0x20);
        rows[2] = _mm256_permute2f128_pd(low01, low23, 0x31);
        rows[3] = _mm256_permute2f128_pd(high01, high23, 0x31);
    }
    static vector fill(double x) { return _mm256_set1_pd(x); }
    static vector load(const double *from) { return _mm256_loadu_pd(from); }
    static vector load(const double *from, mask m) { return _mm256_maskload_pd(from, m); }
    static void store(double *to, vector v) { _mm256_storeu_pd(to, v); }
    static void store(double *to, vector v, mask m) { _mm256_maskstore_pd(to, m, v); }
    static vector add(vector a, vector b) { return _mm256_add_pd(a, b); }
    static vector subtract(vector a, vector b) { return _mm256_sub_pd(a, b); }
    static vector multiply(vector a, vector b) { return _mm256_mul_pd(a, b); }
    static vector divide(vector a, vector b) { return _mm256_div_pd(a, b); }
    static vector negate(vector v) { return _mm256_xor_pd(v, _mm256_set1_pd(-0.0)); }
    static vector fused(vector a, vector b, vector c) { return _mm256_fmadd_pd(a, b, c); }
    static vector magnitude(vector v) { return _mm256_andnot_pd(_mm256_set1_pd(-0.0), v); }
    // `kept` where the other is NaN.
    static vector larger(vector v, vector kept) { return _mm256_max_pd(v, kept); }
    static bool any_as_large(vector v, vector than)
    {
        return _mm256_movemask_pd(_mm256_cmp_pd(v, than, _CMP_GE_OQ)) != 0;
    }
    // The largest element of a vector that holds no NaN.
    static double largest_lane(vector v) { return _largest_of_four(v); }
    static vector choose(mask m, vector a, vector b)
    {
        return _mm256_blendv_pd(b, a, _mm256_castsi256_pd(m));
    }
    static mask first_lanes(std::size_t n)
    {
        return _mm256_cmpgt_epi64(_mm256_set1_epi64x(static_cast<long long>(n)),
                                  _mm256_setr_epi64x(0, 1, 2, 3));
    }
};

} // namespace

#include "matrix/kernels/kernels_body.hpp"

const matrix_kernels *_matrix_kernels_avx2()
{
    return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma") ? &level : nullptr;
}

#else

const matrix_kernels *_matrix_kernels_avx2()
{
    return nullptr;
}

#endif
