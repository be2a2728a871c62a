#ifndef VESK_RAW_WRITER_H
#define VESK_RAW_WRITER_H

#include <stdint.h>
#include <stdio.h>

#include "vesk_api.h"
#include "writer.h"

#ifdef __cplusplus
extern "C" {
#endif

VESK_API int raw_writer_init(writer *writer, FILE *fp, uint32_t flags);
VESK_API writer *raw_writer_create(FILE *fp, uint32_t flags);

#ifdef __cplusplus
}
#endif

#endif
