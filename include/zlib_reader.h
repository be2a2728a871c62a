#ifndef VESK_ZLIB_READER_H
#define VESK_ZLIB_READER_H

#include <stdint.h>

#include "reader.h"
#include "vesk_api.h"

#ifdef __cplusplus
extern "C" {
#endif

VESK_API int zlib_reader_init(reader *r, reader *reader_base);
VESK_API reader *zlib_reader_create(reader *reader_base);
VESK_API uint32_t zlib_reader_get_last_savepoint(const reader *reader);

#ifdef __cplusplus
}
#endif

#endif
