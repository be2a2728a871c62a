#ifndef VESK_CB_RECORD_H
#define VESK_CB_RECORD_H

#include <stdint.h>

#include "reader.h"
#include "vesk_api.h"
#include "vesk_cb_record_event.h"
#include "vesk_cb_record_sensor_names.h"
#include "vesk_cb_record_sensor_values.h"
#include "writer.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef enum vesk_cb_record_type {
    VESK_CB_RECORD_SENSOR_NAMES = 1,
    VESK_CB_RECORD_SENSOR_VALUES = 2,
    VESK_CB_RECORD_EVENT = 3
} vesk_cb_record_type;

typedef struct vesk_cb_record {
    uint32_t type;
    union {
        void *data;
        vesk_cb_record_sensor_names *names;
        vesk_cb_record_sensor_values *values;
        vesk_cb_record_event *event;
    };
    uint32_t owns_data;
} vesk_cb_record;

VESK_API int vesk_cb_record_init_null(vesk_cb_record *rec);
VESK_API int vesk_cb_record_init_sensor_names(vesk_cb_record *rec,
                                              vesk_cb_record_sensor_names *names);
VESK_API int vesk_cb_record_init_sensor_values(vesk_cb_record *rec,
                                               vesk_cb_record_sensor_values *values);
VESK_API int vesk_cb_record_init_event(vesk_cb_record *rec, vesk_cb_record_event *event);
VESK_API void vesk_cb_record_destruct(vesk_cb_record *rec);
VESK_API void vesk_cb_record_detach(vesk_cb_record *rec);
VESK_API int binary_serializer_write_vesk_cb_record(const vesk_cb_record *rec, writer *writer);
VESK_API int binary_serializer_read_vesk_cb_record(vesk_cb_record *rec, reader *reader);

#ifdef __cplusplus
}
#endif

#endif
