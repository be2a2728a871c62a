/**
 * @file
 * @brief Matrices of doubles: regular ones, views of others, and telemetry.
 *
 * One record stands for three types of matrix. A regular matrix owns its values. A transposed
 * matrix is a view of another matrix (transposed_matrix.h). A telemetry matrix dresses another
 * matrix with a timestamp for each row and a sensor for each column (telemetry_matrix.h). All
 * functions take all types; what a type does in its own way stands behind ten slots in the record.
 *
 * 1. Values are IEEE 754 doubles in row-major order; rows and columns count from 0. A usable matrix
 *    has at least one of each.
 * 2. Direct access: regular and telemetry matrices have their row pointers in `values`, so
 *    `m->values[i][j]` is element (i, j), without the checks of matrix_get(). Row i begins
 *    `i * ncols` elements behind row 0. The pointers hold until the matrix is resized or
 *    destructed.
 * 3. Every function requires its matrices to be non-null and live: it aborts with
 *    "m != ((void *)0)", "m->version == ((char) 1)" or, on the null record of matrix_init_null(),
 *    with "m->type > 0".
 * 4. Operands may share their values with the result: elements are read and written one by one in
 *    row-major order.
 */
#ifndef VESK_MATRIX_H
#define VESK_MATRIX_H

#include <stdint.h>

#include "vesk_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Types of matrix; 0 is the null record. */
enum {
    MATRIX_TYPE_REGULAR = 1,    /**< owns its values */
    MATRIX_TYPE_TRANSPOSED = 2, /**< shows another matrix with rows and columns exchanged */
    MATRIX_TYPE_TELEMETRY = 3   /**< rows are timestamps, columns are sensors */
};

typedef struct matrix matrix;

/**
 * A matrix. The slots are empty in a regular matrix and all set in any other; they receive the
 * type-specific object, not the matrix, and fn_destroy receives the address of the `matrix` field.
 */
struct matrix {
    signed char version; /**< 1 while live */
    uint32_t type;       /**< a type code, 0 in a null record */
    double **values;     /**< the row pointers; null without direct access */
    uint32_t nrows;      /**< number of rows */
    uint32_t ncols;      /**< number of columns */
    void *matrix;        /**< the type-specific object; null in a regular matrix */

    /** Destroys the type-specific object and sets the field to null. */
    void (*fn_destroy)(void **object);
    /** Returns element (i, j) and checks its bounds. */
    double (*fn_get)(void *object, uint32_t i, uint32_t j);
    /** Stores element (i, j) and checks its bounds. */
    void (*fn_set)(void *object, uint32_t i, uint32_t j, double value);
    /** Makes an object of the same kind and shape with values of 0; null on failure. */
    void *(*fn_create_like)(void *object);
    /** Makes an object of the listed columns; null on failure. */
    void *(*fn_get_col_slice)(void *object, const uint32_t *indices, uint32_t n);
    /** Makes an object of the listed rows; null on failure. */
    void *(*fn_get_row_slice)(void *object, const uint32_t *indices, uint32_t n);
    /** Makes a deep copy of the object; null on failure. */
    void *(*fn_copy)(void *object);
    /** Resizes the values; returns 0 or a negative code. */
    int (*fn_resize)(void *object, uint32_t nrows, uint32_t ncols);
    /** Takes over what belongs to the listed rows beside their values; 0 or a negative code. */
    int (*fn_set_rows)(void *object, const struct matrix *vals, const uint32_t *indices);
    /** Takes over what belongs to the listed columns beside their values; 0 or a negative code. */
    int (*fn_set_columns)(void *object, const struct matrix *vals, const uint32_t *indices);
};

/**
 * Makes @p m a regular matrix of zeros.
 *
 * Aborts with "nrows > 0" or "ncols > 0".
 *
 * @return 0, or QE_ERROR_NO_MEMORY (-22) without memory; @p m is then dead.
 */
VESK_API int matrix_init(matrix *m, uint32_t nrows, uint32_t ncols);

/** @return a new regular matrix of zeros, see matrix_init(); null with QE_ERROR_NO_MEMORY (-22)
 * without memory. */
VESK_API matrix *matrix_create(uint32_t nrows, uint32_t ncols);

/** The same as matrix_create(). */
VESK_API matrix *matrix_create_with_dimensions(uint32_t nrows, uint32_t ncols);

/** Makes @p m a null record: live, of type 0 and without rows, for a reader to fill. @return 0. */
VESK_API int matrix_init_null(matrix *m);

/** @return a new null record; null with QE_ERROR_NO_MEMORY (-22) without memory. */
VESK_API matrix *matrix_create_null(void);

/**
 * Makes a matrix of zeros of the type and shape of @p m. A telemetry matrix gives its sensors and
 * timestamps along; a view gives a view of a new matrix like its source.
 *
 * Aborts with "m->nrows > 0" or "m->ncols > 0".
 *
 * @return the new matrix; null with QE_ERROR_NO_MEMORY (-22) without memory.
 */
