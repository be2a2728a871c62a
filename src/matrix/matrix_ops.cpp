#include <algorithm>
#include <cmath>

#include <vesk/error.h>
#include <vesk/matrix_compare.h>
#include <vesk/matrix_ops.h>
#include <vesk/matrix_value.h>

#include "matrix/kernels.hpp"
#include "matrix/strided.hpp"
#include "support/object.hpp"
#include "support/owner.hpp"
#include "support/precondition.hpp"

using owned_matrix = owned<matrix, matrix_destroy>;

// --- element by element
// ---------------------------------------------------------------------------

// to(i, j) = operation(to(i, j), from(i, j)) for every element, in rows from left to right wherever
// the order can be seen, that is where both matrices show the same values in another order.
template <typename Operation>
static void _matrix_combine(matrix *to, const matrix *from, Operation operation)
{
    const uint32_t nrows = matrix_get_number_rows(to);
    const uint32_t ncols = matrix_get_number_columns(to);
    strided_elements out = {};
    strided_elements in = {};
    if (!_matrix_find_elements(to, &out) || !_matrix_find_elements(from, &in)) {
        for (uint32_t i = 0; i < nrows; ++i) {
            for (uint32_t j = 0; j < ncols; ++j) {
                matrix_set(to, i, j, operation(matrix_get(to, i, j), matrix_get(from, i, j)));
            }
        }
        return;
    }
    const bool order_shows = in.base == out.base && in.row != out.row;
    const bool by_columns = out.column != 1 && !order_shows;
    const std::size_t outside = by_columns ? ncols : nrows;
    const std::size_t inside = by_columns ? nrows : ncols;
    if (by_columns) {
        std::swap(out.row, out.column);
        std::swap(in.row, in.column);
    }
    for (std::size_t i = 0; i < outside; ++i) {
        double *target = out.base + i * out.row;
        const double *source = in.base + i * in.row;
        if (out.column == 1 && in.column == 1) {
            for (std::size_t j = 0; j < inside; ++j) {
                target[j] = operation(target[j], source[j]);
            }
        } else {
            for (std::size_t j = 0; j < inside; ++j) {
                double &element = target[j * out.column];
                element = operation(element, source[j * in.column]);
            }
        }
    }
}

// A matrix like `m` with operation(m(i, j)) for elements.
template <typename Operation>
static matrix *_matrix_map(const matrix *m, Operation operation)
{
    VESK_REQUIRE(m != nullptr, "m != ((void *)0)");
    matrix *result = matrix_create_like(m);
    if (result == nullptr) {
        VESK_REQUIRE(qe_get_last_error() < 0, "qe_get_last_error() < 0");
        return nullptr;
    }
    _matrix_combine(result, m, [&](double, double x) { return operation(x); });
    return result;
}

matrix *matrix_scalar_multiply(const matrix *m, double s)
{
    return _matrix_map(m, [s](double x) { return x * s; });
}

matrix *matrix_scalar_divide(const matrix *m, double s)
{
    VESK_REQUIRE(m != nullptr, "m != ((void *)0)");
    if (matrix_value_is_equal(s, 0.0)) {
        qe_set_last_error(QE_ERROR_DIVISION_BY_ZERO);
        return nullptr;
    }
    return _matrix_map(m, [s](double x) { return x / s; });
}

void matrix_accum(matrix *m1, const matrix *m2)
{
    VESK_REQUIRE(m1 != nullptr, "m1 != ((void *)0)");
    VESK_REQUIRE(m2 != nullptr, "m2 != ((void *)0)");
    VESK_REQUIRE(matrix_is_equal_dimensions(m1, m2), "matrix_is_equal_dimensions (m1, m2)");
    _matrix_combine(m1, m2, [](double x, double y) { return x + y; });
}

matrix *matrix_add(const matrix *m1, const matrix *m2)
{
    VESK_REQUIRE(m1 != nullptr, "m1 != ((void *)0)");
    VESK_REQUIRE(m2 != nullptr, "m2 != ((void *)0)");
    VESK_REQUIRE(matrix_is_equal_dimensions(m1, m2), "matrix_is_equal_dimensions (m1, m2)");
    matrix *sum = matrix_copy(m1);
    if (sum == nullptr) {
        VESK_REQUIRE(qe_get_last_error() < 0, "qe_get_last_error() < 0");
        return nullptr;
    }
    matrix_accum(sum, m2);
    return sum;
}

