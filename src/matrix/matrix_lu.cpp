// Factors of a square matrix with full pivoting, and what is made from them: solutions of equations
// and inverses. The order of operations inside each result is fixed; how many results are carried
// side by side is the kernels' matter.
#include <algorithm>
#include <cmath>
#include <numeric>

#include <vesk/error.h>
#include <vesk/matrix_lu.h>
#include <vesk/matrix_ops.h>

#include "matrix/element_access.hpp"
#include "matrix/kernels/kernels.hpp"
#include "matrix/lu_factorisation.hpp"
#include "matrix/strided.hpp"
#include "support/object.hpp"
#include "support/owner.hpp"
#include "support/precondition.hpp"

using owned_matrix = owned<matrix, matrix_destroy>;
using owned_lu = owned<matrix_lu, matrix_lu_destroy>;

// ---- decomposition ----

// All matrices of the record, or as many as there is memory for.
static bool _matrix_lu_init(matrix_lu *lu, const matrix *m)
{
    const uint32_t n = matrix_get_number_rows(m);
    *lu = {};
    lu->rank = 1;
    lu->det = 1.0;
    lu->p = matrix_create(n, 1);
    lu->q = lu->p == nullptr ? nullptr : matrix_create(n, 1);
    lu->matrix = lu->q == nullptr ? nullptr : matrix_copy(m);
    return lu->matrix != nullptr && matrix_enable_direct_access(lu->matrix) != nullptr;
}

static void _matrix_lu_free(matrix_lu *lu)
{
    for (matrix **part : {&lu->matrix, &lu->lower, &lu->upper, &lu->p, &lu->q}) {
        if (*part != nullptr) {
            matrix_destroy(part);
        }
    }
    free(lu);
}

matrix_lu *matrix_lu_create(const matrix *m)
{
    VESK_REQUIRE(m != nullptr, "m != ((void *)0)");
    const uint32_t rows = matrix_get_number_rows(m);
    const uint32_t cols = matrix_get_number_columns(m);
    VESK_REQUIRE(rows == cols, "rows == cols");
    matrix_lu *lu = allocate<matrix_lu>();
    if (lu == nullptr) {
        return nullptr;
    }
    if (!_matrix_lu_init(lu, m)) {
        _matrix_lu_free(lu);
        return nullptr;
    }
    _matrix_lu_factorise(lu);
    return lu;
}

void matrix_lu_destroy(matrix_lu **m)
{
    VESK_REQUIRE(m != nullptr, "m != ((void *)0)");
    VESK_REQUIRE(*m != nullptr, "*m != ((void *)0)");
    VESK_REQUIRE((*m)->matrix != nullptr, "(*m)->matrix != ((void *)0)");
    VESK_REQUIRE((*m)->p != nullptr, "(*m)->p != ((void *)0)");
    VESK_REQUIRE((*m)->q != nullptr, "(*m)->q != ((void *)0)");
    _matrix_lu_free(*m);
    *m = nullptr;
}

uint32_t matrix_lu_get_rank(const matrix_lu *lu)
{
    VESK_REQUIRE(lu != nullptr, "lu != ((void *)0)");
    return lu->rank;
}

double matrix_lu_get_det(const matrix_lu *lu)
{
    VESK_REQUIRE(lu != nullptr, "lu != ((void *)0)");
    return lu->det;
}

// ---- exchanges of rows and columns ----

static void _matrix_exchange_rows(matrix *b, uint32_t i, uint32_t j)
{
    if (i == j) {
        return;
    }
    if (b->values != nullptr) {
        std::swap_ranges(b->values[i], b->values[i] + b->ncols, b->values[j]);
        return;
    }
    for (uint32_t c = 0; c < b->ncols; ++c) {
        const double held = matrix_get(b, i, c);
        matrix_set(b, i, c, matrix_get(b, j, c));
        matrix_set(b, j, c, held);
    }
}

// The rows of a view are columns in memory, each of which is visited once: exchange(line) makes all
// exchanges in one of them. False when the elements of `b` do not lie like that.
template <typename Exchange>
static bool _matrix_exchange_in_columns(matrix *b, Exchange exchange)
{
    matrix_view elements = {};
    if (b->values != nullptr || !_matrix_find_view(b, &elements) || elements.row != 1) {
        return false;
    }
    for (uint32_t c = 0; c < b->ncols; ++c) {
        exchange(elements.base + c * elements.column);
    }
    return true;
}

