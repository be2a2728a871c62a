/**
 * @file
 * @brief Transposed matrices: views with rows and columns exchanged.
 *
 * Element (i, j) of a view is element (j, i) of the matrix that it shows, its source; it is read
 * and written there. A view owns its source and destroys it with itself, unless the source was
 * detached. Enabling direct access on a view makes it a regular matrix of its own, see
 * matrix_enable_direct_access().
 *
 * A view keeps the shape that its source had: resize the view, not the source.
 */
#ifndef VESK_TRANSPOSED_MATRIX_H
#define VESK_TRANSPOSED_MATRIX_H

#include "matrix.h"
#include "vesk_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Makes @p m a view of @p orig_m, which may be of any type, and takes @p orig_m over.
 *
 * Aborts with "m != ((void *)0)" or "orig_m != ((void *)0)".
 *
 * @return 0; or QE_ERROR_NO_MEMORY (-22) without memory, and @p orig_m stays the caller's.
 */
VESK_API int transposed_matrix_init(matrix *m, matrix *orig_m);

/**
 * Makes a new view, see transposed_matrix_init().
 *
 * Aborts with "matrix != ((void *)0)", "matrix->nrows > 0" or "matrix->ncols > 0".
 *
 * @return the view; null with QE_ERROR_NO_MEMORY (-22) without memory, and @p matrix stays the
 * caller's.
 */
VESK_API matrix *transposed_matrix_create(matrix *matrix);

/**
 * Gives the source back to the caller: destroying @p m no longer destroys it. While @p m is a view
 * of it, the source must live.
 *
 * Aborts with "m != ((void *)0)" or "m->type == MATRIX_TYPE_TRANSPOSED".
 *
 * @return the source.
 */
VESK_API matrix *transposed_matrix_detach_original_matrix(matrix *m);

#ifdef __cplusplus
}
#endif

#endif