matrix *matrix_subtract(const matrix *m1, const matrix *m2)
{
    VESK_REQUIRE(m1 != nullptr, "m1 != ((void *)0)");
    VESK_REQUIRE(m2 != nullptr, "m2 != ((void *)0)");
    VESK_REQUIRE(matrix_is_equal_dimensions(m1, m2) > 0, "matrix_is_equal_dimensions(m1, m2) > 0");
    matrix *difference = matrix_create_like_binary_operands(m1, m2);
    if (difference == nullptr) {
        VESK_REQUIRE(qe_get_last_error() < 0, "qe_get_last_error() < 0");
        return nullptr;
    }
    _matrix_combine(difference, m1, [](double, double x) { return x; });
    _matrix_combine(difference, m2, [](double x, double y) { return x - y; });
    return difference;
}

matrix *matrix_elemental_square(const matrix *m)
{
    return _matrix_map(m, [](double x) { return x * x; });
}

matrix *matrix_elemental_sqrt(const matrix *m)
{
    bool negative = false;
    owned_matrix roots(_matrix_map(m, [&negative](double x) {
        negative = negative || x < 0.0;
        return x < 0.0 ? 0.0 : sqrt(x);
    }));
    if (negative) {
        qe_set_last_error(QE_ERROR_NEGATIVE_ROOT);
        return nullptr;
    }
    return roots.release();
}

matrix *matrix_elemental_exp(const matrix *m)
{
    return _matrix_map(m, [](double x) { return exp(x); });
}

matrix *matrix_elemental_abs(const matrix *m)
{
    return _matrix_map(m, [](double x) { return fabs(x); });
}

void matrix_clear(matrix *m)
{
    VESK_REQUIRE(m != nullptr, "m != ((void *)0)");
    _matrix_combine(m, m, [](double, double) { return 0.0; });
}

void matrix_accum_element(matrix *m, uint32_t i, uint32_t j, double v)
{
    matrix_set(m, i, j, matrix_get(m, i, j) + v);
}

// --- multiplication
// -------------------------------------------------------------------------------

// Memory for the packed operands, on a boundary of cache lines. Null is no failure: the product
// does without. The last-error cell stays as it is.
static double *_matrix_allocate_scratch(std::size_t count)
{
    constexpr std::size_t line = 64;
    const std::size_t size = (count * sizeof(double) + line - 1) / line * line;
    return size == 0 ? nullptr : static_cast<double *>(aligned_alloc(line, size));
}

matrix *matrix_multiply(const matrix *m1, const matrix *m2)
{
    VESK_REQUIRE(m1 != nullptr, "m1 != ((void *)0)");
    VESK_REQUIRE(m2 != nullptr, "m2 != ((void *)0)");
    VESK_REQUIRE(matrix_get_number_columns(m1) == matrix_get_number_rows(m2),
                 "matrix_get_number_columns(m1) == matrix_get_number_rows(m2)");
    const matrix_kernels &kernels = _matrix_kernels();
    const uint32_t nrows = matrix_get_number_rows(m1);
    const uint32_t ncols = matrix_get_number_columns(m2);
    const uint32_t depth = matrix_get_number_columns(m1);
    owned_matrix product(matrix_create_with_dimensions(nrows, ncols));
    const owned_memory<double> scratch(
        _matrix_allocate_scratch(kernels.multiply_scratch(nrows, ncols, depth)));
    const operand a(m1);
    const operand b(m2, scratch ? operand::layout::any : operand::layout::rows);
    if (!product || !a || !b) {
        VESK_REQUIRE(qe_get_last_error() < 0, "qe_get_last_error() < 0");
        return nullptr;
    }
    kernels.multiply(a.view(), b.view(), product->values[0], ncols, nrows, ncols, depth,
                     scratch.get());
    return product.release();
}

// --- statistics of columns
// ------------------------------------------------------------------------

