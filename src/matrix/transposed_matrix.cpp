// Transposed matrices: views that show the elements of another matrix with rows and columns
// exchanged. Nothing is copied until somebody asks for direct access.
#include <cstdint>

#include <vesk/error.h>
#include <vesk/matrix_slices.h>
#include <vesk/transposed_matrix.h>

#include "matrix/matrix_internal.hpp"
#include "matrix/transposed_matrix_internal.hpp"
#include "support/object.hpp"
#include "support/owner.hpp"
#include "support/precondition.hpp"

static transposed_matrix *_transposed_matrix_create(matrix *source)
{
    auto *tmatrix = allocate<transposed_matrix>();
    if (tmatrix != nullptr) {
        *tmatrix = {1, source, 1};
    }
    return tmatrix;
}

// A view of a source that nobody else holds; null without one.
static transposed_matrix *_transposed_matrix_create_over_new(matrix *new_source)
{
    owned<matrix, matrix_destroy> source(new_source);
    if (!source) {
        return nullptr;
    }
    transposed_matrix *tmatrix = _transposed_matrix_create(new_source);
    if (tmatrix != nullptr) {
        source.release();
    }
    return tmatrix;
}

static void _transposed_matrix_destroy(void **object)
{
    auto *tmatrix = static_cast<transposed_matrix *>(*object);
    if (tmatrix == nullptr || tmatrix->version != 1) {
        return;
    }
    if (tmatrix->matrix != nullptr && tmatrix->owns_matrix == 1) {
        matrix_destroy(&tmatrix->matrix);
    }
    tmatrix->version = 0;
    free(tmatrix);
    *object = nullptr;
}

// The object of a slot.
#define TRANSPOSED_REQUIRE_SOURCE(tmatrix)                                                         \
    VESK_REQUIRE((tmatrix) != nullptr, "tmatrix != ((void *)0)");                                  \
    VESK_REQUIRE((tmatrix)->version == 1, "tmatrix->version == ((char) 1)");                       \
    VESK_REQUIRE((tmatrix)->matrix != nullptr, "tmatrix->matrix != ((void *)0)")

static double _transposed_matrix_get(void *object, uint32_t i, uint32_t j)
{
    const auto *tmatrix = static_cast<const transposed_matrix *>(object);
    TRANSPOSED_REQUIRE_SOURCE(tmatrix);
    return matrix_get(tmatrix->matrix, j, i);
}

static void _transposed_matrix_set(void *object, uint32_t i, uint32_t j, double value)
{
    const auto *tmatrix = static_cast<const transposed_matrix *>(object);
    TRANSPOSED_REQUIRE_SOURCE(tmatrix);
    matrix_set(tmatrix->matrix, j, i, value);
}

static void *_transposed_matrix_create_like(void *object)
{
    const auto *tmatrix = static_cast<const transposed_matrix *>(object);
    TRANSPOSED_REQUIRE_SOURCE(tmatrix);
    return _transposed_matrix_create_over_new(matrix_create_like(tmatrix->matrix));
}

static void *_transposed_matrix_get_columns(void *object, const uint32_t *slices, uint32_t n)
{
    const auto *tmatrix = static_cast<const transposed_matrix *>(object);
    TRANSPOSED_REQUIRE_SOURCE(tmatrix);
    VESK_REQUIRE(slices != nullptr, "slices != ((void *)0)");
    VESK_REQUIRE(n > 0, "n > 0");
    return _transposed_matrix_create_over_new(matrix_get_rows(tmatrix->matrix, slices, n));
}

static void *_transposed_matrix_get_rows(void *object, const uint32_t *slices, uint32_t n)
{
    const auto *tmatrix = static_cast<const transposed_matrix *>(object);
    TRANSPOSED_REQUIRE_SOURCE(tmatrix);
    VESK_REQUIRE(slices != nullptr, "slices != ((void *)0)");
    VESK_REQUIRE(n > 0, "n > 0");
    return _transposed_matrix_create_over_new(matrix_get_columns(tmatrix->matrix, slices, n));
}

