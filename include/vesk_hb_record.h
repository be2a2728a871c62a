#ifndef VESK_HB_RECORD_H
#define VESK_HB_RECORD_H

#include <stdint.h>

#include "reader.h"
#include "vesk_api.h"
#include "vesk_hb_record_sensor_names.h"
#include "vesk_hb_record_sensor_values.h"
#include "writer.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef enum vesk_hb_record_type {
    VESK_HB_RECORD_SENSOR_NAMES = 1,
    VESK_HB_RECORD_SENSOR_VALUES = 2
} vesk_hb_record_type;

typedef struct vesk_hb_record {
    uint32_t type;
    union {
        void *data;
        vesk_hb_record_sensor_names *names;
        vesk_hb_record_sensor_values *values;
    };
    uint32_t owns_data;
} vesk_hb_record;

VESK_API int vesk_hb_record_init_null(vesk_hb_record *rec);
VESK_API int vesk_hb_record_init_sensor_names(vesk_hb_record *rec,
                                              vesk_hb_record_sensor_names *names);
VESK_API int vesk_hb_record_init_sensor_values(vesk_hb_record *rec,
                                               vesk_hb_record_sensor_values *values);
VESK_API void vesk_hb_record_destruct(vesk_hb_record *rec);
VESK_API void vesk_hb_record_detach(vesk_hb_record *rec);
VESK_API int binary_serializer_write_vesk_hb_record(const vesk_hb_record *rec, writer *writer);
VESK_API int binary_serializer_read_vesk_hb_record(vesk_hb_record *rec, reader *reader);

#ifdef __cplusplus
}
#endif

#endif
