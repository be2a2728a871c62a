// The statistics of columns, the distances of rows, and what is normalised by them. As with the
// arithmetic in matrix_ops.cpp, each operation has two ways to the same bits: a fast one, for
// elements that lie in memory, and the plain one through matrix_get() and matrix_set().
#include <algorithm>
#include <cmath>

#include <vesk/error.h>
#include <vesk/matrix_compare.h>
#include <vesk/matrix_ops.h>
#include <vesk/matrix_value.h>

#include "matrix/kernels/kernels.hpp"
#include "matrix/strided.hpp"
#include "matrix/transposed_matrix_internal.hpp"
#include "support/checked_size.hpp"
#include "support/owner.hpp"
#include "support/precondition.hpp"

using owned_matrix = owned<matrix, matrix_destroy>;

// ---- sums of rows ----

void _matrix_fold_rows(fold what, const matrix_view &x, const matrix_view &y, std::size_t nrows,
                       std::size_t ncols, double *sum)
{
    const matrix_kernels &kernels = _matrix_kernels();
    const bool differences = what == fold::squared_differences;
    if (x.column == 1 && (!differences || y.column == 1)) {
        kernels.fold_along(what, {x.base, x.row, y.base, y.row, 1, nrows, ncols}, sum);
        return;
    }
    if (x.row == 1 && (!differences || y.row <= 1)) {
        const std::size_t y_step = differences ? y.row : 1;
        kernels.fold_across(what, {x.base, x.column, y.base, y.column, y_step, ncols, nrows}, sum);
        return;
    }
    const bool x_in_rows = x.column == 1;
    kernels.fold_differences(x_in_rows ? y : x, x_in_rows ? x : y, x_in_rows, nrows, ncols, sum);
}

// ---- statistics of columns ----

// The sums of the columns of `m`, in a matrix of their own.
static matrix *_matrix_sum_columns(const matrix *m)
{
    const uint32_t ncols = matrix_get_number_columns(m);
    matrix *sums = matrix_create_with_dimensions(1, ncols);
    if (sums == nullptr) {
        VESK_REQUIRE(qe_get_last_error() < 0, "qe_get_last_error() < 0");
        return nullptr;
    }
    double *sum = sums->values[0];
    matrix_view x = {};
    if (_matrix_find_view(m, &x)) {
        _matrix_fold_rows(fold::elements, {x.base, x.column, x.row}, {}, ncols, m->nrows, sum);
        return sums;
    }
    const uint32_t nrows = matrix_get_number_rows(m);
    for (uint32_t j = 0; j < ncols; ++j) {
        for (uint32_t i = 0; i < nrows; ++i) {
            sum[j] += matrix_get(m, i, j);
        }
    }
    return sums;
}

matrix *matrix_column_sum(const matrix *m)
{
    VESK_REQUIRE(m != nullptr, "m != ((void *)0)");
    return _matrix_sum_columns(m);
}

matrix *matrix_column_mean(const matrix *m)
{
    VESK_REQUIRE(m != nullptr, "m != ((void *)0)");
    matrix *mean = _matrix_sum_columns(m);
    if (mean != nullptr) {
        const double count = matrix_get_number_rows(m);
        double *sum = mean->values[0];
        std::transform(sum, sum + mean->ncols, sum, [count](double x) { return x / count; });
    }
    return mean;
}

// The sum of the squares around the mean of one column, by the running-mean method.
static double _matrix_sum_squares_of_column(const matrix *m, uint32_t j)
{
    const uint32_t nrows = matrix_get_number_rows(m);
    double count = 0.0;
    double mean = 0.0;
    double m2 = 0.0;
    for (uint32_t i = 0; i < nrows; ++i) {
        const double x = matrix_get(m, i, j);
        count += 1.0;
        const double difference = x - mean;
        mean += difference / count;
        m2 = fma(difference, x - mean, m2);
    }
    return m2;
}

matrix *matrix_column_std_dev(const matrix *m)
{
    VESK_REQUIRE(m != nullptr, "m != ((void *)0)");
    const uint32_t ncols = matrix_get_number_columns(m);
    owned_matrix deviation(matrix_create_with_dimensions(1, ncols));
    if (!deviation) {
        VESK_REQUIRE(qe_get_last_error() < 0, "qe_get_last_error() < 0");
        return nullptr;
    }
    double *m2 = deviation->values[0];
    const owned_memory<double> mean(_matrix_allocate_scratch(ncols));
    matrix_view x = {};
    if (mean && _matrix_find_view(m, &x)) {
        std::fill_n(mean.get(), ncols, 0.0);
        _matrix_kernels().moments(x, m->nrows, ncols, mean.get(), m2);
    } else {
        for (uint32_t j = 0; j < ncols; ++j) {
            m2[j] = _matrix_sum_squares_of_column(m, j);
        }
    }
    const double count = matrix_get_number_rows(m);
    std::transform(m2, m2 + ncols, m2, [count](double sum) { return sqrt(sum / count); });
    return deviation.release();
}