static void _matrix_exchange_forwards(double *line, const matrix *p)
{
    for (uint32_t k = 0; k + 1 < p->nrows; ++k) {
        std::swap(line[k], line[_matrix_index_at(p, k)]);
    }
}

static void _matrix_exchange_backwards(double *line, const matrix *p)
{
    for (uint32_t k = p->nrows - 1; k-- > 0;) {
        std::swap(line[k], line[_matrix_index_at(p, k)]);
    }
}

static void _matrix_permute_rows(matrix *b, const matrix *p)
{
    const uint32_t rows = matrix_get_number_rows(b);
    VESK_REQUIRE(rows == matrix_get_number_rows(p), "rows == matrix_get_number_rows(p)");
    if (_matrix_exchange_in_columns(b, [p](double *at) { _matrix_exchange_forwards(at, p); })) {
        return;
    }
    for (uint32_t k = 0; k + 1 < rows; ++k) {
        _matrix_exchange_rows(b, k, _matrix_index_at(p, k));
    }
}

static void _matrix_permute_rows_reversed(matrix *b, const matrix *q)
{
    const uint32_t rows = matrix_get_number_rows(b);
    VESK_REQUIRE(rows == matrix_get_number_rows(q), "rows == matrix_get_number_rows(p)");
    if (_matrix_exchange_in_columns(b, [q](double *at) { _matrix_exchange_backwards(at, q); })) {
        return;
    }
    for (uint32_t k = rows - 1; k-- > 0;) {
        _matrix_exchange_rows(b, k, _matrix_index_at(q, k));
    }
}

// The same for columns: each row is visited once.
static void _matrix_permute_columns_reversed(matrix *b, const matrix *q)
{
    for (uint32_t r = 0; r < b->nrows; ++r) {
        _matrix_exchange_backwards(b->values[r], q);
    }
}

// ---- factors ----

matrix *matrix_lu_get_lower(matrix_lu *lu)
{
    VESK_REQUIRE(lu != nullptr, "lu != ((void *)0)");
    if (lu->lower != nullptr) {
        return lu->lower;
    }
    const uint32_t n = lu->matrix->nrows;
    matrix *lower = matrix_create_identity(n);
    if (lower == nullptr) {
        return nullptr;
    }
    for (uint32_t i = 1; i < n; ++i) {
        std::copy_n(lu->matrix->values[i], i, lower->values[i]);
    }
    _matrix_permute_rows_reversed(lower, lu->p);
    lu->lower = lower;
    return lower;
}

matrix *matrix_lu_get_upper(matrix_lu *lu)
{
    VESK_REQUIRE(lu != nullptr, "lu != ((void *)0)");
    if (lu->upper != nullptr) {
        return lu->upper;
    }
    const uint32_t n = lu->matrix->nrows;
    matrix *upper = matrix_create(n, n);
    if (upper == nullptr) {
        return nullptr;
    }
    for (uint32_t i = 0; i < n; ++i) {
        std::copy_n(lu->matrix->values[i] + i, n - i, upper->values[i] + i);
    }
    _matrix_permute_columns_reversed(upper, lu->q);
    lu->upper = upper;
    return upper;
}

// ---- solving ----

// (b(i) - the sum over columns begin .. end-1 of m(i, j) * b(j)) / m(i, i); false when the divisor
// is exactly zero.
static bool _matrix_substitute(const matrix *m, matrix *b, uint32_t i, uint32_t begin, uint32_t end)
{
    const element_reader elements(m);
    const element_reader right(b);
    double sum = 0.0;
    for (uint32_t j = begin; j < end; ++j) {
        sum = fma(elements.get(i, j), right.get(j, 0), sum);
    }
    const double diagonal = matrix_get(m, i, i);
    if (diagonal == 0.0) {
        return false;
    }
    // The first row has nothing to subtract.
    const double value = matrix_get(b, i, 0);
    matrix_set(b, i, 0, (begin == end ? value : value - sum) / diagonal);
    return true;
}

