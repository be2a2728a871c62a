/**
 * @file
 * @brief Telemetry matrices: rows are timestamps, columns are sensors.
 *
 * A telemetry matrix dresses a matrix of values with a sensor for each column and a timestamp for
 * each row. A telemetry vector, the unit that a recorder takes, is a telemetry matrix of one row.
 *
 * Ownership: a telemetry matrix takes over the values, the sensors and the timestamps that it is
 * made from, and destroys them with itself. Values are read and written in place, so the matrix of
 * values and the telemetry matrix are two faces of the same numbers; resize only the latter.
 *
 * Functions that want a telemetry matrix abort with "m != ((void *)0)" or
 * "m->type == MATRIX_TYPE_TELEMETRY" on anything else; those that make one abort with
 * "m != ((void *)0)" without a place for it.
 */
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

/**
 * Makes @p m a telemetry matrix of the values in @p matrix, with a sensor for each of its columns
 * and a timestamp for each of its rows. @p m takes over the other three arguments.
 *
 * Direct access to @p matrix is enabled: a view becomes a regular matrix and destroys its source,
 * see matrix_enable_direct_access().
 *
 * Aborts with "matrix != ((void *)0)", "sensors != ((void *)0)", "timestamps != ((void *)0)",
 * "matrix_get_number_columns (m) == sensor_array_get_size (sensors)" or
 * "matrix_get_number_rows (m) == timestamp_array_get_size (timestamps)".
 *
 * @return 0; or QE_ERROR_NO_MEMORY (-22) without memory, and the arguments stay the caller's.
 */
VESK_API int telemetry_matrix_init(matrix *m, matrix *matrix, sensor_array *sensors,
                                   timestamp_array *timestamps);

/**
 * @return a new telemetry matrix, see telemetry_matrix_init(); null with QE_ERROR_NO_MEMORY (-22),
 * and the arguments stay the caller's.
 */
VESK_API matrix *telemetry_matrix_create(matrix *matrix, sensor_array *sensors,
                                         timestamp_array *timestamps);

/**
 * Makes @p m a telemetry vector of the values in @p matrix, which has one row. @p m takes over
 * @p matrix and @p sensors; it copies the timestamp, which stays the caller's.
 *
 * Aborts as telemetry_matrix_init() does, with "timestamp != ((void *)0)", with
 * "matrix_get_number_rows (matrix) == 1", or with "t->version == ((char) 1)" when @p timestamp is
 * not live.
 *
 * @return 0; or QE_ERROR_NO_MEMORY (-22) without memory, and the arguments stay the caller's.
 */
VESK_API int telemetry_matrix_init_vector(matrix *m, matrix *matrix, sensor_array *sensors,
                                          const timestamp *timestamp);

/**
 * @return a new telemetry vector, see telemetry_matrix_init_vector(); null with QE_ERROR_NO_MEMORY
 * (-22), and the arguments stay the caller's.
 */
VESK_API matrix *telemetry_matrix_create_vector(matrix *matrix, sensor_array *sensors,
                                                const timestamp *timestamp);

/** @return the number of sensors, which is that of the columns of the values. */
VESK_API uint32_t telemetry_matrix_get_number_sensors(const matrix *m);

/** @return the number of timestamps, which is that of the rows of the values. */
VESK_API uint32_t telemetry_matrix_get_number_timestamps(const matrix *m);

/** @return the sensors, which stay the matrix's own. */
VESK_API sensor_array *telemetry_matrix_get_sensors(const matrix *m);

/** @return the timestamps, which stay the matrix's own. */
VESK_API timestamp_array *telemetry_matrix_get_timestamps(const matrix *m);

/**
 * Compares values as matrix_is_equal() does, then sensors, then timestamps.
 *
 * Aborts as matrix_is_equal(), sensor_array_is_equal() and timestamp_array_is_equal() do, and with
 * "m1 != ((void *)0)", "m2 != ((void *)0)",
 * "matrix_get_type (m1) == MATRIX_TYPE_TELEMETRY" or
 * "matrix_get_type (m2) == MATRIX_TYPE_TELEMETRY".
 *
 * @return 1 when all are equal, else 0.
 */
VESK_API int telemetry_matrix_is_equal(const matrix *m1, const matrix *m2);

/**
 * Makes a telemetry matrix of other values with the sensors and timestamps of @p m. It takes over
 * @p vals, on which direct access is enabled as in telemetry_matrix_init().
 *
 * Aborts with "vals != ((void *)0)" or "matrix_is_equal_dimensions (m, vals)".
 *
 * @return the new matrix; null with QE_ERROR_NO_MEMORY (-22) without memory, and @p vals stays the
 * caller's.
 */
VESK_API matrix *telemetry_matrix_clone_with_values(const matrix *m, matrix *vals);

/**
 * Leaves the matrix of values to somebody else: destroying @p m no longer destroys it. While @p m
 * lives, the matrix of values must, too.
 */
VESK_API void telemetry_matrix_detach_original_matrix(matrix *m);

/**
 * Gives a telemetry vector another timestamp, of which it keeps a copy.
 *
 * Aborts with "m->version == ((char) 1)", "m->type == MATRIX_TYPE_TELEMETRY", "m->nrows == 1" or
 * "timestamp != ((void *)0)".
 *
 * @return 0; or QE_ERROR_NO_MEMORY (-22) without memory, and the vector keeps its timestamp.
 */
VESK_API int telemetry_matrix_update_vector_timestamp(matrix *m, const timestamp *timestamp);

#ifdef __cplusplus
}
#endif

#endif