// ---- distances of rows ----

// A column of zeros beside the rows of `m`; null without memory.
static matrix *_matrix_create_column_beside(const matrix *m)
{
    matrix *column = matrix_create_with_dimensions(matrix_get_number_rows(m), 1);
    VESK_REQUIRE(column != nullptr || qe_get_last_error() < 0, "qe_get_last_error() < 0");
    return column;
}

static double _squared(double difference)
{
    return difference * difference;
}

static void _matrix_take_roots_of_column(matrix *column)
{
    double *sum = column->values[0];
    std::transform(sum, sum + column->nrows, sum, [](double x) { return sqrt(x); });
}

matrix *matrix_euclidean_length(const matrix *m)
{
    VESK_REQUIRE(m != nullptr, "m != ((void *)0)");
    const uint32_t ncols = matrix_get_number_columns(m);
    matrix *length = _matrix_create_column_beside(m);
    if (length == nullptr) {
        return nullptr;
    }
    double *sum = length->values[0];
    matrix_view x = {};
    if (_matrix_find_view(m, &x)) {
        _matrix_fold_rows(fold::squares, x, {}, m->nrows, ncols, sum);
    } else {
        for (uint32_t i = 0; i < length->nrows; ++i) {
            for (uint32_t j = 0; j < ncols; ++j) {
                const double element = matrix_get(m, i, j);
                sum[i] = fma(element, element, sum[i]);
            }
        }
    }
    _matrix_take_roots_of_column(length);
    return length;
}

matrix *matrix_euclidean_distance(const matrix *m1, const matrix *m2)
{
    VESK_REQUIRE(m1 != nullptr, "m1 != ((void *)0)");
    VESK_REQUIRE(m2 != nullptr, "m2 != ((void *)0)");
    const uint32_t rows1 = matrix_get_number_rows(m1);
    const uint32_t cols1 = matrix_get_number_columns(m1);
    VESK_REQUIRE(rows1 == matrix_get_number_rows(m2), "rows1 == matrix_get_number_rows (m2)");
    VESK_REQUIRE(cols1 == matrix_get_number_columns(m2), "cols1 == matrix_get_number_columns (m2)");
    matrix *distance = _matrix_create_column_beside(m1);
    if (distance == nullptr) {
        return nullptr;
    }
    double *sum = distance->values[0];
    matrix_view x = {};
    matrix_view y = {};
    if (_matrix_find_view(m1, &x) && _matrix_find_view(m2, &y)) {
        _matrix_fold_rows(fold::squared_differences, x, y, rows1, cols1, sum);
    } else {
        for (uint32_t i = 0; i < rows1; ++i) {
            for (uint32_t j = 0; j < cols1; ++j) {
                const double element = matrix_get(m1, i, j);
                sum[i] += _squared(element - matrix_get(m2, i, j));
            }
        }
    }
    _matrix_take_roots_of_column(distance);
    return distance;
}

// sum[i] += (m(i, j) - v(0, j)) squared, the same row beside each one of m. False when that is for
// the plain way.
static bool _matrix_fold_beside_row(const matrix *m, const matrix *v, double *sum)
{
    matrix_view x = {};
    matrix_view y = {};
    if (!_matrix_find_view(m, &x) || !_matrix_find_view(v, &y)) {
        return false;
    }
    // A view of a column is a row in one piece, unless its source has got more columns since.
    const bool is_scattered = y.column != 1;
    const owned_memory<double> packed(is_scattered ? _matrix_allocate_scratch(v->ncols) : nullptr);
    if (is_scattered && !packed) {
        return false;
    }
    if (packed) {
        _matrix_copy_elements(v, packed.get());
        y.base = packed.get();
    }
    _matrix_fold_rows(fold::squared_differences, x, {y.base, 0, 1}, m->nrows, m->ncols, sum);
    return true;
}

matrix *matrix_euclidean_distance_sq_with_row_vector(const matrix *m1, const matrix *m2)
{
    VESK_REQUIRE(m1 != nullptr, "m1 != ((void *)0)");
    VESK_REQUIRE(m2 != nullptr, "m2 != ((void *)0)");
    const uint32_t ncols = matrix_get_number_columns(m1);
    VESK_REQUIRE(matrix_get_number_rows(m2) == 1, "matrix_get_number_rows (m2) == 1");
    VESK_REQUIRE(ncols == matrix_get_number_columns(m2), "ncols == matrix_get_number_columns (m2)");
    matrix *distance = _matrix_create_column_beside(m1);
    if (distance == nullptr) {
        return nullptr;
    }
    double *sum = distance->values[0];
    if (_matrix_fold_beside_row(m1, m2, sum)) {
        return distance;
    }
    for (uint32_t j = 0; j < ncols; ++j) {
        const double y = matrix_get(m2, 0, j);
        for (uint32_t i = 0; i < distance->nrows; ++i) {
            sum[i] += _squared(matrix_get(m1, i, j) - y);
        }
    }
    return distance;
}

