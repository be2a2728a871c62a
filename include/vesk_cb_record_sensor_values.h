/**
 * @file
 * @brief One sample of a current buffer: a time and a value for each sensor.
 *
 * To be written, a record is made of a telemetry vector, whose values it reads in place. A record
 * that was read owns an array of single-precision floats. It never has both.
 *
 * A null pointer aborts with the name of the argument, as in "rec != ((void *)0)", and a record
 * that is not live with "rec->version == ((char) 1)" (rec1 and rec2 where there are two).
 */
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

/** One sample. */
typedef struct vesk_cb_record_sensor_values {
    char version;               /**< 1 while live */
    struct timestamp timestamp; /**< when it was taken */
    float *values;              /**< owned, n_sensors values; or null */
    uint32_t n_sensors;         /**< number of values; 0 only in a null record */
    const matrix *vector;       /**< borrowed, one row of n_sensors values; or null */
} vesk_cb_record_sensor_values;

/**
 * Makes @p rec the sample of @p vector, a telemetry matrix of one row, which it borrows: the vector
 * has to live as long as the record uses it.
 *
 * Aborts with "matrix_get_number_rows (vector) == 1", "timestamps[0] != ((void *)0)" or
 * "rec->n_sensors > 0", and when @p vector is no telemetry matrix.
 *
 * @return 0.
 */
VESK_API int vesk_cb_record_sensor_values_init(vesk_cb_record_sensor_values *rec,
                                               const matrix *vector);

/** @return a new record as by vesk_cb_record_sensor_values_init(), or null with QE_ERROR_NO_MEMORY
 * (-22) in the cell. */
VESK_API vesk_cb_record_sensor_values *vesk_cb_record_sensor_values_create(const matrix *vector);

/** Makes @p rec a record with the null timestamp and no values, to be read. @return 0. */
VESK_API int vesk_cb_record_sensor_values_init_null(vesk_cb_record_sensor_values *rec);

/** @return a new null record, or null with QE_ERROR_NO_MEMORY (-22) in the cell. */
VESK_API vesk_cb_record_sensor_values *vesk_cb_record_sensor_values_create_null(void);

/**
 * Releases the timestamp and the array, if any, and marks @p rec dead. A vector is left alone.
 *
 * Aborts with "rec->vector == ((void *)0)" when the record has both an array and a vector.
 */
VESK_API void vesk_cb_record_sensor_values_destruct(vesk_cb_record_sensor_values *rec);

/** Destructs and frees @p *rec and sets it to null. */
VESK_API void vesk_cb_record_sensor_values_destroy(vesk_cb_record_sensor_values **rec);

/** @return the number of values of @p rec. */
VESK_API uint32_t
vesk_cb_record_sensor_values_get_number_values(const vesk_cb_record_sensor_values *rec);

/** @return the timestamp of @p rec, which stays part of it. */
VESK_API timestamp *vesk_cb_record_sensor_values_get_timestamp(vesk_cb_record_sensor_values *rec);

/**
 * The values of @p rec, rounded to single precision. A record of a vector gets an array of its own
 * by this and lets go of the vector.
 *
 * Aborts with "(rec->values == ((void *)0)) ^ (rec->vector == ((void *)0))" when it has neither an
 * array nor a vector, or both.
 *
 * @return the array, which stays that of the record, or null with QE_ERROR_NO_MEMORY (-22) in the
 * cell.
 */
VESK_API float *vesk_cb_record_sensor_values_get_values(vesk_cb_record_sensor_values *rec);

/**
 * Both records have an array or a vector, each.
 *
 * Aborts with "(rec1->values == ((void *)0)) ^ (rec1->vector == ((void *)0))", or the same of
 * @p rec2, when one has neither or both.
 *
 * @return 1 when both have the same timestamp, the same number of values and equal values, else 0.
 * Two vectors are compared by matrix_is_equal(), anything else as single-precision values by
 * sensor_value_compare(), which aborts on equal infinities.
 */
VESK_API int vesk_cb_record_sensor_values_is_equal(const vesk_cb_record_sensor_values *rec1,
                                                   const vesk_cb_record_sensor_values *rec2);

/**
 * Writes version 1 (1 byte), the timestamp (9), the number of values (4) and the values, 4 bytes
 * each, rounded to single precision if they come from a vector.
 *
 * Aborts as vesk_cb_record_sensor_values_get_values() does, or with "rec->n_sensors > 0" without
 * values.
 *
 * @return what the writer reported; QE_ERROR_LIMIT (-49) with more than 10000 values, and nothing
 * is written; or the negative result of the writer.
 */
VESK_API int
binary_serializer_write_vesk_cb_record_sensor_values(const vesk_cb_record_sensor_values *rec,
                                                     writer *writer);

/**
 * Reads a sample into @p rec, which is live. An array of the right length is used again. After a
 * failure the content of the array is undefined.
 *
 * @return the bytes consumed; 0 at the end of the data; QE_ERROR_BAD_VERSION (-12) on a version
 * other than 1; QE_ERROR_MALFORMED (-6) on a timestamp with microseconds or a number of values that
 * is not 1 to 10000; QE_ERROR_NO_MEMORY (-22) without memory; QE_ERROR_TRUNCATED (-48) where the
 * data ends inside the sample; or the negative result of the reader.
 */
VESK_API int binary_serializer_read_vesk_cb_record_sensor_values(vesk_cb_record_sensor_values *rec,
                                                                 reader *reader);

#ifdef __cplusplus
}
#endif

#endif
