// Rows, columns and blocks of matrices, taken out and put in. A regular matrix is copied here, the
// other types take their rows and columns by their slots, because labels belong to them.
#include <cstdint>
#include <string.h>

#include <vesk/matrix_slices.h>

#include "matrix/element_access.hpp"
#include "matrix/matrix_internal.hpp"
#include "support/precondition.hpp"

matrix *matrix_get_columns(const matrix *m, const uint32_t *col_indices, uint32_t nindices)
{
    MATRIX_REQUIRE_USABLE(m);
    VESK_REQUIRE(col_indices != nullptr, "col_indices != ((void *)0)");
    VESK_REQUIRE(nindices > 0, "nindices > 0");
    if (m->type != MATRIX_TYPE_REGULAR) {
        VESK_REQUIRE(m->matrix != nullptr, "m->matrix != ((void *)0)");
        VESK_REQUIRE(m->fn_get_col_slice != nullptr, "m->fn_get_col_slice != ((void *)0)");
        return _matrix_create_same_type(m, m->nrows, nindices, [&](void *object) {
            return m->fn_get_col_slice(object, col_indices, nindices);
        });
    }
    matrix *columns = matrix_create_with_dimensions(m->nrows, nindices);
    if (columns == nullptr) {
        return nullptr;
    }
    for (uint32_t i = 0; i < m->nrows; ++i) {
        const double *from = m->values[i];
        double *to = columns->values[i];
        for (uint32_t k = 0; k < nindices; ++k) {
            to[k] = from[col_indices[k]];
        }
    }
    return columns;
}

matrix *matrix_get_rows(const matrix *m, const uint32_t *row_indices, uint32_t nindices)
{
    MATRIX_REQUIRE_USABLE(m);
    VESK_REQUIRE(row_indices != nullptr, "row_indices != ((void *)0)");
    VESK_REQUIRE(nindices > 0, "nindices > 0");
    if (m->type != MATRIX_TYPE_REGULAR) {
        VESK_REQUIRE(m->matrix != nullptr, "m->matrix != ((void *)0)");
        VESK_REQUIRE(m->fn_get_row_slice != nullptr, "m->fn_get_row_slice != ((void *)0)");
        return _matrix_create_same_type(m, nindices, m->ncols, [&](void *object) {
            return m->fn_get_row_slice(object, row_indices, nindices);
        });
    }
    matrix *rows = matrix_create_with_dimensions(nindices, m->ncols);
    if (rows == nullptr) {
        return nullptr;
    }
    for (uint32_t k = 0; k < nindices; ++k) {
        memcpy(rows->values[k], m->values[row_indices[k]], m->ncols * sizeof(double));
    }
    return rows;
}

int matrix_set_columns(matrix *m, const matrix *vals, const uint32_t *col_indices)
{
    MATRIX_REQUIRE_USABLE(m);
    VESK_REQUIRE(vals != nullptr, "vals != ((void *)0)");
    VESK_REQUIRE(m->nrows == vals->nrows, "m->nrows == vals->nrows");
    VESK_REQUIRE(col_indices != nullptr, "col_indices != ((void *)0)");
    const element_writer to(m);
    const element_reader from(vals);
    for (uint32_t i = 0; i < m->nrows; ++i) {
        for (uint32_t k = 0; k < vals->ncols; ++k) {
            to.set(i, col_indices[k], from.get(i, k));
        }
    }
    if (m->type == MATRIX_TYPE_REGULAR) {
        return 0;
    }
    VESK_REQUIRE(m->fn_set_columns != nullptr, "m->fn_set_columns != ((void *)0)");
    VESK_REQUIRE(m->matrix != nullptr, "m->matrix != ((void *)0)");
    return m->fn_set_columns(m->matrix, vals, col_indices);
}

