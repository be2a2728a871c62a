#ifndef VESK_TELEMETRY_MATRIX_H
#define VESK_TELEMETRY_MATRIX_H

#include <stdint.h>

#include "matrix.h"
#include "sensor_array.h"
#include "timestamp.h"
#include "timestamp_array.h"
#include "vesk_api.h"

#ifdef __cplusplus
extern "C" {
#endif

VESK_API int telemetry_matrix_init(matrix *m, matrix *matrix, sensor_array *sensors,
                                   timestamp_array *timestamps);
VESK_API matrix *telemetry_matrix_create(matrix *matrix, sensor_array *sensors,
                                         timestamp_array *timestamps);
VESK_API int telemetry_matrix_init_vector(matrix *m, matrix *matrix, sensor_array *sensors,
                                          const timestamp *timestamp);
VESK_API matrix *telemetry_matrix_create_vector(matrix *matrix, sensor_array *sensors,
                                                const timestamp *timestamp);
VESK_API uint32_t telemetry_matrix_get_number_sensors(const matrix *m);
VESK_API uint32_t telemetry_matrix_get_number_timestamps(const matrix *m);
VESK_API sensor_array *telemetry_matrix_get_sensors(const matrix *m);
VESK_API timestamp_array *telemetry_matrix_get_timestamps(const matrix *m);
VESK_API int telemetry_matrix_is_equal(const matrix *m1, const matrix *m2);
VESK_API matrix *telemetry_matrix_clone_with_values(const matrix *m, matrix *vals);
VESK_API void telemetry_matrix_detach_original_matrix(matrix *m);
VESK_API int telemetry_matrix_update_vector_timestamp(matrix *m, const timestamp *timestamp);

#ifdef __cplusplus
}
#endif

#endif