// Hands the rows of `m` from top to bottom to visit(first element, distance of rows, rows, columns,
// first row, first column), in blocks whose rows lie in one piece. False when there is no memory
// for the blocks of a view.
template <typename Visit>
static bool _matrix_visit_rows(const matrix *m, Visit visit)
{
    // A block and the part of the view that it comes from stay in the first-level cache.
    constexpr std::size_t height = 32;
    constexpr std::size_t side = 64;
    const std::size_t nrows = matrix_get_number_rows(m);
    const std::size_t ncols = matrix_get_number_columns(m);
    const operand elements(m);
    if (!elements) {
        return false;
    }
    const matrix_view &view = elements.view();
    if (view.column == 1) {
        visit(view.base, view.row, nrows, ncols, std::size_t(0), std::size_t(0));
        return true;
    }
    const owned_memory<double> block(allocate<double>(height * side));
    if (!block) {
        return false;
    }
    for (std::size_t j = 0; j < ncols; j += side) {
        const std::size_t columns = std::min(side, ncols - j);
        for (std::size_t i = 0; i < nrows; i += height) {
            const std::size_t rows = std::min(height, nrows - i);
            _matrix_kernels().transpose(view.base + i * view.row + j * view.column, view.column,
                                        block.get(), side, rows, columns);
            visit(block.get(), side, rows, columns, i, j);
        }
    }
    return true;
}

matrix *matrix_column_sum(const matrix *m)
{
    VESK_REQUIRE(m != nullptr, "m != ((void *)0)");
    owned_matrix sums(matrix_create_with_dimensions(1, matrix_get_number_columns(m)));
    if (!sums ||
        !_matrix_visit_rows(m, [&](const double *base, std::size_t stride, std::size_t rows,
                                   std::size_t columns, std::size_t, std::size_t j) {
            _matrix_kernels().add_rows(base, stride, rows, columns, sums->values[0] + j);
        })) {
        VESK_REQUIRE(qe_get_last_error() < 0, "qe_get_last_error() < 0");
        return nullptr;
    }
    return sums.release();
}

matrix *matrix_column_mean(const matrix *m)
{
    matrix *mean = matrix_column_sum(m);
    if (mean != nullptr) {
        const double count = matrix_get_number_rows(m);
        _matrix_combine(mean, mean, [count](double, double sum) { return sum / count; });
    }
    return mean;
}

matrix *matrix_column_std_dev(const matrix *m)
{
    VESK_REQUIRE(m != nullptr, "m != ((void *)0)");
    const uint32_t ncols = matrix_get_number_columns(m);
    owned_matrix deviation(matrix_create_with_dimensions(1, ncols));
    const owned_memory<double> mean(allocate_zeroed<double>(ncols));
    if (!deviation || !mean ||
        !_matrix_visit_rows(m, [&](const double *base, std::size_t stride, std::size_t rows,
                                   std::size_t columns, std::size_t i, std::size_t j) {
            _matrix_kernels().add_moments(base, stride, rows, columns, i, mean.get() + j,
                                          deviation->values[0] + j);
        })) {
        VESK_REQUIRE(qe_get_last_error() < 0, "qe_get_last_error() < 0");
        return nullptr;
    }
    const double count = matrix_get_number_rows(m);
    _matrix_combine(deviation.get(), deviation.get(),
                    [count](double, double m2) { return sqrt(m2 / count); });
    return deviation.release();
}

// --- distances of rows
// ----------------------------------------------------------------------------

// A column with result(i) for every row i, from the rows of `m`; `row(i)` gives the elements of
// one.
template <typename Result>
static matrix *_matrix_column_from_rows(const matrix *m, Result result)
{
    const uint32_t nrows = matrix_get_number_rows(m);
    const operand elements(m, operand::layout::rows);
    owned_matrix column(matrix_create_with_dimensions(nrows, 1));
    if (!elements || !column) {
        VESK_REQUIRE(qe_get_last_error() < 0, "qe_get_last_error() < 0");
        return nullptr;
    }
    for (uint32_t i = 0; i < nrows; ++i) {
        column->values[i][0] = result(elements.row(i), i);
    }
    return column.release();
}

static double _matrix_distance_sq(const double *row1, const double *row2, uint32_t n)
{
    double sum = 0.0;
    for (uint32_t j = 0; j < n; ++j) {
        const double difference = row1[j] - row2[j];
        sum = sum + difference * difference;
    }
    return sum;
}

matrix *matrix_euclidean_length(const matrix *m)
{
    VESK_REQUIRE(m != nullptr, "m != ((void *)0)");
    const uint32_t ncols = matrix_get_number_columns(m);
    return _matrix_column_from_rows(m, [ncols](const double *row, uint32_t) {
        double sum = 0.0;
        for (uint32_t j = 0; j < ncols; ++j) {
            sum = fma(row[j], row[j], sum);
        }
        return sqrt(sum);
    });
}

