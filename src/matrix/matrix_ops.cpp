#include <algorithm>
#include <cmath>

#include <vesk/error.h>
#include <vesk/matrix_compare.h>
#include <vesk/matrix_ops.h>
#include <vesk/matrix_value.h>

#include "matrix/kernels/kernels.hpp"
#include "matrix/strided.hpp"
#include "support/object.hpp"
#include "support/owner.hpp"
#include "support/precondition.hpp"

using owned_matrix = owned<matrix, matrix_destroy>;

// ---- element by element ----

// What an operation does with the elements of two matrices, one way round or the other.
struct replace {
    static constexpr arrival what = arrival::replace;
    double operator()(double, double x) const { return x; }
};

struct add {
    static constexpr arrival what = arrival::add;
    double operator()(double old, double x) const { return old + x; }
};

struct subtract {
    static constexpr arrival what = arrival::subtract;
    double operator()(double old, double x) const { return old - x; }
};

template <typename Operation>
concept arriving = requires
{
    Operation::what;
};

template <typename Operation>
static void _matrix_combine_rows(const strided_elements &out, const strided_elements &in,
                                 std::size_t nrows, std::size_t ncols, Operation operation)
{
    for (std::size_t i = 0; i < nrows; ++i) {
        double *target = out.base + i * out.row;
        const double *source = in.base + i * in.row;
        if (out.column == 1 && in.column == 1) {
            for (std::size_t j = 0; j < ncols; ++j) {
                target[j] = operation(target[j], source[j]);
            }
        } else {
            for (std::size_t j = 0; j < ncols; ++j) {
                double &element = target[j * out.column];
                element = operation(element, source[j * in.column]);
            }
        }
    }
}

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
    if constexpr (arriving<Operation>) {
        if (in.column != 1 && !order_shows) {
            _matrix_kernels().transpose(Operation::what, in.base, in.column, out.base, out.row,
                                        outside, inside);
            return;
        }
    }
    _matrix_combine_rows(out, in, outside, inside, operation);
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
    _matrix_combine(m1, m2, add());
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
    _matrix_combine(difference, m1, replace());
    _matrix_combine(difference, m2, subtract());
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

// ---- multiplication ----

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
    // The square of a difference is the same whichever operand is taken from the other.
    const bool x_in_rows = x.column == 1;
    kernels.fold_differences(x_in_rows ? y : x, x_in_rows ? x : y, nrows, ncols, sum);
}

// ---- statistics of columns ----

matrix *matrix_column_sum(const matrix *m)
{
    VESK_REQUIRE(m != nullptr, "m != ((void *)0)");
    const uint32_t ncols = matrix_get_number_columns(m);
    owned_matrix sums(matrix_create_with_dimensions(1, ncols));
    const operand elements(m);
    if (!sums || !elements) {
        VESK_REQUIRE(qe_get_last_error() < 0, "qe_get_last_error() < 0");
        return nullptr;
    }
    const matrix_view &x = elements.view();
    _matrix_fold_rows(fold::elements, {x.base, x.column, x.row}, {}, ncols, m->nrows,
                      sums->values[0]);
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
    const operand elements(m);
    if (!deviation || !mean || !elements) {
        VESK_REQUIRE(qe_get_last_error() < 0, "qe_get_last_error() < 0");
        return nullptr;
    }
    _matrix_kernels().moments(elements.view(), m->nrows, ncols, mean.get(), deviation->values[0]);
    const double count = matrix_get_number_rows(m);
    _matrix_combine(deviation.get(), deviation.get(),
                    [count](double, double m2) { return sqrt(m2 / count); });
    return deviation.release();
}

// ---- distances of rows ----

// A column with finish(sum) of the fold over each row of `m`.
template <typename Finish>
static matrix *_matrix_column_from_rows(fold what, const matrix *m, const matrix_view &y,
                                        Finish finish)
{
    const uint32_t nrows = matrix_get_number_rows(m);
    const operand elements(m);
    owned_matrix column(matrix_create_with_dimensions(nrows, 1));
    if (!elements || !column) {
        VESK_REQUIRE(qe_get_last_error() < 0, "qe_get_last_error() < 0");
        return nullptr;
    }
    double *sum = column->values[0];
    _matrix_fold_rows(what, elements.view(), y, nrows, m->ncols, sum);
    std::transform(sum, sum + nrows, sum, finish);
    return column.release();
}

static double _matrix_root(double sum)
{
    return sqrt(sum);
}

matrix *matrix_euclidean_length(const matrix *m)
{
    VESK_REQUIRE(m != nullptr, "m != ((void *)0)");
    return _matrix_column_from_rows(fold::squares, m, {}, _matrix_root);
}

matrix *matrix_euclidean_distance(const matrix *m1, const matrix *m2)
{
    VESK_REQUIRE(m1 != nullptr, "m1 != ((void *)0)");
    VESK_REQUIRE(m2 != nullptr, "m2 != ((void *)0)");
    const uint32_t rows1 = matrix_get_number_rows(m1);
    const uint32_t cols1 = matrix_get_number_columns(m1);
    VESK_REQUIRE(rows1 == matrix_get_number_rows(m2), "rows1 == matrix_get_number_rows (m2)");
    VESK_REQUIRE(cols1 == matrix_get_number_columns(m2), "cols1 == matrix_get_number_columns (m2)");
    const operand other(m2);
    if (!other) {
        return nullptr;
    }
    return _matrix_column_from_rows(fold::squared_differences, m1, other.view(), _matrix_root);
}

matrix *matrix_euclidean_distance_sq_with_row_vector(const matrix *m1, const matrix *m2)
{
    VESK_REQUIRE(m1 != nullptr, "m1 != ((void *)0)");
    VESK_REQUIRE(m2 != nullptr, "m2 != ((void *)0)");
    const uint32_t ncols = matrix_get_number_columns(m1);
    VESK_REQUIRE(matrix_get_number_rows(m2) == 1, "matrix_get_number_rows (m2) == 1");
    VESK_REQUIRE(ncols == matrix_get_number_columns(m2), "ncols == matrix_get_number_columns (m2)");
    const operand vector(m2);
    if (!vector) {
        return nullptr;
    }
    // The same row beside each one of m1.
    const matrix_view &v = vector.view();
    return _matrix_column_from_rows(fold::squared_differences, m1, {v.base, 0, v.column},
                                    [](double sum) { return sum; });
}

// ---- normalisation ----

// A copy of `m` with direct access, which is regular when m is a view.
static matrix *_matrix_copy_with_rows(const matrix *m)
{
    strided_elements elements = {};
    if (m->values == nullptr && _matrix_find_elements(m, &elements)) {
        matrix *copy = matrix_create(m->nrows, m->ncols);
        if (copy != nullptr) {
            _matrix_combine(copy, m, replace());
        }
        return copy;
    }
    owned_matrix copy(matrix_copy(m));
    return copy && matrix_enable_direct_access(copy.get()) != nullptr ? copy.release() : nullptr;
}

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
    owned_matrix result(_matrix_copy_with_rows(m));
    const owned_memory<double> means(allocate<double>(cols));
    const owned_memory<double> deviations(allocate<double>(cols));
    if (!result || !means || !deviations) {
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
