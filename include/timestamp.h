#ifndef VESK_TIMESTAMP_H
#define VESK_TIMESTAMP_H

#include <stdint.h>
#include <sys/time.h>

#include "reader.h"
#include "vesk_api.h"
#include "writer.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct timestamp {
    char version;
    struct timeval tv;
} timestamp;

VESK_API int timestamp_init_current(timestamp *t);
VESK_API timestamp *timestamp_create_current(void);
VESK_API int timestamp_init_null(timestamp *t);
VESK_API timestamp *timestamp_create_null(void);
VESK_API int timestamp_init_from_timeval(timestamp *t, const struct timeval *tv);
VESK_API timestamp *timestamp_create_from_timeval(const struct timeval *tv);
VESK_API int timestamp_init_from_string(timestamp *t, const char *str);
VESK_API timestamp *timestamp_create_from_string(const char *str);
VESK_API void timestamp_destruct(timestamp *t);
VESK_API void timestamp_destroy(timestamp **t);
VESK_API char *timestamp_to_string(const timestamp *t, char *buffer, uint32_t bufsize);
VESK_API void timestamp_to_timeval(const timestamp *t, struct timeval *tv);
VESK_API timestamp *timestamp_copy(const timestamp *t, timestamp *dest);
VESK_API int timestamp_compare(const timestamp *t1, const timestamp *t2);
VESK_API int timestamp_is_equal(const timestamp *t1, const timestamp *t2);
VESK_API int timestamp_is_null(const timestamp *t);
VESK_API void timestamp_increment(timestamp *t, uint32_t seconds);
VESK_API int binary_serializer_write_timestamp(const timestamp *timestamp, writer *writer);
VESK_API int binary_serializer_read_timestamp(timestamp *timestamp, reader *reader);

#ifdef __cplusplus
}
#endif

#endif
