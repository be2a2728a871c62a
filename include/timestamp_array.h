#ifndef VESK_TIMESTAMP_ARRAY_H
#define VESK_TIMESTAMP_ARRAY_H

#include <stdint.h>

#include "reader.h"
#include "timestamp.h"
#include "vesk_api.h"
#include "writer.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct timestamp_array {
    char version;
    uint32_t ntimestamps;
    int *ref_count;
    timestamp **timestamps;
} timestamp_array;

VESK_API int timestamp_array_init(timestamp_array *array, timestamp **timestamps,
                                  uint32_t ntimestamps);
VESK_API timestamp_array *timestamp_array_create(timestamp **timestamps, uint32_t ntimestamps);
VESK_API int timestamp_array_init_empty(timestamp_array *array, uint32_t ntimestamps);
VESK_API timestamp_array *timestamp_array_create_empty(uint32_t ntimestamps);
VESK_API int timestamp_array_init_dummy(timestamp_array *array, const timestamp *start,
                                        uint32_t ntimestamps);
VESK_API timestamp_array *timestamp_array_create_dummy(const timestamp *start,
                                                       uint32_t ntimestamps);
VESK_API int timestamp_array_init_null(timestamp_array *array);
VESK_API timestamp_array *timestamp_array_create_null(void);
VESK_API timestamp_array *timestamp_array_copy(const timestamp_array *array);
VESK_API int timestamp_array_is_equal(const timestamp_array *s1, const timestamp_array *s2);
VESK_API timestamp **timestamp_array_get_timestamps(const timestamp_array *array);
VESK_API uint32_t timestamp_array_get_size(const timestamp_array *array);
VESK_API void timestamp_array_destruct(timestamp_array *array);
VESK_API void timestamp_array_destroy(timestamp_array **array);
VESK_API int binary_serializer_write_timestamp_array(const timestamp_array *array, writer *writer);
VESK_API int binary_serializer_read_timestamp_array(timestamp_array *array, reader *reader);

#ifdef __cplusplus
}
#endif

#endif
