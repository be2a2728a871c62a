/**
 * @file
 * @brief Printing matrices to standard output, for debugging.
 *
 * The source position is that of the caller: `_qe_debug_matrix_print(m, "m", __FILE__, __LINE__)`.
 */
#ifndef VESK_DEBUG_MATRIX_H
#define VESK_DEBUG_MATRIX_H

#include "matrix.h"
#include "vesk_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Prints an empty line, a header with the source position and the @p name of the matrix, the rows
 * of any type of matrix with six decimals, and an empty line. A null record has no rows.
 *
 * Aborts with "m != ((void *)0)", "name != ((void *)0)", "file != ((void *)0)" or "line > 0".
 */
VESK_API void _qe_debug_matrix_print(const matrix *m, const char *name, const char *file, int line);

/**
 * Prints a telemetry matrix between the same lines, in the text form of kelt_serializer.h.
 *
 * Aborts as _qe_debug_matrix_print() does, with "matrix_get_type (m) == MATRIX_TYPE_TELEMETRY" or,
 * without memory, with "stdout_writer != ((void *)0)".
 */
VESK_API void _qe_debug_telemetry_matrix_print(const matrix *m, const char *name, const char *file,
                                               int line);

#ifdef __cplusplus
}
#endif

#endif
