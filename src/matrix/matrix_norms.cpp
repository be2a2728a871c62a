// The norms of a matrix and its condition number. The order of additions is fixed, so that the bits
// are the same for every type of matrix and on every processor.
#include <algorithm>
#include <cstdint>
#include <math.h>

#include <vesk/matrix.h>
#include <vesk/matrix_lu.h>

#include "matrix/strided.hpp"
#include "support/owner.hpp"
#include "support/precondition.hpp"

// The sum of the squares, row by row: each waits for the one before. False where the elements do
// not lie in memory at even distances, or where memory lacks to turn some rows round.
static bool _matrix_sum_squares(const matrix *m, double *sum)
{
    matrix_view elements = {};
    if (!_matrix_find_view(m, &elements)) {
        return false;
    }
    const auto add_squares = [sum](const double *x, std::size_t n) {
        _matrix_kernels().fold_along(fold::squares, {x, 0, nullptr, 0, 1, 1, n}, sum);
    };
    if (elements.column == 1) {
        for (std::size_t i = 0; i < m->nrows; ++i) {
            add_squares(elements.base + i * elements.row, m->ncols);
        }
        return true;
    }
    // Four lines of the cache of each column at a time. A choice.
    constexpr uint32_t strip = 32;
    const owned_memory<double> rows(_matrix_allocate_scratch(strip, m->ncols));
    for (uint32_t i = 0; rows && i < m->nrows; i += strip) {
        const uint32_t height = std::min(strip, m->nrows - i);
        _matrix_kernels().transpose(arrival::replace, elements.base + i * elements.row,
                                    elements.column, rows.get(), m->ncols, height, m->ncols);
        add_squares(rows.get(), std::size_t{height} * m->ncols);
    }
    return static_cast<bool>(rows);
}

double matrix_norm_F(const matrix *m)
{
    VESK_REQUIRE(m != nullptr, "m != ((void *)0)");
    VESK_REQUIRE(m->version == 1, "m->version == ((char) 1)");
    VESK_REQUIRE(m->type > 0, "m->type > 0");
    double norm = 0.0;
    if (!_matrix_sum_squares(m, &norm)) {
        for (uint32_t i = 0; i < m->nrows; ++i) {
            for (uint32_t j = 0; j < m->ncols; ++j) {
                const double x = matrix_get(m, i, j);
                norm = fma(x, x, norm);
            }
        }
    }
    // A NaN among the elements ends here.
    VESK_REQUIRE(norm >= 0, "norm >= 0");
    return sqrt(norm);
}

double matrix_norm_inf(const matrix *m)
{
    VESK_REQUIRE(m != nullptr, "m != ((void *)0)");
    VESK_REQUIRE(m->version == 1, "m->version == ((char) 1)");
    VESK_REQUIRE(m->type > 0, "m->type > 0");
    double norm = 0.0;
    matrix_view elements = {};
    if (!_matrix_find_view(m, &elements)) {
        for (uint32_t i = 0; i < m->nrows; ++i) {
            double sum = 0.0;
            for (uint32_t j = 0; j < m->ncols; ++j) {
                sum += fabs(matrix_get(m, i, j));
            }
            norm = sum > norm ? sum : norm;
        }
        return norm;
    }
    // The sums of so many rows take 8 KB of the stack. A choice.
    constexpr uint32_t height = 1024;
    for (uint32_t i = 0; i < m->nrows; i += height) {
        const uint32_t rows = std::min(height, m->nrows - i);
        double sums[height] = {};
        _matrix_fold_rows(fold::magnitudes,
                          {elements.base + i * elements.row, elements.row, elements.column}, {},
                          rows, m->ncols, sums);
        for (uint32_t r = 0; r < rows; ++r) {
            norm = sums[r] > norm ? sums[r] : norm;
        }
    }
    return norm;
}

double matrix_condition_number_inf(const matrix *m)
{
    VESK_REQUIRE(m != nullptr, "m != ((void *)0)");
    VESK_REQUIRE(m->version == 1, "m->version == ((char) 1)");
    VESK_REQUIRE(m->type > 0, "m->type > 0");
    const owned<matrix, matrix_destroy> inverse(matrix_inverse(m));
    return inverse ? matrix_norm_inf(m) * matrix_norm_inf(inverse.get()) : -1.0;
}