// ---- normalisation ----

// Whether a view is copied by no slot but the library's own, down to a source that has none.
static bool _matrix_is_plainly_copied(const matrix *m)
{
    while (m->type == MATRIX_TYPE_TRANSPOSED && _transposed_matrix_has_own_copy(m)) {
        m = static_cast<const transposed_matrix *>(m->matrix)->matrix;
    }
    return m->type == MATRIX_TYPE_REGULAR;
}

// A copy of `m` with direct access, which is regular when m is a view.
static matrix *_matrix_copy_with_rows(const matrix *m)
{
    if (m->type == MATRIX_TYPE_TRANSPOSED && _matrix_find_rows(m).rows != nullptr &&
        _matrix_is_plainly_copied(m)) {
        matrix *copy = matrix_create(m->nrows, m->ncols);
        if (copy != nullptr) {
            _matrix_copy_elements(m, copy->values[0]);
        }
        return copy;
    }
    owned_matrix copy(matrix_copy(m));
    return copy && matrix_enable_direct_access(copy.get()) != nullptr ? copy.release() : nullptr;
}

// What every element of a column is taken by.
struct column_scale {
    double mean;
    double deviation;
};

// A deviation that is zero within tolerance counts as 1.0.
static column_scale _matrix_get_scale(const matrix *mean, const matrix *std, uint32_t j)
{
    const double mu = matrix_get(mean, 0, j);
    const double deviation = matrix_get(std, 0, j);
    return {mu, matrix_value_is_equal(deviation, 0.0) ? 1.0 : deviation};
}

// Rewrites every element x of `m` as operation(x, scale of its column): row by row, or column by
// column without memory for the scales.
template <typename Operation>
static void _matrix_rescale(matrix *m, const matrix *mean, const matrix *std, Operation operation)
{
    std::size_t size = 0;
    const bool fits = multiply_sizes(&size, m->ncols, sizeof(column_scale));
    const owned_memory<column_scale> scales(fits ? static_cast<column_scale *>(malloc(size))
                                                 : nullptr);
    for (uint32_t j = 0; j < m->ncols; ++j) {
        const column_scale scale = _matrix_get_scale(mean, std, j);
        if (scales) {
            scales.get()[j] = scale;
            continue;
        }
        for (uint32_t i = 0; i < m->nrows; ++i) {
            m->values[i][j] = operation(m->values[i][j], scale);
        }
    }
    for (uint32_t i = 0; scales && i < m->nrows; ++i) {
        double *row = m->values[i];
        for (uint32_t j = 0; j < m->ncols; ++j) {
            row[j] = operation(row[j], scales.get()[j]);
        }
    }
}

template <typename Operation>
static matrix *_matrix_gaussian(const matrix *m, const matrix *mean, const matrix *std,
                                Operation operation)
{
    matrix *result = _matrix_copy_with_rows(m);
    if (result == nullptr) {
        VESK_REQUIRE(qe_get_last_error() < 0, "qe_get_last_error() < 0");
        return nullptr;
    }
    _matrix_rescale(result, mean, std, operation);
    return result;
}

// A macro, so that the report of a violation names the function that was called.
#define GAUSSIAN_REQUIRE_SHAPES(m, mean, std)                                                      \
    VESK_REQUIRE((m) != nullptr, "m != ((void *)0)");                                              \
    VESK_REQUIRE((mean) != nullptr, "mean != ((void *)0)");                                        \
    VESK_REQUIRE((std) != nullptr, "std != ((void *)0)");                                          \
    VESK_REQUIRE(matrix_get_number_rows(mean) == 1, "matrix_get_number_rows (mean) == 1");         \
    VESK_REQUIRE(matrix_get_number_columns(mean) == matrix_get_number_columns(m),                  \
                 "matrix_get_number_columns (mean) == cols");                                      \
    VESK_REQUIRE(matrix_is_equal_dimensions(mean, std), "matrix_is_equal_dimensions (mean, std)")

matrix *matrix_gaussian_normalize(const matrix *m, const matrix *mean, const matrix *std)
{
    GAUSSIAN_REQUIRE_SHAPES(m, mean, std);
    return _matrix_gaussian(m, mean, std, [](double x, const column_scale &scale) {
        return (x - scale.mean) / scale.deviation;
    });
}

matrix *matrix_gaussian_denormalize(const matrix *m, const matrix *mean, const matrix *std)
{
    GAUSSIAN_REQUIRE_SHAPES(m, mean, std);
    return _matrix_gaussian(m, mean, std, [](double x, const column_scale &scale) {
        return fma(x, scale.deviation, scale.mean);
    });
}
