#ifndef VESK_ZLIB_WRITER_H
#define VESK_ZLIB_WRITER_H

#include "vesk_api.h"
#include "writer.h"

#ifdef __cplusplus
extern "C" {
#endif

VESK_API int zlib_writer_init(writer *w, writer *writer_base);
VESK_API writer *zlib_writer_create(writer *writer_base);

#ifdef __cplusplus
}
#endif

#endif
