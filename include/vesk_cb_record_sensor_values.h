#ifndef VESK_CB_RECORD_SENSOR_VALUES_H
#define VESK_CB_RECORD_SENSOR_VALUES_H

#include <stdint.h>

#include "matrix.h"
#include "reader.h"
#include "timestamp.h"
#include "vesk_api.h"
#include "writer.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct vesk_cb_record_sensor_values {
    char version;
    struct timestamp timestamp;
    float *values;
    uint32_t n_sensors;
    const matrix *vector;
} vesk_cb_record_sensor_values;

VESK_API int vesk_cb_record_sensor_values_init(vesk_cb_record_sensor_values *rec,
                                               const matrix *vector);
VESK_API vesk_cb_record_sensor_values *vesk_cb_record_sensor_values_create(const matrix *vector);
VESK_API int vesk_cb_record_sensor_values_init_null(vesk_cb_record_sensor_values *rec);
VESK_API vesk_cb_record_sensor_values *vesk_cb_record_sensor_values_create_null(void);
VESK_API void vesk_cb_record_sensor_values_destruct(vesk_cb_record_sensor_values *rec);
VESK_API void vesk_cb_record_sensor_values_destroy(vesk_cb_record_sensor_values **rec);
VESK_API uint32_t
vesk_cb_record_sensor_values_get_number_values(const vesk_cb_record_sensor_values *rec);
VESK_API timestamp *vesk_cb_record_sensor_values_get_timestamp(vesk_cb_record_sensor_values *rec);
VESK_API float *vesk_cb_record_sensor_values_get_values(vesk_cb_record_sensor_values *rec);
VESK_API int vesk_cb_record_sensor_values_is_equal(const vesk_cb_record_sensor_values *rec1,
                                                   const vesk_cb_record_sensor_values *rec2);
VESK_API int
binary_serializer_write_vesk_cb_record_sensor_values(const vesk_cb_record_sensor_values *rec,
                                                     writer *writer);
VESK_API int binary_serializer_read_vesk_cb_record_sensor_values(vesk_cb_record_sensor_values *rec,
                                                                 reader *reader);

#ifdef __cplusplus
}
#endif

#endif
