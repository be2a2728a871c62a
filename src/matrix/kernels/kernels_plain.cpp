// The level of every processor: vectors of one element, in plain C++. Its fused step is the fma()
// of the C library where the processor has none.
#include "matrix/kernels/kernels.hpp"

namespace
{

struct simd {
    static constexpr const char *name = "plain";
    static constexpr std::size_t width = 1;
    static constexpr std::size_t tile_rows = 4;
    static constexpr std::size_t tile_vectors = 4;
    // Choices: no processor is known on which this level would count.
    static constexpr std::size_t block_depth = 256;
    static constexpr std::size_t block_rows = 64;
    static constexpr std::size_t block_columns = 1024;
    static constexpr std::size_t triangle_rows = 1;
    static constexpr std::size_t triangle_vectors = 8;
    static constexpr std::size_t elimination_rows = 4;
    static constexpr std::size_t two_eliminations_rows = 4;
    static constexpr std::size_t moment_vectors = 8;

    using vector = double;
    using mask = bool;

    static void transpose(vector *) {}
    static vector fill(double x) { return x; }
    static vector load(const double *from) { return *from; }
    static vector load(const double *from, mask) { return *from; }
    static void store(double *to, vector v) { *to = v; }
    static void store(double *to, vector v, mask) { *to = v; }
    static vector add(vector a, vector b) { return a + b; }
    static vector subtract(vector a, vector b) { return a - b; }
    static vector multiply(vector a, vector b) { return a * b; }
    static vector divide(vector a, vector b) { return a / b; }
    static vector negate(vector v) { return -v; }
    static vector fused(vector a, vector b, vector c) { return __builtin_fma(a, b, c); }
    static vector magnitude(vector v) { return __builtin_fabs(v); }
    // `kept` where the other is NaN.
    static vector larger(vector v, vector kept) { return v > kept ? v : kept; }
    static bool any_as_large(vector v, vector than) { return v >= than; }
    // The largest element of a vector that holds no NaN.
    static double largest_lane(vector v) { return v; }
    static vector choose(mask m, vector a, vector b) { return m ? a : b; }
    static mask first_lanes(std::size_t n) { return n > 0; }
};

} // namespace

#include "matrix/kernels/kernels_body.hpp"

const matrix_kernels *_matrix_kernels_plain()
{
    return &level;
}
