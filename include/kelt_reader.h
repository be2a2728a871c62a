#ifndef VESK_KELT_READER_H
#define VESK_KELT_READER_H

#include <stdint.h>
#include <stdio.h>

#include "matrix.h"
#include "sensor_array.h"
#include "vesk_api.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct kelt_reader {
    FILE *fp;
    int owns_fp;
    matrix *vector;
} kelt_reader;

VESK_API kelt_reader *kelt_reader_open(const char *path);
VESK_API kelt_reader *kelt_reader_open_from_fp(FILE *fp);
VESK_API void kelt_reader_close(kelt_reader **reader);
VESK_API matrix *kelt_reader_get_next_telemetry_vector(kelt_reader *reader);
VESK_API uint32_t kelt_reader_get_number_sensors(const kelt_reader *kelt);
VESK_API sensor_array *kelt_reader_get_sensors(const kelt_reader *kelt);

#ifdef __cplusplus
}
#endif

#endif
