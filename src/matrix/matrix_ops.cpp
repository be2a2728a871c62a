// Arithmetic on matrices and the statistics of their columns. Each operation has two ways to the
// same bits: a fast one, for elements that lie in memory, and the plain one through matrix_get()
// and matrix_set(), for what only the slots of a matrix can reach and for want of scratch memory.
// The plain one reads and writes each element as often, and in the order, that is told of the
// operation.
#include <algorithm>
#include <cmath>
#include <type_traits>

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

// ---- element by element ----

// What an operation does with the elements of two matrices, one way round or the other.
struct replace {
    static constexpr arrival what = arrival::replace;
    double operator()(double x) const { return x; }
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

// Operations of one argument do not ask what an element was before.
template <typename Operation>
inline constexpr bool overwrites = std::is_invocable_v<Operation, double>;

template <typename Operation>
static double _apply(Operation operation, double old, double x)
{
    if constexpr (overwrites<Operation>) {
        return operation(x);
    } else {
        return operation(old, x);
    }
}

template <typename Operation>
static void _matrix_combine_rows(const strided_elements &out, const strided_elements &in,
                                 std::size_t nrows, std::size_t ncols, Operation operation)
{
    for (std::size_t i = 0; i < nrows; ++i) {
        double *target = out.base + i * out.row;
        const double *source = in.base + i * in.row;
        if (out.column == 1 && in.column == 1) {
            for (std::size_t j = 0; j < ncols; ++j) {
                target[j] = _apply(operation, target[j], source[j]);
            }
        } else {
            for (std::size_t j = 0; j < ncols; ++j) {
                double &element = target[j * out.column];
                element = _apply(operation, element, source[j * in.column]);
            }
        }
    }
}

// The plain way, until proceed(x) of an element of `from` is false; returns whether it never was.
template <typename Operation, typename Proceed>
static bool _matrix_combine_by_slots(matrix *to, const matrix *from, Operation operation,
                                     Proceed proceed)
{
    const uint32_t nrows = matrix_get_number_rows(to);
    const uint32_t ncols = matrix_get_number_columns(to);
    for (uint32_t i = 0; i < nrows; ++i) {
        for (uint32_t j = 0; j < ncols; ++j) {
            const double old = overwrites<Operation> ? 0.0 : matrix_get(to, i, j);
            const double x = matrix_get(from, i, j);
            if (!proceed(x)) {
                return false;
            }
            matrix_set(to, i, j, _apply(operation, old, x));
        }
    }
    return true;
}

static bool _matrix_lies_in_memory(const matrix *m)
{
    return _matrix_find_rows(m).rows != nullptr;
}

static bool _always(double)
{
    return true;
}

// to(i, j) = operation(to(i, j), from(i, j)) for every element, in rows from left to right wherever
// the order can be seen, that is where both matrices show the same values in another order.
template <typename Operation>
static void _matrix_combine(matrix *to, const matrix *from, Operation operation)
{
    strided_elements out = {};
    strided_elements in = {};
    if (!_matrix_find_elements(to, &out) || !_matrix_find_elements(from, &in)) {
        _matrix_combine_by_slots(to, from, operation, _always);
        return;
    }
    const bool order_shows = in.base == out.base && in.row != out.row;
    const bool by_columns = out.column != 1 && !order_shows;
    const std::size_t outside = by_columns ? to->ncols : to->nrows;
    const std::size_t inside = by_columns ? to->nrows : to->ncols;
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
    matrix *result = matrix_create_like(m);
    if (result == nullptr) {
        VESK_REQUIRE(qe_get_last_error() < 0, "qe_get_last_error() < 0");
        return nullptr;
    }
    _matrix_combine(result, m, operation);
    return result;
}

matrix *matrix_scalar_multiply(const matrix *m, double s)
{
    VESK_REQUIRE(m != nullptr, "m != ((void *)0)");
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

static void _matrix_subtract_by_slots(const matrix *m1, const matrix *m2, matrix *difference)
{
    const uint32_t nrows = matrix_get_number_rows(m1);
    const uint32_t ncols = matrix_get_number_columns(m1);
    for (uint32_t i = 0; i < nrows; ++i) {
        for (uint32_t j = 0; j < ncols; ++j) {
            const double x = matrix_get(m1, i, j);
            matrix_set(difference, i, j, x - matrix_get(m2, i, j));
        }
    }
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
    if (!_matrix_lies_in_memory(difference) || !_matrix_lies_in_memory(m1) ||
        !_matrix_lies_in_memory(m2)) {
        _matrix_subtract_by_slots(m1, m2, difference);
        return difference;
    }
    _matrix_combine(difference, m1, replace());
    _matrix_combine(difference, m2, subtract());
    return difference;
}

matrix *matrix_elemental_square(const matrix *m)
{
    VESK_REQUIRE(m != nullptr, "m != ((void *)0)");
    return _matrix_map(m, [](double x) { return x * x; });
}

// The roots of all elements; false when there is none of one of them.
static bool _matrix_take_roots(const matrix *m, matrix *roots)
{
    bool negative = false;
    const auto root = [&negative](double x) {
        negative = negative || x < 0.0;
        return x < 0.0 ? 0.0 : sqrt(x);
    };
    if (!_matrix_lies_in_memory(roots) || !_matrix_lies_in_memory(m)) {
        return _matrix_combine_by_slots(roots, m, root, [](double x) { return !(x < 0.0); });
    }
    _matrix_combine(roots, m, root);
    return !negative;
}

matrix *matrix_elemental_sqrt(const matrix *m)
{
    VESK_REQUIRE(m != nullptr, "m != ((void *)0)");
    owned_matrix roots(matrix_create_like(m));
    if (!roots) {
        VESK_REQUIRE(qe_get_last_error() < 0, "qe_get_last_error() < 0");
        return nullptr;
    }
    if (!_matrix_take_roots(m, roots.get())) {
        qe_set_last_error(QE_ERROR_NEGATIVE_ROOT);
        return nullptr;
    }
    return roots.release();
}

matrix *matrix_elemental_exp(const matrix *m)
{
    VESK_REQUIRE(m != nullptr, "m != ((void *)0)");
    return _matrix_map(m, [](double x) { return exp(x); });
}

matrix *matrix_elemental_abs(const matrix *m)
{
    VESK_REQUIRE(m != nullptr, "m != ((void *)0)");
    return _matrix_map(m, [](double x) { return fabs(x); });
}

void matrix_clear(matrix *m)
{
    VESK_REQUIRE(m != nullptr, "m != ((void *)0)");
    if (_matrix_lies_in_memory(m)) {
        _matrix_combine(m, m, [](double) { return 0.0; });
        return;
    }
    const uint32_t nrows = matrix_get_number_rows(m);
    const uint32_t ncols = matrix_get_number_columns(m);
    for (uint32_t i = 0; i < nrows; ++i) {
        for (uint32_t j = 0; j < ncols; ++j) {
            matrix_set(m, i, j, 0.0);
        }
    }
}

void matrix_accum_element(matrix *m, uint32_t i, uint32_t j, double v)
{
    matrix_set(m, i, j, matrix_get(m, i, j) + v);
}

// ---- multiplication ----

static void _matrix_multiply_by_slots(const matrix *m1, const matrix *m2, matrix *product)
{
    const uint32_t depth = matrix_get_number_columns(m1);
    for (uint32_t i = 0; i < product->nrows; ++i) {
        for (uint32_t j = 0; j < product->ncols; ++j) {
            double sum = 0.0;
            for (uint32_t k = 0; k < depth; ++k) {
                const double x = matrix_get(m1, i, k);
                sum = fma(x, matrix_get(m2, k, j), sum);
            }
            product->values[i][j] = sum;
        }
    }
}

static void _matrix_multiply_in_memory(const matrix_view &a, matrix_view b, matrix *product,
                                       std::size_t depth)
{
    const matrix_kernels &kernels = _matrix_kernels();
    const std::size_t nrows = product->nrows;
    const std::size_t ncols = product->ncols;
    const owned_memory<double> scratch(
        _matrix_allocate_scratch(kernels.multiply_scratch(nrows, ncols, depth)));
    // What is not packed is to have its columns side by side.
    const bool turn_round = !scratch && b.column != 1;
    const owned_memory<double> turned(turn_round ? _matrix_allocate_scratch(depth, ncols)
                                                 : nullptr);
    if (turned) {
        kernels.transpose(arrival::replace, b.base, b.column, turned.get(), ncols, depth, ncols);
        b = {turned.get(), ncols, 1};
    }
    kernels.multiply(a, b, product->values[0], ncols, nrows, ncols, depth, scratch.get());
}

matrix *matrix_multiply(const matrix *m1, const matrix *m2)
{
    VESK_REQUIRE(m1 != nullptr, "m1 != ((void *)0)");
    VESK_REQUIRE(m2 != nullptr, "m2 != ((void *)0)");
    VESK_REQUIRE(matrix_get_number_columns(m1) == matrix_get_number_rows(m2),
                 "matrix_get_number_columns(m1) == matrix_get_number_rows(m2)");
    matrix *product =
        matrix_create_with_dimensions(matrix_get_number_rows(m1), matrix_get_number_columns(m2));
    if (product == nullptr) {
        VESK_REQUIRE(qe_get_last_error() < 0, "qe_get_last_error() < 0");
        return nullptr;
    }
    matrix_view a = {};
    matrix_view b = {};
    if (_matrix_find_view(m1, &a) && _matrix_find_view(m2, &b)) {
        _matrix_multiply_in_memory(a, b, product, m1->ncols);
    } else {
        _matrix_multiply_by_slots(m1, m2, product);
    }
    return product;
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
        _matrix_combine(mean, mean, [count](double sum) { return sum / count; });
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
    if (m->type == MATRIX_TYPE_TRANSPOSED && _matrix_lies_in_memory(m) &&
        _matrix_is_plainly_copied(m)) {
        matrix *copy = matrix_create(m->nrows, m->ncols);
        if (copy != nullptr) {
            _matrix_combine(copy, m, replace());
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