static void _matrix_require_square(const matrix *m, const matrix *b)
{
    const uint32_t n = matrix_get_number_rows(b);
    VESK_REQUIRE(matrix_get_number_rows(m) == n, "matrix_get_number_rows(m) == n");
    VESK_REQUIRE(matrix_get_number_columns(m) == n, "matrix_get_number_columns(m) == n");
}

static void _matrix_forward_substitution(const matrix *L, matrix *b)
{
    _matrix_require_square(L, b);
    const uint32_t n = matrix_get_number_rows(b);
    for (uint32_t i = 0; i < n && _matrix_substitute(L, b, i, 0, i); ++i) {
    }
}

static void _matrix_back_substitution(const matrix *U, matrix *b)
{
    _matrix_require_square(U, b);
    const uint32_t n = matrix_get_number_rows(b);
    for (uint32_t i = n; i > 0 && _matrix_substitute(U, b, i - 1, i, n); --i) {
    }
}

matrix *matrix_lu_solve_for(const matrix *m, const matrix *b)
{
    VESK_REQUIRE(m != nullptr, "m != ((void *)0)");
    VESK_REQUIRE(b != nullptr, "b != ((void *)0)");
    const uint32_t n = matrix_get_number_rows(m);
    VESK_REQUIRE(matrix_get_number_columns(m) == n, "matrix_get_number_columns(m) == n");
    VESK_REQUIRE(matrix_get_number_rows(b) == n, "matrix_get_number_rows(b) == n");
    owned_lu lu(matrix_lu_create(m));
    if (!lu || lu->rank < n) {
        return nullptr;
    }
    owned_matrix x(matrix_copy(b));
    if (!x) {
        return nullptr;
    }
    _matrix_permute_rows(x.get(), lu->p);
    const matrix *permuted = matrix_lu_get_lower(lu.get());
    const owned_matrix lower(permuted == nullptr ? nullptr : matrix_copy(permuted));
    if (!lower) {
        return nullptr;
    }
    _matrix_permute_rows(lower.get(), lu->p);
    _matrix_forward_substitution(lower.get(), x.get());
    _matrix_back_substitution(lu->matrix, x.get());
    _matrix_permute_rows_reversed(x.get(), lu->q);
    return x.release();
}

// ---- inverse ----

// Both triangles are inverted in panels of columns, which lie in one piece meanwhile; without
// memory for a panel in place, element by element, to the same bits.
class inverse_panel
{
public:
    explicit inverse_panel(uint32_t n)
        : stride_((std::min<std::size_t>(panel_columns, n) + panel_unit - 1) / panel_unit *
                  panel_unit),
          memory_(_matrix_allocate_scratch(n, stride_))
    {
    }

    explicit operator bool() const { return memory_.get() != nullptr; }
    double *row(uint32_t i) const { return memory_.get() + i * stride_; }
    std::size_t stride() const { return stride_; }

private:
    std::size_t stride_;
    owned_memory<double> memory_;
};

// Where each row (or column) comes to lie when the exchanges of `indices` are undone. Null without
// memory, which is no failure.
static owned_memory<uint32_t> _matrix_find_places(const matrix *indices)
{
    const uint32_t n = indices->nrows;
    std::size_t size = 0;
    owned_memory<uint32_t> places(multiply_sizes(&size, n, sizeof(uint32_t))
                                      ? static_cast<uint32_t *>(malloc(size))
                                      : nullptr);
    if (!places) {
        return places;
    }
    uint32_t *at = places.get();
    std::iota(at, at + n, 0U);
    // Taken forwards, the exchanges move the places instead of what comes to lie there.
    for (uint32_t k = 0; k + 1 < n; ++k) {
        std::swap(at[k], at[_matrix_index_at(indices, k)]);
    }
    return places;
}

// The sum over k from `begin` to `end` of a(i, k) * b(k, j), each step rounded.
static double _matrix_sum_products(const matrix *a, const matrix *b, uint32_t i, uint32_t j,
                                   uint32_t begin, uint32_t end)
{
    double sum = 0.0;
    for (uint32_t k = begin; k < end; ++k) {
        sum += a->values[i][k] * b->values[k][j];
    }
    return sum;
}