int matrix_set_rows(matrix *m, const matrix *vals, const uint32_t *row_indices)
{
    MATRIX_REQUIRE_USABLE(m);
    VESK_REQUIRE(vals != nullptr, "vals != ((void *)0)");
    VESK_REQUIRE(m->ncols == vals->ncols, "m->ncols == vals->ncols");
    VESK_REQUIRE(row_indices != nullptr, "row_indices != ((void *)0)");
    const element_writer to(m);
    const element_reader from(vals);
    for (uint32_t k = 0; k < vals->nrows; ++k) {
        for (uint32_t j = 0; j < m->ncols; ++j) {
            to.set(row_indices[k], j, from.get(k, j));
        }
    }
    if (m->type == MATRIX_TYPE_REGULAR) {
        return 0;
    }
    VESK_REQUIRE(m->fn_set_rows != nullptr, "m->fn_set_rows != ((void *)0)");
    VESK_REQUIRE(m->matrix != nullptr, "m->matrix != ((void *)0)");
    return m->fn_set_rows(m->matrix, vals, row_indices);
}

// The bounds of blocks are in unsigned arithmetic: behind any start but 0, a count of 0 passes.

matrix *matrix_get_submatrix(const matrix *m, uint32_t start_row, uint32_t nrows,
                             uint32_t start_col, uint32_t ncols)
{
    VESK_REQUIRE(start_row < matrix_get_number_rows(m), "start_row < matrix_get_number_rows(m)");
    VESK_REQUIRE(start_row + nrows - 1 < matrix_get_number_rows(m),
                 "start_row + nrows - 1 < matrix_get_number_rows(m)");
    VESK_REQUIRE(start_col < matrix_get_number_columns(m),
                 "start_col < matrix_get_number_columns(m)");
    VESK_REQUIRE(start_col + ncols - 1 < matrix_get_number_columns(m),
                 "start_col + ncols - 1 < matrix_get_number_columns(m)");
    matrix *block = matrix_create_with_dimensions(nrows, ncols);
    if (block == nullptr) {
        return nullptr;
    }
    const element_reader from(m);
    for (uint32_t i = 0; i < nrows; ++i) {
        from.copy_run(start_row + i, start_col, ncols, block->values[i]);
    }
    return block;
}

void matrix_set_submatrix(matrix *m, const matrix *vals, uint32_t start_row, uint32_t nrows,
                          uint32_t start_col, uint32_t ncols, uint32_t v_start_row,
                          uint32_t v_start_col)
{
    VESK_REQUIRE(start_row < matrix_get_number_rows(m), "start_row < matrix_get_number_rows(m)");
    VESK_REQUIRE(start_row + nrows - 1 < matrix_get_number_rows(m),
                 "start_row + nrows - 1 < matrix_get_number_rows(m)");
    VESK_REQUIRE(start_col < matrix_get_number_columns(m),
                 "start_col < matrix_get_number_columns(m)");
    VESK_REQUIRE(start_col + ncols - 1 < matrix_get_number_columns(m),
                 "start_col + ncols - 1 < matrix_get_number_columns(m)");
    VESK_REQUIRE(v_start_row < matrix_get_number_rows(vals),
                 "v_start_row < matrix_get_number_rows(vals)");
    VESK_REQUIRE(v_start_row + nrows - 1 < matrix_get_number_rows(vals),
                 "v_start_row + nrows - 1 < matrix_get_number_rows(vals)");
    VESK_REQUIRE(v_start_col < matrix_get_number_columns(vals),
                 "v_start_col < matrix_get_number_columns(vals)");
    VESK_REQUIRE(v_start_col + ncols - 1 < matrix_get_number_columns(vals),
                 "v_start_col + ncols - 1 < matrix_get_number_columns(vals)");
    const element_writer to(m);
    const element_reader from(vals);
    for (uint32_t i = 0; i < nrows; ++i) {
        for (uint32_t j = 0; j < ncols; ++j) {
            to.set(start_row + i, start_col + j, from.get(v_start_row + i, v_start_col + j));
        }
    }
}
