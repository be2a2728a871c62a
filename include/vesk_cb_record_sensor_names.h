/**
 * @file
 * @brief The sensors that the samples behind this record belong to.
 *
 * A buffer begins with one, and has another one wherever its sensors change. History buffers use
 * the same record under the names of vesk_hb_record_sensor_names.h.
 *
 * A null pointer aborts with the name of the argument, as in "rec != ((void *)0)", and a record
 * that is not live with "rec->version > 0" (rec1 and rec2 where there are two) unless it is said
 * otherwise.
 */
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

/** The sensors of a buffer from some time on. */
typedef struct vesk_cb_record_sensor_names {
    char version;               /**< 1 while live */
    struct timestamp timestamp; /**< of the first vector with these sensors */
    sensor_array *sensors;      /**< owned, shared by count; null only in a null record */
} vesk_cb_record_sensor_names;

/**
 * Makes @p rec the record of the sensors of @p vector, a telemetry matrix of one row, with the
 * timestamp of that row. The sensor array is shared, not copied.
 *
 * Aborts with "matrix_get_number_rows (vector) == 1" or "timestamps[0] != ((void *)0)", and when
 * @p vector is no telemetry matrix.
 *
 * @return 0, or QE_ERROR_NO_MEMORY (-22) and nothing is left to destruct.
 */
VESK_API int vesk_cb_record_sensor_names_init(vesk_cb_record_sensor_names *rec,
                                              const matrix *vector);

/** @return a new record as by vesk_cb_record_sensor_names_init(), or null with QE_ERROR_NO_MEMORY
 * (-22) in the cell. */
VESK_API vesk_cb_record_sensor_names *vesk_cb_record_sensor_names_create(const matrix *vector);

/** Makes @p rec a record with the null timestamp and no sensor array, to be read. @return 0. */
VESK_API int vesk_cb_record_sensor_names_init_null(vesk_cb_record_sensor_names *rec);

/** @return a new null record, or null with QE_ERROR_NO_MEMORY (-22) in the cell. */
VESK_API vesk_cb_record_sensor_names *vesk_cb_record_sensor_names_create_null(void);

/** Releases the timestamp and the sensor array, if any, and marks @p rec dead. */
VESK_API void vesk_cb_record_sensor_names_destruct(vesk_cb_record_sensor_names *rec);

/** Destructs and frees @p *rec and sets it to null. */
VESK_API void vesk_cb_record_sensor_names_destroy(vesk_cb_record_sensor_names **rec);

/** @return 1 when both records have the same timestamp and equal sensors, else 0. */
VESK_API int vesk_cb_record_sensor_names_is_equal(const vesk_cb_record_sensor_names *rec1,
                                                  const vesk_cb_record_sensor_names *rec2);

/** @return 1 when both records have equal sensors, in number and order, whatever their time. */
VESK_API int vesk_cb_record_sensor_names_are_sensors_equal(const vesk_cb_record_sensor_names *rec1,
                                                           const vesk_cb_record_sensor_names *rec2);

/**
 * Copies @p rec, which has a sensor array, to @p dest, or to a new record when @p dest is null. The
 * copy shares the sensor array. What @p dest held before is overwritten, not released.
 *
 * @return the copy, or null with QE_ERROR_NO_MEMORY (-22) in the cell and @p dest untouched.
 */
VESK_API vesk_cb_record_sensor_names *
vesk_cb_record_sensor_names_copy(const vesk_cb_record_sensor_names *rec,
                                 vesk_cb_record_sensor_names *dest);

/** @return the number of sensors of @p rec, which has a sensor array. */
VESK_API uint32_t
vesk_cb_record_sensor_names_get_number_sensors(const vesk_cb_record_sensor_names *rec);

/** @return the sensor array, which stays that of the record; null in a null record. */
VESK_API sensor_array *
vesk_cb_record_sensor_names_get_sensors(const vesk_cb_record_sensor_names *rec);

/** @return the timestamp of @p rec, which stays part of it. */
VESK_API timestamp *vesk_cb_record_sensor_names_get_timestamp(vesk_cb_record_sensor_names *rec);

/**
 * Writes version 1 (1 byte), the timestamp (9) and the sensor array.
 *
 * Aborts with "rec->version == 1".
 *
 * @return what the writer reported; QE_ERROR_LIMIT (-49) with more than 10000 sensors or a name of
 * more than 10000 bytes, and the fields before are in the stream; or the negative result of the
 * writer.
 */
VESK_API int
binary_serializer_write_vesk_cb_record_sensor_names(const vesk_cb_record_sensor_names *rec,
                                                    writer *writer);

/**
 * Reads sensors into @p rec, which is live; its sensor array is replaced once the new one was read.
 *
 * Aborts with "rec->version == 1".
 *
 * @return the bytes consumed; 0 at the end of the data; QE_ERROR_BAD_VERSION (-12) on a version
 * other than 1; QE_ERROR_MALFORMED (-6) on a timestamp with microseconds or an impossible name;
 * QE_ERROR_LIMIT (-49) on a number of sensors that is not 1 to 10000; QE_ERROR_END_OF_RECORDS (-43)
 * where the data ends before the length of a name, QE_ERROR_TRUNCATED (-48) where it ends
 * elsewhere; QE_ERROR_NO_MEMORY (-22) without memory; or the negative result of the reader. It
 * aborts with "nread != 0" where the data ends right behind the length of a name.
 */
VESK_API int binary_serializer_read_vesk_cb_record_sensor_names(vesk_cb_record_sensor_names *rec,
                                                                reader *reader);

#ifdef __cplusplus
}
#endif

#endif
