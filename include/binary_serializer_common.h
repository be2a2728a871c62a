#ifndef VESK_BINARY_SERIALIZER_COMMON_H
#define VESK_BINARY_SERIALIZER_COMMON_H

#include <stdint.h>

#include "reader.h"
#include "vesk_api.h"
#include "writer.h"

#ifdef __cplusplus
extern "C" {
#endif

VESK_API int binary_serializer_read_bytes(void *buffer, uint32_t buflen, reader *reader);
VESK_API int binary_serializer_write_string(const char *str, writer *writer);
VESK_API char *binary_serializer_read_string(reader *reader, int *nread);
VESK_API float hton_float(float f);
VESK_API float ntoh_float(float f);
VESK_API double hton_double(double d);
VESK_API double ntoh_double(double d);

#ifdef __cplusplus
}
#endif

#endif