VESK_API matrix *matrix_create_like(const matrix *m);

/**
 * As matrix_create_like() of @p m1.
 *
 * Aborts with "m1 != ((void *)0)", "m2 != ((void *)0)" or
 * "matrix_is_equal_dimensions (m1, m2)".
 */
VESK_API matrix *matrix_create_like_binary_operands(const matrix *m1, const matrix *m2);

/**
 * Makes the regular @p m by @p m identity matrix. Aborts with "m > 0".
 *
 * @return the new matrix; null with QE_ERROR_NO_MEMORY (-22) without memory.
 */
VESK_API matrix *matrix_create_identity(uint32_t m);

/**
 * Makes a regular matrix of @p m rows and @p n columns with all elements 1. Aborts with "m > 0" or
 * "n > 0".
 *
 * @return the new matrix; null with QE_ERROR_NO_MEMORY (-22) without memory.
 */
VESK_API matrix *matrix_create_ones(uint32_t m, uint32_t n);

/**
 * @return element (@p i, @p j).
 *
 * Aborts with "i < m->nrows" or "j < m->ncols". Of a view, the bounds and the text are those of the
 * matrix that it shows.
 */
VESK_API double matrix_get(const matrix *m, uint32_t i, uint32_t j);

/** Stores element (@p i, @p j); aborts as matrix_get() does. */
VESK_API void matrix_set(matrix *m, uint32_t i, uint32_t j, double value);

/** @return the number of rows. Aborts with "m->nrows > 0" on a null record. */
VESK_API uint32_t matrix_get_number_rows(const matrix *m);

/** @return the number of columns. Aborts with "m->ncols > 0" on a null record. */
VESK_API uint32_t matrix_get_number_columns(const matrix *m);

/** @return the type code, 0 of a null record. */
VESK_API uint32_t matrix_get_type(const matrix *m);

/**
 * Makes sure that @p m has its row pointers.
 *
 * This turns a view into a regular matrix that holds a copy of what it showed. The matrix that it
 * showed is destroyed, unless it was detached before (transposed_matrix_detach_original_matrix()).
 * A telemetry matrix borrows the row pointers of the matrix that it dresses.
 *
 * @return the row pointers, which stay the matrix's own; null with QE_ERROR_NO_MEMORY (-22) without
 * memory, and @p m as it was.
 */
VESK_API double **matrix_enable_direct_access(matrix *m);

/**
 * Gives @p matrix another shape. The elements that lie in both shapes keep their values, new ones
 * are 0. Resizing a view resizes its source; a telemetry matrix gets empty sensors or timestamps
 * behind its old ones, which the caller has to set before the matrix is sliced or written.
 *
 * Aborts with "nrows > 0" or "ncols > 0"; on a view whose source already has the shape, because it
 * was resized without the view, with "matrix_get_number_rows (tmatrix->matrix) != ncols ||
 * matrix_get_number_columns (tmatrix->matrix) != nrows".
 *
 * @return 0; or QE_ERROR_NO_MEMORY (-22) without memory. A regular matrix, or a view of
 * one, is then as it was. A telemetry matrix, and a view of one, keeps its row and column count,
 * but the values below may have the new shape already: it can then only be destroyed.
 */
VESK_API int matrix_resize(matrix *matrix, uint32_t nrows, uint32_t ncols);

/**
 * Makes a deep copy of the same type: the copy of a view is a view of a copy.
 *
 * Aborts with "m->nrows > 0" or "m->ncols > 0".
 *
 * @return the copy; null with QE_ERROR_NO_MEMORY (-22) without memory.
 */
VESK_API matrix *matrix_copy(const matrix *m);

/**
 * Releases what @p m owns; @p m itself stays the caller's. A null record may be destructed, too.
 *
 * Aborts with "m->matrix == ((void *)0)" on a regular matrix with a type-specific object.
 */
VESK_API void matrix_destruct(matrix *m);

/**
 * Destructs and frees `*m` and sets it to null.
 *
 * Aborts with "m != ((void *)0)" or "*m != ((void *)0)".
 */
VESK_API void matrix_destroy(matrix **m);

/**
 * @return the Frobenius norm: the square root of the sum of the squares of the elements.
 *
 * Aborts with "norm >= 0" when an element is NaN.
 */
VESK_API double matrix_norm_F(const matrix *m);

/**
 * @return the infinity norm: the largest sum of the magnitudes in a row. A row with a NaN in it
 * does not count.
 */
VESK_API double matrix_norm_inf(const matrix *m);

/**
 * @return the condition number of a square matrix in the infinity norm, that is its norm times that
 * of its inverse; -1 when it is singular or memory runs out.
 *
 * Aborts with "rows == cols" on any other matrix.
 */
VESK_API double matrix_condition_number_inf(const matrix *m);

#ifdef __cplusplus
}
#endif

#endif