static void _matrix_invert_lower_in_place(const matrix_lu *lu, matrix *inverse)
{
    for (uint32_t i = 0; i < lu->matrix->nrows; ++i) {
        for (uint32_t j = 0; j < i; ++j) {
            inverse->values[i][j] = -_matrix_sum_products(lu->matrix, inverse, i, j, j, i);
        }
        inverse->values[i][i] = 1.0;
    }
    _matrix_permute_columns_reversed(inverse, lu->p);
}

// The inverse of the lower factor, with the exchanges of rows undone in its columns.
static matrix *_matrix_inverse_lower_triangular_unit_diagonal(const matrix_lu *lu)
{
    const uint32_t n = lu->matrix->nrows;
    owned_matrix inverse(matrix_create_like(lu->matrix));
    if (!inverse) {
        return nullptr;
    }
    const inverse_panel panel(n);
    const owned_memory<uint32_t> places = _matrix_find_places(lu->p);
    if (!panel || !places) {
        _matrix_invert_lower_in_place(lu, inverse.get());
        return inverse.release();
    }
    for (uint32_t first = 0; first < n; first += panel_columns) {
        const uint32_t columns = std::min<uint32_t>(panel_columns, n - first);
        _matrix_kernels().invert_lower(lu->matrix->values[0], n, n, first, columns, panel.row(0),
                                       panel.stride());
        for (uint32_t i = first; i < n; ++i) {
            double *row = inverse->values[i];
            for (uint32_t j = 0; j < std::min(columns, i - first + 1); ++j) {
                row[places.get()[first + j]] = panel.row(i)[j];
            }
        }
    }
    return inverse.release();
}

static void _matrix_invert_upper_in_place(const matrix_lu *lu, matrix *inverse)
{
    const uint32_t n = lu->matrix->nrows;
    for (uint32_t i = n; i-- > 0;) {
        const double diagonal = lu->matrix->values[i][i];
        inverse->values[i][i] = 1.0 / diagonal;
        for (uint32_t j = i + 1; j < n; ++j) {
            const double sum = _matrix_sum_products(lu->matrix, inverse, i, j, i + 1, j + 1);
            inverse->values[i][j] = -sum / diagonal;
        }
    }
    _matrix_permute_rows_reversed(inverse, lu->q);
}

// The inverse of the upper factor, with the exchanges of columns undone in its rows.
static matrix *_matrix_inverse_upper_triangular(const matrix_lu *lu)
{
    const uint32_t n = lu->matrix->nrows;
    owned_matrix inverse(matrix_create_like(lu->matrix));
    if (!inverse) {
        return nullptr;
    }
    const inverse_panel panel(n);
    const owned_memory<uint32_t> places = _matrix_find_places(lu->q);
    if (!panel || !places) {
        _matrix_invert_upper_in_place(lu, inverse.get());
        return inverse.release();
    }
    for (uint32_t first = 0; first < n; first += panel_columns) {
        const uint32_t columns = std::min<uint32_t>(panel_columns, n - first);
        _matrix_kernels().invert_upper(lu->matrix->values[0], n, n, first, columns, panel.row(0),
                                       panel.stride());
        for (uint32_t i = 0; i < first + columns; ++i) {
            const uint32_t zeros = i < first ? 0 : i - first;
            std::copy_n(panel.row(i) + zeros, columns - zeros,
                        inverse->values[places.get()[i]] + first + zeros);
        }
    }
    return inverse.release();
}

matrix *matrix_inverse(const matrix *m)
{
    VESK_REQUIRE(m != nullptr, "m != ((void *)0)");
    VESK_REQUIRE(m->version == 1, "m->version == ((char) 1)");
    const uint32_t n = matrix_get_number_rows(m);
    VESK_REQUIRE(n == matrix_get_number_columns(m), "rows == cols");
    const owned_lu lu(matrix_lu_create(m));
    if (!lu || lu->rank < n) {
        return nullptr;
    }
    const owned_matrix lower(_matrix_inverse_lower_triangular_unit_diagonal(lu.get()));
    if (!lower) {
        return nullptr;
    }
    const owned_matrix upper(_matrix_inverse_upper_triangular(lu.get()));
    if (!upper) {
        return nullptr;
    }
    return matrix_multiply(upper.get(), lower.get());
}
