#ifndef VESK_WRITER_H
#define VESK_WRITER_H

#include <stdint.h>

#include "vesk_api.h"

#ifdef __cplusplus
extern "C" {
#endif

enum { WRITER_TYPE_RAW = 1, WRITER_TYPE_ZLIB = 2, WRITER_TYPE_KELT = 3 };

typedef struct writer {
    char version;
    uint32_t type;
    void *writer;
    int (*fn_destruct)(void *writer);
    int (*fn_write_bytes)(void *writer, const void *buffer, uint32_t n);
    int (*fn_flush)(void *writer);
} writer;

VESK_API void writer_destruct(writer *writer);
VESK_API void writer_destroy(writer **writer);
VESK_API int writer_write_bytes(writer *writer, const void *buf, uint32_t n);
VESK_API int writer_flush(writer *writer);

#ifdef __cplusplus
}
#endif

#endif