static void *_transposed_matrix_copy(void *object)
{
    const auto *tmatrix = static_cast<const transposed_matrix *>(object);
    TRANSPOSED_REQUIRE_SOURCE(tmatrix);
    return _transposed_matrix_create_over_new(matrix_copy(tmatrix->matrix));
}

static int _transposed_matrix_resize(void *object, uint32_t nrows, uint32_t ncols)
{
    const auto *tmatrix = static_cast<const transposed_matrix *>(object);
    TRANSPOSED_REQUIRE_SOURCE(tmatrix);
    // Fails when the source was resized to this shape behind the view's back.
    VESK_REQUIRE(matrix_get_number_rows(tmatrix->matrix) != ncols ||
                     matrix_get_number_columns(tmatrix->matrix) != nrows,
                 "matrix_get_number_rows (tmatrix->matrix) != ncols || "
                 "matrix_get_number_columns (tmatrix->matrix) != nrows");
    return matrix_resize(tmatrix->matrix, ncols, nrows);
}

// A view has no labels: the values were written through it already.
static int _transposed_matrix_set_nothing(void *, const matrix *, const uint32_t *)
{
    return 0;
}

bool _transposed_matrix_has_own_access(const matrix *view)
{
    return view->fn_get == _transposed_matrix_get && view->fn_set == _transposed_matrix_set;
}

bool _transposed_matrix_has_own_copy(const matrix *view)
{
    return view->fn_copy == _transposed_matrix_copy &&
           view->fn_destroy == _transposed_matrix_destroy;
}

static void _matrix_init_transposed_metadata(matrix *m)
{
    m->fn_destroy = _transposed_matrix_destroy;
    m->fn_get = _transposed_matrix_get;
    m->fn_set = _transposed_matrix_set;
    m->fn_create_like = _transposed_matrix_create_like;
    m->fn_get_col_slice = _transposed_matrix_get_columns;
    m->fn_get_row_slice = _transposed_matrix_get_rows;
    m->fn_copy = _transposed_matrix_copy;
    m->fn_resize = _transposed_matrix_resize;
    m->fn_set_rows = _transposed_matrix_set_nothing;
    m->fn_set_columns = _transposed_matrix_set_nothing;
}

int transposed_matrix_init(matrix *m, matrix *orig_m)
{
    VESK_REQUIRE(m != nullptr, "m != ((void *)0)");
    VESK_REQUIRE(orig_m != nullptr, "orig_m != ((void *)0)");
    _matrix_init(m, MATRIX_TYPE_TRANSPOSED, matrix_get_number_columns(orig_m),
                 matrix_get_number_rows(orig_m));
    m->matrix = _transposed_matrix_create(orig_m);
    if (m->matrix == nullptr) {
        _matrix_destruct(m);
        return qe_get_last_error();
    }
    _matrix_init_transposed_metadata(m);
    return 0;
}

matrix *transposed_matrix_create(matrix *source)
{
    VESK_REQUIRE(source != nullptr, "matrix != ((void *)0)");
    VESK_REQUIRE(source->nrows > 0, "matrix->nrows > 0");
    VESK_REQUIRE(source->ncols > 0, "matrix->ncols > 0");
    return create_object<matrix>([&](matrix *m) { return transposed_matrix_init(m, source); });
}

matrix *transposed_matrix_detach_original_matrix(matrix *m)
{
    VESK_REQUIRE(m != nullptr, "m != ((void *)0)");
    VESK_REQUIRE(m->type == MATRIX_TYPE_TRANSPOSED, "m->type == MATRIX_TYPE_TRANSPOSED");
    auto *tmatrix = static_cast<transposed_matrix *>(m->matrix);
    TRANSPOSED_REQUIRE_SOURCE(tmatrix);
    tmatrix->owns_matrix = 0;
    return tmatrix->matrix;
}
