// The life of matrices of every type, access to their elements, and the storage of regular ones.
// What differs from type to type goes through the slots of the matrix.
#include <algorithm>
#include <cstdint>
#include <string.h>

#include <vesk/error.h>
#include <vesk/matrix.h>
#include <vesk/matrix_compare.h>

#include "matrix/element_access.hpp"
#include "matrix/matrix_internal.hpp"
#include "matrix/strided.hpp"
#include "matrix/telemetry_matrix_internal.hpp"
#include "support/object.hpp"
#include "support/owner.hpp"
#include "support/precondition.hpp"

// Storage of values: row pointers into one zero-filled block, which row 0 points at. Null and
// QE_ERROR_NO_MEMORY (-22) in the cell when there is no memory.
static double **_matrix_allocate_rows(uint32_t nrows, uint32_t ncols)
{
    std::size_t count = 0;
    std::size_t size = 0;
    // Checked here and not left to calloc(): a count or a size that overflows would ask it for less
    // memory than the elements take, and no object may be larger than PTRDIFF_MAX.
    if (__builtin_mul_overflow(nrows, ncols, &count) ||
        __builtin_mul_overflow(count, sizeof(double), &size) || size > PTRDIFF_MAX) {
        qe_set_last_error(QE_ERROR_NO_MEMORY);
        return nullptr;
    }
    owned_memory<double *> rows(allocate<double *>(nrows));
    if (!rows) {
        return nullptr;
    }
    double *block = allocate_zeroed<double>(count);
    if (block == nullptr) {
        return nullptr;
    }
    for (uint32_t i = 0; i < nrows; ++i) {
        rows.get()[i] = block + static_cast<std::size_t>(i) * ncols;
    }
    return rows.release();
}

static void _matrix_free_rows(double **rows)
{
    if (rows != nullptr) {
        free(rows[0]);
        free(rows);
    }
}

static void _matrix_copy_slots(const matrix *from, matrix *to)
{
    to->fn_destroy = from->fn_destroy;
    to->fn_get = from->fn_get;
    to->fn_set = from->fn_set;
    to->fn_create_like = from->fn_create_like;
    to->fn_get_col_slice = from->fn_get_col_slice;
    to->fn_get_row_slice = from->fn_get_row_slice;
    to->fn_copy = from->fn_copy;
    to->fn_resize = from->fn_resize;
    to->fn_set_rows = from->fn_set_rows;
    to->fn_set_columns = from->fn_set_columns;
}

static void _matrix_init_regular_metadata(matrix *m)
{
    VESK_REQUIRE(m->type == MATRIX_TYPE_REGULAR, "m->type == MATRIX_TYPE_REGULAR");
    const matrix no_slots = {};
    _matrix_copy_slots(&no_slots, m);
}

int _matrix_init(matrix *m, uint32_t type, uint32_t nrows, uint32_t ncols)
{
    VESK_REQUIRE(type > 0, "type > 0");
    VESK_REQUIRE(nrows > 0, "nrows > 0");
    VESK_REQUIRE(ncols > 0, "ncols > 0");
    m->version = 1;
    m->type = type;
    m->values = nullptr;
    m->nrows = nrows;
    m->ncols = ncols;
    return 0;
}

void _matrix_destruct(matrix *m)
{
    VESK_REQUIRE(m->version == 1, "m->version == ((char) 1)");
    m->version = 0;
    m->type = 0;
    m->nrows = 0;
    m->ncols = 0;
}

int _matrix_copy_metadata(const matrix *from, matrix *to)
{
    VESK_REQUIRE(from != nullptr, "from != ((void *)0)");
    VESK_REQUIRE(to != nullptr, "to != ((void *)0)");
    VESK_REQUIRE(to->version == 1, "to->version == ((char) 1)");
    VESK_REQUIRE(to->type > 0, "to->type > 0");
    VESK_REQUIRE(from->version == 1, "from->version == ((char) 1)");
    VESK_REQUIRE(from->type > 0, "from->type > 0");
    _matrix_copy_slots(from, to);
    if (from->values != nullptr && matrix_enable_direct_access(to) == nullptr) {
        return qe_get_last_error();
    }
    return 0;
}

