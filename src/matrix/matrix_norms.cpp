#include <algorithm>
#include <cstdint>
#include <math.h>

#include <vesk/matrix.h>
#include <vesk/matrix_lu.h>

#include "matrix/strided.hpp"
#include "support/owner.hpp"
#include "support/precondition.hpp"

// The sum of the squares, row by row: each waits for the one before.
static double _matrix_sum_squares(const strided_elements &elements, std::size_t nrows,
                                  std::size_t ncols)
{
    const matrix_kernels &kernels = _matrix_kernels();
    double sum = 0.0;
    if (elements.column == 1) {
        for (std::size_t i = 0; i < nrows; ++i) {
            kernels.fold_along(fold::squares,
                               {elements.base + i * elements.row, 0, nullptr, 0, 1, 1, ncols},
                               &sum);
        }
        return sum;
    }
    // A line of the cache holds this element of so many rows: their first fetches those of the
    // next.
    constexpr std::size_t line = 8;
    constexpr std::size_t room = 128;
    double gathered[room];
    for (std::size_t i = 0; i < nrows; ++i) {
        for (std::size_t begin = 0; begin < ncols; begin += room) {
            const std::size_t columns = std::min(room, ncols - begin);
            for (std::size_t j = 0; j < columns; ++j) {
                const double *element = &elements.at(i, begin + j);
                if (i % line == 0) {
                    __builtin_prefetch(element + line);
                }
                gathered[j] = *element;
            }
            kernels.fold_along(fold::squares, {gathered, 0, nullptr, 0, 1, 1, columns}, &sum);
        }
    }
    return sum;
}

double matrix_norm_F(const matrix *m)
{
    VESK_REQUIRE(m != nullptr, "m != ((void *)0)");
    VESK_REQUIRE(m->version == 1, "m->version == ((char) 1)");
    VESK_REQUIRE(m->type > 0, "m->type > 0");
    double norm = 0.0;
    strided_elements elements = {};
    if (_matrix_find_elements(m, &elements)) {
        norm = _matrix_sum_squares(elements, m->nrows, m->ncols);
    } else {
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
    strided_elements elements = {};
    if (!_matrix_find_elements(m, &elements)) {
        for (uint32_t i = 0; i < m->nrows; ++i) {
            double sum = 0.0;
            for (uint32_t j = 0; j < m->ncols; ++j) {
                sum += fabs(matrix_get(m, i, j));
            }
            norm = sum > norm ? sum : norm;
        }
        return norm;
    }
    constexpr uint32_t height = 128;
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
