// The inner loops of matrix arithmetic, once for each width of vector that a processor may have.
//
// All levels give the same bits, except those of a NaN, whose sign and payload depend on which
// operand the processor takes them from: they differ in how many columns they carry side by side,
// never in the order of operations inside one result. Where a product is fused with a sum the
// processor's fused instruction is used, or the C library's fma() where there is none; everywhere
// else the two steps round one after the other (the build forbids contraction).
#ifndef VESK_MATRIX_KERNELS_KERNELS_HPP
#define VESK_MATRIX_KERNELS_KERNELS_HPP

#include <cstddef>
#include <cstdint>

// The elements of a matrix in memory: element (i, j) is base[i * row + j * column]. Those of a
// transposed matrix are those of its source with the two strides exchanged.
struct matrix_view {
    double *base;
    std::size_t row;
    std::size_t column;
};

// What the distance of the rows that eliminate() works on is a multiple of: a vector of AVX-512.
inline constexpr std::size_t lu_unit = 8;

// Where the largest magnitude of some rows stands: the first row that has it, from top to bottom.
// -1.0 where there is nothing but NaN.
struct pivot_row {
    double magnitude = -1.0;
    uint32_t row = 0;
};

// How many columns of a triangular inverse are carried together (a choice: eight vectors of
// AVX-512), and what their number in memory is rounded up to (one such vector).
inline constexpr std::size_t panel_columns = 64;
inline constexpr std::size_t panel_unit = 8;

// What a fold adds to a sum for each element x, in the order of the elements: x, |x|, x * x fused,
// or the square of x - y, not fused.
enum class fold { elements, magnitudes, squares, squared_differences };

// The operands of a fold: `lines` lines of `n` elements. y is only read for differences; its lines
// have elements side by side, or one element for all where y_step is 0.
struct fold_operands {
    const double *x;
    std::size_t x_line;
    const double *y;
    std::size_t y_line;
    std::size_t y_step;
    std::size_t lines;
    std::size_t n;
};

// What becomes of an element when another one comes to it.
enum class arrival { replace, add, subtract };

struct matrix_kernels {
    const char *name;

    // The doubles of scratch memory that multiply() wants, 0 when it wants none.
    std::size_t (*multiply_scratch)(std::size_t m, std::size_t n, std::size_t depth);

    // c (m x n, rows c_row apart) = a (m x depth) times b (depth x n): each element is summed from
    // 0.0 in increasing depth, fused at each step. Without scratch (null) it is slower, and equal.
    void (*multiply)(const matrix_view &a, const matrix_view &b, double *c, std::size_t c_row,
                     std::size_t m, std::size_t n, std::size_t depth, double *scratch);

    // Step k of an elimination of n rows and columns with full pivoting, on rows that lie on
    // boundaries of cache lines, `stride` apart, a multiple of lu_unit; behind their n elements
    // stands NaN. In each row below k the elements k and `column` change places, element k is
    // divided by that of row k, and those behind it lose so many times those of row k, not fused;
    // where `write` is not set they stay as they are. Returns where the largest of these stands.
    pivot_row (*eliminate)(double *rows, std::size_t stride, std::size_t n, std::size_t k,
                           std::size_t column, bool write);
    // Step k on rows that step k - 1 has not written, which is made up for.
    pivot_row (*eliminate_two)(double *rows, std::size_t stride, std::size_t n, std::size_t k,
                               std::size_t column);

    // The largest magnitude among n elements, -1.0 when there is none but NaN.
    double (*largest_magnitude)(const double *row, std::size_t n);

    // Columns first .. first + columns - 1 of the inverse of the lower triangle of `factors` (n x
    // n, rows `stride` apart), whose diagonal counts as ones, from row `first` on: row i begins at
    // panel + i * panel_stride. Sums run from the diagonal of the column downwards, not fused. A
    // row of the panel has room for columns in multiples of panel_unit.
    void (*invert_lower)(const double *factors, std::size_t stride, std::size_t n,
                         std::size_t first, std::size_t columns, double *panel,
                         std::size_t panel_stride);
    // The same for the upper triangle with its diagonal, down to the diagonal of each column.
    void (*invert_upper)(const double *factors, std::size_t stride, std::size_t n,
                         std::size_t first, std::size_t columns, double *panel,
                         std::size_t panel_stride);

    // sum[l] goes on over the elements of line l.
    void (*fold_along)(fold what, const fold_operands &operands, double *sum);
    // sum[j] goes on over the elements j of all lines, in increasing line.
    void (*fold_across)(fold what, const fold_operands &operands, double *sum);

    // mean[j] and m2[j], the sum of the squares around it, of each column of m rows, by the
    // running-mean method (Welford 1962), where the rows or the columns lie in one piece. Both
    // results are zero before.
    void (*moments)(const matrix_view &x, std::size_t m, std::size_t n, double *mean, double *m2);

    // sum[i] goes on over the squares of x(i, j) - y(i, j), or of y(i, j) - x(i, j) where `from_y`
    // is set, in increasing j, not fused, where x has its columns and y its rows in one piece. The
    // two differ where the caller does not round to the nearest.
    void (*fold_differences)(const matrix_view &x, const matrix_view &y, bool from_y,
                             std::size_t nrows, std::size_t ncols, double *sum);

    // The transpose of n rows of m elements, from_stride apart, comes to m rows of n, to_stride
    // apart.
    void (*transpose)(arrival what, const double *from, std::size_t from_stride, double *to,
                      std::size_t to_stride, std::size_t m, std::size_t n);
};

// The levels, best first; null where this build or this processor has none.
const matrix_kernels *_matrix_kernels_avx512();
const matrix_kernels *_matrix_kernels_avx2();
const matrix_kernels *_matrix_kernels_plain();

// The best level of this processor, chosen once.
const matrix_kernels &_matrix_kernels();

// Makes everything use `kernels` from now on, or the best level again when null: for tests.
void _matrix_force_kernels(const matrix_kernels *kernels);

#endif
