#ifndef VESK_SENSOR_ARRAY_H
#define VESK_SENSOR_ARRAY_H

#include <stdint.h>

#include "reader.h"
#include "sensor.h"
#include "vesk_api.h"
#include "writer.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct sensor_array {
    char version;
    uint32_t nsensors;
    int *ref_count;
    sensor **sensors;
} sensor_array;

VESK_API int sensor_array_init(sensor_array *array, sensor **sensors, uint32_t nsensors);
VESK_API sensor_array *sensor_array_create(sensor **sensors, uint32_t nsensors);
VESK_API int sensor_array_init_empty(sensor_array *array, uint32_t nsensors);
VESK_API sensor_array *sensor_array_create_empty(uint32_t nsensors);
VESK_API int sensor_array_init_from_names(sensor_array *array, const char *const *names,
                                          uint32_t nsensors);
VESK_API sensor_array *sensor_array_create_from_names(const char *const *names, uint32_t nsensors);
VESK_API int sensor_array_init_null(sensor_array *array);
VESK_API sensor_array *sensor_array_create_null(void);
VESK_API sensor_array *sensor_array_copy(const sensor_array *array);
VESK_API void sensor_array_destruct(sensor_array *array);
VESK_API void sensor_array_destroy(sensor_array **array);
VESK_API sensor **sensor_array_get_sensors(const sensor_array *array);
VESK_API uint32_t sensor_array_get_size(const sensor_array *array);
VESK_API sensor *sensor_array_get(const sensor_array *array, int i);
VESK_API int sensor_array_set(sensor_array *array, int i, sensor *sensor);
VESK_API int sensor_array_is_equal(const sensor_array *s1, const sensor_array *s2);
VESK_API int binary_serializer_write_sensor_array(const sensor_array *array, writer *writer);
VESK_API int binary_serializer_read_sensor_array(sensor_array *array, reader *reader);

#ifdef __cplusplus
}
#endif

#endif
