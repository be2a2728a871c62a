#ifndef VESK_RAW_READER_H
#define VESK_RAW_READER_H

#include <stdint.h>
#include <stdio.h>

#include "reader.h"
#include "vesk_api.h"

#ifdef __cplusplus
extern "C" {
#endif

VESK_API int raw_reader_init(reader *reader, FILE *fp, uint32_t flags);
VESK_API reader *raw_reader_create(FILE *fp, uint32_t flags);

#ifdef __cplusplus
}
#endif

#endif