int matrix_init(matrix *m, uint32_t nrows, uint32_t ncols)
{
    VESK_REQUIRE(m != nullptr, "m != ((void *)0)");
    VESK_REQUIRE(nrows > 0, "nrows > 0");
    VESK_REQUIRE(ncols > 0, "ncols > 0");
    _matrix_init(m, MATRIX_TYPE_REGULAR, nrows, ncols);
    m->values = _matrix_allocate_rows(nrows, ncols);
    if (m->values == nullptr) {
        _matrix_destruct(m);
        return QE_ERROR_NO_MEMORY;
    }
    _matrix_init_regular_metadata(m);
    m->matrix = nullptr;
    return 0;
}

matrix *matrix_create(uint32_t nrows, uint32_t ncols)
{
    matrix *m =
        create_object<matrix>([&](matrix *made) { return matrix_init(made, nrows, ncols); });
    VESK_REQUIRE(m != nullptr || qe_get_last_error() < 0, "qe_get_last_error() < 0");
    return m;
}

matrix *matrix_create_with_dimensions(uint32_t nrows, uint32_t ncols)
{
    return matrix_create(nrows, ncols);
}

int matrix_init_null(matrix *m)
{
    VESK_REQUIRE(m != nullptr, "m != ((void *)0)");
    *m = {};
    m->version = 1;
    return 0;
}

matrix *matrix_create_null(void)
{
    return create_object<matrix>(matrix_init_null);
}

matrix *matrix_create_like(const matrix *m)
{
    MATRIX_REQUIRE_USABLE(m);
    if (m->type == MATRIX_TYPE_REGULAR) {
        return matrix_create_with_dimensions(m->nrows, m->ncols);
    }
    VESK_REQUIRE(m->matrix != nullptr, "m->matrix != ((void *)0)");
    VESK_REQUIRE(m->fn_create_like != nullptr, "m->fn_create_like != ((void *)0)");
    return _matrix_create_same_type(m, m->nrows, m->ncols, m->fn_create_like);
}

matrix *matrix_create_like_binary_operands(const matrix *m1, const matrix *m2)
{
    VESK_REQUIRE(m1 != nullptr, "m1 != ((void *)0)");
    VESK_REQUIRE(m2 != nullptr, "m2 != ((void *)0)");
    VESK_REQUIRE(matrix_is_equal_dimensions(m1, m2), "matrix_is_equal_dimensions (m1, m2)");
    return matrix_create_like(m1);
}

matrix *matrix_create_identity(uint32_t m)
{
    VESK_REQUIRE(m > 0, "m > 0");
    matrix *identity = matrix_create_with_dimensions(m, m);
    if (identity == nullptr) {
        return nullptr;
    }
    for (uint32_t i = 0; i < m; ++i) {
        identity->values[i][i] = 1.0;
    }
    return identity;
}

matrix *matrix_create_ones(uint32_t m, uint32_t n)
{
    VESK_REQUIRE(m > 0, "m > 0");
    VESK_REQUIRE(n > 0, "n > 0");
    matrix *ones = matrix_create_with_dimensions(m, n);
    if (ones == nullptr) {
        return nullptr;
    }
    std::fill_n(ones->values[0], static_cast<std::size_t>(m) * n, 1.0);
    return ones;
}

double matrix_get(const matrix *m, uint32_t i, uint32_t j)
{
    VESK_REQUIRE(m != nullptr, "m != ((void *)0)");
    VESK_REQUIRE(m->version == 1, "m->version == ((char) 1)");
    VESK_REQUIRE(m->type > 0, "m->type > 0");
    if (m->values != nullptr) {
        VESK_REQUIRE(i < m->nrows, "i < m->nrows");
        VESK_REQUIRE(j < m->ncols, "j < m->ncols");
        return m->values[i][j];
    }
    VESK_REQUIRE(m->type != MATRIX_TYPE_REGULAR, "m->type != MATRIX_TYPE_REGULAR");
    VESK_REQUIRE(m->matrix != nullptr, "m->matrix != ((void *)0)");
    VESK_REQUIRE(m->fn_get != nullptr, "m->fn_get != ((void *)0)");
    return m->fn_get(m->matrix, i, j);
}

