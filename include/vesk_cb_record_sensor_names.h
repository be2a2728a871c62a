#ifndef VESK_CB_RECORD_SENSOR_NAMES_H
#define VESK_CB_RECORD_SENSOR_NAMES_H

#include <stdint.h>

#include "matrix.h"
#include "reader.h"
#include "sensor_array.h"
#include "timestamp.h"
#include "vesk_api.h"
#include "writer.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct vesk_cb_record_sensor_names {
    char version;
    struct timestamp timestamp;
    sensor_array *sensors;
} vesk_cb_record_sensor_names;

VESK_API int vesk_cb_record_sensor_names_init(vesk_cb_record_sensor_names *rec,
                                              const matrix *vector);
VESK_API vesk_cb_record_sensor_names *vesk_cb_record_sensor_names_create(const matrix *vector);
VESK_API int vesk_cb_record_sensor_names_init_null(vesk_cb_record_sensor_names *rec);
VESK_API vesk_cb_record_sensor_names *vesk_cb_record_sensor_names_create_null(void);
VESK_API void vesk_cb_record_sensor_names_destruct(vesk_cb_record_sensor_names *rec);
VESK_API void vesk_cb_record_sensor_names_destroy(vesk_cb_record_sensor_names **rec);
VESK_API int vesk_cb_record_sensor_names_is_equal(const vesk_cb_record_sensor_names *rec1,
                                                  const vesk_cb_record_sensor_names *rec2);
VESK_API int vesk_cb_record_sensor_names_are_sensors_equal(const vesk_cb_record_sensor_names *rec1,
                                                           const vesk_cb_record_sensor_names *rec2);
VESK_API vesk_cb_record_sensor_names *
vesk_cb_record_sensor_names_copy(const vesk_cb_record_sensor_names *rec,
                                 vesk_cb_record_sensor_names *dest);
VESK_API uint32_t
vesk_cb_record_sensor_names_get_number_sensors(const vesk_cb_record_sensor_names *rec);
VESK_API sensor_array *
vesk_cb_record_sensor_names_get_sensors(const vesk_cb_record_sensor_names *rec);
VESK_API timestamp *vesk_cb_record_sensor_names_get_timestamp(vesk_cb_record_sensor_names *rec);
VESK_API int
binary_serializer_write_vesk_cb_record_sensor_names(const vesk_cb_record_sensor_names *rec,
                                                    writer *writer);
VESK_API int binary_serializer_read_vesk_cb_record_sensor_names(vesk_cb_record_sensor_names *rec,
                                                                reader *reader);

#ifdef __cplusplus
}
#endif

#endif
