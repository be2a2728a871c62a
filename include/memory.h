/**
 * @file
 * @brief The allocator that the library uses.
 *
 * Everything that the library hands out for free() comes from these functions of the C library.
 */
#ifndef VESK_MEMORY_H
#define VESK_MEMORY_H

#include <stddef.h>

#include "vesk_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/** malloc(). */
VESK_API void *_qe_malloc(size_t size);

/** calloc(). */
VESK_API void *_qe_calloc(size_t count, size_t size);

/** free(). */
VESK_API void _qe_free(void *ptr);

/** strdup(). */
VESK_API char *_qe_strdup(const char *str);

/**
 * Turns an object on the stack into one on the heap.
 *
 * @return a copy of the @p size bytes at @p p, never null; the caller frees it.
 *
 * Aborts with "p != ((void *)0)", and with "copy != ((void *)0)" when there is no memory.
 */
VESK_API void *qe_heapify(const void *p, size_t size);

#ifdef __cplusplus
}
#endif

#endif
