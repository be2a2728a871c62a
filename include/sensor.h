#ifndef VESK_SENSOR_H
#define VESK_SENSOR_H

#include <stdint.h>

#include "reader.h"
#include "vesk_api.h"
#include "writer.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct sensor {
    char version;
    char *name;
    uint32_t hash_code;
    struct sensor *canonical;
} sensor;

VESK_API sensor *sensor_create(const char *name);
VESK_API int sensor_init(sensor *s, const char *name);
VESK_API int sensor_init_null(sensor *s);
VESK_API sensor *sensor_create_null(void);
VESK_API sensor **sensor_create_array(const char *const *names, uint32_t nsensors);
VESK_API void sensor_destruct(sensor *sensor);
VESK_API void sensor_destroy(sensor **sensor);
VESK_API int sensor_is_equal(const sensor *s1, const sensor *s2);
VESK_API char *sensor_get_name(const sensor *s, char *dst, uint32_t len);
VESK_API char *sensor_to_string(const sensor *s, char *dst, uint32_t len);
VESK_API sensor *sensor_copy(const sensor *s, sensor *dest);
VESK_API uint32_t sensor_get_hash_code(const sensor *s);
VESK_API int binary_serializer_write_sensor(const sensor *sensor, writer *writer);
VESK_API int binary_serializer_read_sensor(sensor **sensor, reader *reader);

#ifdef __cplusplus
}
#endif

#endif
