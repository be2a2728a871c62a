#ifndef VESK_GARBAGE_READER_H
#define VESK_GARBAGE_READER_H

#include <stdint.h>

#include "reader.h"
#include "vesk_api.h"

#ifdef __cplusplus
extern "C" {
#endif

VESK_API int garbage_reader_init(reader *r, reader *base_reader, uint32_t nclean);
VESK_API reader *garbage_reader_create(reader *base_reader, uint32_t nclean);

#ifdef __cplusplus
}
#endif

#endif
