#ifndef VESK_DEBUG_MATRIX_H
#define VESK_DEBUG_MATRIX_H

#include "matrix.h"
#include "vesk_api.h"

#ifdef __cplusplus
extern "C" {
#endif

VESK_API void _qe_debug_matrix_print(const matrix *m, const char *name, const char *file, int line);
VESK_API void _qe_debug_telemetry_matrix_print(const matrix *m, const char *name, const char *file,
                                               int line);

#ifdef __cplusplus
}
#endif

#endif