void matrix_set(matrix *m, uint32_t i, uint32_t j, double value)
{
    VESK_REQUIRE(m != nullptr, "m != ((void *)0)");
    VESK_REQUIRE(m->version == 1, "m->version == ((char) 1)");
    VESK_REQUIRE(m->type > 0, "m->type > 0");
    if (m->values != nullptr) {
        VESK_REQUIRE(i < m->nrows, "i < m->nrows");
        VESK_REQUIRE(j < m->ncols, "j < m->ncols");
        m->values[i][j] = value;
        return;
    }
    VESK_REQUIRE(m->type != MATRIX_TYPE_REGULAR, "m->type != MATRIX_TYPE_REGULAR");
    VESK_REQUIRE(m->matrix != nullptr, "m->matrix != ((void *)0)");
    VESK_REQUIRE(m->fn_set != nullptr, "m->fn_set != ((void *)0)");
    m->fn_set(m->matrix, i, j, value);
}

uint32_t matrix_get_number_rows(const matrix *m)
{
    VESK_REQUIRE(m != nullptr, "m != ((void *)0)");
    VESK_REQUIRE(m->version == 1, "m->version == ((char) 1)");
    VESK_REQUIRE(m->nrows > 0, "m->nrows > 0");
    return m->nrows;
}

uint32_t matrix_get_number_columns(const matrix *m)
{
    VESK_REQUIRE(m != nullptr, "m != ((void *)0)");
    VESK_REQUIRE(m->version == 1, "m->version == ((char) 1)");
    VESK_REQUIRE(m->ncols > 0, "m->ncols > 0");
    return m->ncols;
}

uint32_t matrix_get_type(const matrix *m)
{
    VESK_REQUIRE(m != nullptr, "m != ((void *)0)");
    VESK_REQUIRE(m->version == 1, "m->version == ((char) 1)");
    return m->type;
}

// Turns a view into a regular matrix that holds what the view showed.
static double **_matrix_take_values_of_view(matrix *m)
{
    VESK_REQUIRE(m->matrix != nullptr, "m->matrix != ((void *)0)");
    VESK_REQUIRE(m->fn_destroy != nullptr, "m->fn_destroy != ((void *)0)");
    VESK_REQUIRE(m->values == nullptr, "m->values == ((void *)0)");
    double **rows = _matrix_allocate_rows(m->nrows, m->ncols);
    if (rows == nullptr) {
        return nullptr;
    }
    _matrix_copy_elements(m, rows[0]);
    m->fn_destroy(&m->matrix);
    VESK_REQUIRE(m->matrix == nullptr, "m->matrix == ((void *)0)");
    m->type = MATRIX_TYPE_REGULAR;
    _matrix_init_regular_metadata(m);
    return rows;
}

static double **_matrix_get_row_pointers(matrix *m)
{
    if (m->type != MATRIX_TYPE_TELEMETRY) {
        return _matrix_take_values_of_view(m);
    }
    const auto *tmatrix = static_cast<const telemetry_matrix *>(m->matrix);
    VESK_REQUIRE(tmatrix != nullptr, "tmatrix != ((void *)0)");
    VESK_REQUIRE(tmatrix->matrix != nullptr, "tmatrix->matrix != ((void *)0)");
    return matrix_enable_direct_access(tmatrix->matrix);
}

double **matrix_enable_direct_access(matrix *m)
{
    VESK_REQUIRE(m != nullptr, "m != ((void *)0)");
    VESK_REQUIRE(m->version == 1, "m->version == ((char) 1)");
    VESK_REQUIRE(m->type > 0, "m->type > 0");
    if (m->values == nullptr) {
        VESK_REQUIRE(m->type != MATRIX_TYPE_REGULAR, "m->type != MATRIX_TYPE_REGULAR");
        m->values = _matrix_get_row_pointers(m);
    }
    return m->values;
}

