#ifndef VESK_MEMORY_H
#define VESK_MEMORY_H

#include <stddef.h>

#include "vesk_api.h"

#ifdef __cplusplus
extern "C" {
#endif

VESK_API void *_qe_malloc(size_t size);
VESK_API void *_qe_calloc(size_t count, size_t size);
VESK_API void _qe_free(void *ptr);
VESK_API char *_qe_strdup(const char *str);
VESK_API void *qe_heapify(const void *p, size_t size);

#ifdef __cplusplus
}
#endif

#endif
