#ifndef VESK_READER_H
#define VESK_READER_H

#include <stdint.h>

#include "vesk_api.h"

#ifdef __cplusplus
extern "C" {
#endif

enum { READER_TYPE_RAW = 1, READER_TYPE_ZLIB = 2, READER_TYPE_GARBAGE = 3 };

typedef struct reader {
    char version;
    uint32_t type;
    void *reader;
    int (*fn_destruct)(void *reader);
    int (*fn_read_bytes)(void *reader, void *buffer, uint32_t n);
    int (*fn_eof)(void *reader);
} reader;

VESK_API void reader_destruct(reader *reader);
VESK_API void reader_destroy(reader **reader);
VESK_API int reader_read_bytes(reader *reader, void *buf, uint32_t n);
VESK_API int reader_eof(reader *reader);

#ifdef __cplusplus
}
#endif

#endif