// If there is no memory for the new values, the old ones stay.
static int _matrix_resize_regular(matrix *m, uint32_t nrows, uint32_t ncols)
{
    VESK_REQUIRE(m->values != nullptr, "matrix->values != ((void *)0)");
    double **rows = _matrix_allocate_rows(nrows, ncols);
    if (rows == nullptr) {
        return QE_ERROR_NO_MEMORY;
    }
    const std::size_t overlap = std::min(m->ncols, ncols) * sizeof(double);
    for (uint32_t i = 0; i < std::min(m->nrows, nrows); ++i) {
        memcpy(rows[i], m->values[i], overlap);
    }
    _matrix_free_rows(m->values);
    m->values = rows;
    m->nrows = nrows;
    m->ncols = ncols;
    return 0;
}

int matrix_resize(matrix *m, uint32_t nrows, uint32_t ncols)
{
    VESK_REQUIRE(m != nullptr, "matrix != ((void *)0)");
    VESK_REQUIRE(m->version == 1, "matrix->version == ((char) 1)");
    VESK_REQUIRE(nrows > 0, "nrows > 0");
    VESK_REQUIRE(ncols > 0, "ncols > 0");
    if (m->nrows == nrows && m->ncols == ncols) {
        return 0;
    }
    if (m->type == MATRIX_TYPE_REGULAR) {
        return _matrix_resize_regular(m, nrows, ncols);
    }
    VESK_REQUIRE(m->fn_resize != nullptr, "matrix->fn_resize != ((void *)0)");
    VESK_REQUIRE(m->matrix != nullptr, "matrix->matrix != ((void *)0)");
    const int result = m->fn_resize(m->matrix, nrows, ncols);
    if (result == 0) {
        m->nrows = nrows;
        m->ncols = ncols;
    }
    if (m->values != nullptr) {
        // Even a failed slot may have moved the borrowed values.
        m->values = nullptr;
        matrix_enable_direct_access(m);
    }
    return result;
}

matrix *matrix_copy(const matrix *m)
{
    MATRIX_REQUIRE_USABLE(m);
    if (m->type == MATRIX_TYPE_REGULAR) {
        matrix *copy = matrix_create(m->nrows, m->ncols);
        if (copy == nullptr) {
            return nullptr;
        }
        VESK_REQUIRE(copy->values != nullptr, "copy->values != ((void *)0)");
        memcpy(copy->values[0], m->values[0],
               static_cast<std::size_t>(m->nrows) * m->ncols * sizeof(double));
        return copy;
    }
    VESK_REQUIRE(m->matrix != nullptr, "m->matrix != ((void *)0)");
    VESK_REQUIRE(m->fn_copy != nullptr, "m->fn_copy != ((void *)0)");
    matrix *copy = _matrix_create_same_type(m, m->nrows, m->ncols, m->fn_copy);
    VESK_REQUIRE(copy != nullptr || qe_get_last_error() < 0, "qe_get_last_error() < 0");
    return copy;
}

void matrix_destruct(matrix *m)
{
    VESK_REQUIRE(m != nullptr, "m != ((void *)0)");
    VESK_REQUIRE(m->version == 1, "m->version == ((char) 1)");
    if (m->type == MATRIX_TYPE_REGULAR) {
        VESK_REQUIRE(m->matrix == nullptr, "m->matrix == ((void *)0)");
        _matrix_free_rows(m->values);
    } else if (m->matrix != nullptr) {
        VESK_REQUIRE(m->fn_destroy != nullptr, "m->fn_destroy != ((void *)0)");
        m->fn_destroy(&m->matrix);
    }
    m->values = nullptr;
    _matrix_destruct(m);
}

void matrix_destroy(matrix **m)
{
    VESK_REQUIRE(m != nullptr, "m != ((void *)0)");
    VESK_REQUIRE(*m != nullptr, "*m != ((void *)0)");
    destroy_object(m, matrix_destruct);
}