matrix *matrix_euclidean_distance(const matrix *m1, const matrix *m2)
{
    VESK_REQUIRE(m1 != nullptr, "m1 != ((void *)0)");
    VESK_REQUIRE(m2 != nullptr, "m2 != ((void *)0)");
    const uint32_t rows1 = matrix_get_number_rows(m1);
    const uint32_t cols1 = matrix_get_number_columns(m1);
    VESK_REQUIRE(rows1 == matrix_get_number_rows(m2), "rows1 == matrix_get_number_rows (m2)");
    VESK_REQUIRE(cols1 == matrix_get_number_columns(m2), "cols1 == matrix_get_number_columns (m2)");
    const operand other(m2, operand::layout::rows);
    if (!other) {
        return nullptr;
    }
    return _matrix_column_from_rows(m1, [&](const double *row, uint32_t i) {
        return sqrt(_matrix_distance_sq(row, other.row(i), cols1));
    });
}

matrix *matrix_euclidean_distance_sq_with_row_vector(const matrix *m1, const matrix *m2)
{
    VESK_REQUIRE(m1 != nullptr, "m1 != ((void *)0)");
    VESK_REQUIRE(m2 != nullptr, "m2 != ((void *)0)");
    const uint32_t ncols = matrix_get_number_columns(m1);
    VESK_REQUIRE(matrix_get_number_rows(m2) == 1, "matrix_get_number_rows (m2) == 1");
    VESK_REQUIRE(ncols == matrix_get_number_columns(m2), "ncols == matrix_get_number_columns (m2)");
    const operand vector(m2, operand::layout::rows);
    if (!vector) {
        return nullptr;
    }
    return _matrix_column_from_rows(m1, [&](const double *row, uint32_t) {
        return _matrix_distance_sq(row, vector.row(0), ncols);
    });
}

// --- normalisation
// --------------------------------------------------------------------------------

// A copy of `m` with operation(x, mean, deviation) for every element x, by column; a deviation that
// is zero within tolerance counts as 1.0.
template <typename Operation>
static matrix *_matrix_gaussian(const matrix *m, const matrix *mean, const matrix *std,
                                Operation operation)
{
    VESK_REQUIRE(m != nullptr, "m != ((void *)0)");
    VESK_REQUIRE(mean != nullptr, "mean != ((void *)0)");
    VESK_REQUIRE(std != nullptr, "std != ((void *)0)");
    const uint32_t cols = matrix_get_number_columns(m);
    VESK_REQUIRE(matrix_get_number_rows(mean) == 1, "matrix_get_number_rows (mean) == 1");
    VESK_REQUIRE(matrix_get_number_columns(mean) == cols,
                 "matrix_get_number_columns (mean) == cols");
    VESK_REQUIRE(matrix_is_equal_dimensions(mean, std), "matrix_is_equal_dimensions (mean, std)");
    owned_matrix result(matrix_copy(m));
    const owned_memory<double> means(allocate<double>(cols));
    const owned_memory<double> deviations(allocate<double>(cols));
    if (!result || !means || !deviations || matrix_enable_direct_access(result.get()) == nullptr) {
        VESK_REQUIRE(qe_get_last_error() < 0, "qe_get_last_error() < 0");
        return nullptr;
    }
    for (uint32_t j = 0; j < cols; ++j) {
        const double deviation = matrix_get(std, 0, j);
        means.get()[j] = matrix_get(mean, 0, j);
        deviations.get()[j] = matrix_value_is_equal(deviation, 0.0) ? 1.0 : deviation;
    }
    for (uint32_t i = 0; i < result->nrows; ++i) {
        double *row = result->values[i];
        for (uint32_t j = 0; j < cols; ++j) {
            row[j] = operation(row[j], means.get()[j], deviations.get()[j]);
        }
    }
    return result.release();
}

matrix *matrix_gaussian_normalize(const matrix *m, const matrix *mean, const matrix *std)
{
    return _matrix_gaussian(
        m, mean, std, [](double x, double mu, double deviation) { return (x - mu) / deviation; });
}

matrix *matrix_gaussian_denormalize(const matrix *m, const matrix *mean, const matrix *std)
{
    return _matrix_gaussian(
        m, mean, std, [](double x, double mu, double deviation) { return fma(x, deviation, mu); });
}
