/**
 * @file
 * @brief The sensors that the intervals behind this record summarise.
 *
 * The record is that of a current buffer, vesk_cb_record_sensor_names.h, and so is its stored form;
 * only vesk_hb_record_sensor_names_init() and vesk_hb_record_sensor_names_create() differ. Every
 * other function does what its namesake there does.
 */
#ifndef VESK_HB_RECORD_SENSOR_NAMES_H
#define VESK_HB_RECORD_SENSOR_NAMES_H

#include <stdint.h>

#include "hist_value_list.h"
#include "reader.h"
#include "sensor_array.h"
#include "timestamp.h"
#include "vesk_api.h"
#include "vesk_cb_record_sensor_names.h"
#include "writer.h"

#ifdef __cplusplus
extern "C" {
#endif

/** The sensors of a history buffer from some interval on. */
typedef vesk_cb_record_sensor_names vesk_hb_record_sensor_names;

/**
 * Makes @p rec the record of the live sensors of @p hvlist, in the order of the list, with a copy
 * of
 * @p timestamp.
 *
 * @return 0; QE_ERROR_NO_MEMORY (-22) without memory; QE_ERROR_MALFORMED (-6) when the list is
 * empty, or the code that an earlier failure left in the cell. After a failure nothing is left to
 * destruct.
 */
VESK_API int vesk_hb_record_sensor_names_init(vesk_hb_record_sensor_names *rec,
                                              const timestamp *timestamp,
                                              const hist_value_list *hvlist);

/**
 * @return a new record as by vesk_hb_record_sensor_names_init(), or null with its code in the cell.
 */
VESK_API vesk_hb_record_sensor_names *
vesk_hb_record_sensor_names_create(const timestamp *timestamp, const hist_value_list *hvlist);

/** Makes @p rec a null record: vesk_cb_record_sensor_names_init_null(). @return 0. */
VESK_API int vesk_hb_record_sensor_names_init_null(vesk_hb_record_sensor_names *rec);

/** @return a new null record: vesk_cb_record_sensor_names_create_null(). */
VESK_API vesk_hb_record_sensor_names *vesk_hb_record_sensor_names_create_null(void);

/** Releases what @p rec holds: vesk_cb_record_sensor_names_destruct(). */
VESK_API void vesk_hb_record_sensor_names_destruct(vesk_hb_record_sensor_names *rec);

/** Destructs and frees @p *rec: vesk_cb_record_sensor_names_destroy(). */
VESK_API void vesk_hb_record_sensor_names_destroy(vesk_hb_record_sensor_names **rec);

/** @return 1 for the same time and sensors: vesk_cb_record_sensor_names_is_equal(). */
VESK_API int vesk_hb_record_sensor_names_is_equal(const vesk_hb_record_sensor_names *rec1,
                                                  const vesk_hb_record_sensor_names *rec2);

/** @return 1 for the same sensors: vesk_cb_record_sensor_names_are_sensors_equal(). */
VESK_API int vesk_hb_record_sensor_names_are_sensors_equal(const vesk_hb_record_sensor_names *rec1,
                                                           const vesk_hb_record_sensor_names *rec2);

/** @return a copy that shares the sensor array: vesk_cb_record_sensor_names_copy(). */
VESK_API vesk_hb_record_sensor_names *
vesk_hb_record_sensor_names_copy(const vesk_hb_record_sensor_names *rec,
                                 vesk_hb_record_sensor_names *dest);

/** @return the number of sensors: vesk_cb_record_sensor_names_get_number_sensors(). */
VESK_API uint32_t
vesk_hb_record_sensor_names_get_number_sensors(const vesk_hb_record_sensor_names *rec);

/** @return the record's sensor array: vesk_cb_record_sensor_names_get_sensors(). */
VESK_API sensor_array *
vesk_hb_record_sensor_names_get_sensors(const vesk_hb_record_sensor_names *rec);

/** @return the record's timestamp: vesk_cb_record_sensor_names_get_timestamp(). */
VESK_API timestamp *vesk_hb_record_sensor_names_get_timestamp(vesk_hb_record_sensor_names *rec);

/** Writes @p rec: binary_serializer_write_vesk_cb_record_sensor_names(). */
VESK_API int
binary_serializer_write_vesk_hb_record_sensor_names(const vesk_hb_record_sensor_names *rec,
                                                    writer *writer);

/** Reads into @p rec: binary_serializer_read_vesk_cb_record_sensor_names(). */
VESK_API int binary_serializer_read_vesk_hb_record_sensor_names(vesk_hb_record_sensor_names *rec,
                                                                reader *reader);

#ifdef __cplusplus
}
#endif

#endif
