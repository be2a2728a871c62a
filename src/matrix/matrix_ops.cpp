// Arithmetic on matrices, element by element, and their product. Each operation has two ways to the
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
static void _matrix_combine_rows(const matrix_view &out, const matrix_view &in, std::size_t nrows,
                                 std::size_t ncols, Operation operation)
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
    matrix_view out = {};
    matrix_view in = {};
    if (!_matrix_find_view(to, &out) || !_matrix_find_view(from, &in)) {
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
