/**
 * @file
 * @brief One interval of the history: a summary of each sensor and the event counters.
 *
 * The version of this record is 2. The stored form of version 1 had no event counters; it is read,
 * with all counters 0, but no longer written.
 *
 * A null pointer aborts with the name of the argument, as in "rec != ((void *)0)", and a record
 * that is not live with "rec->version == ((char) 2)" (rec1 and rec2 where there are two) unless it
 * is said otherwise.
 */
#ifndef VESK_HB_RECORD_SENSOR_VALUES_H
#define VESK_HB_RECORD_SENSOR_VALUES_H

#include <stdint.h>

#include "hist_value.h"
#include "hist_value_list.h"
#include "reader.h"
#include "timestamp.h"
#include "vesk_api.h"
#include "vesk_hb_record_events.h"
#include "writer.h"

#ifdef __cplusplus
extern "C" {
#endif

/** One interval. */
typedef struct vesk_hb_record_sensor_values {
    signed char version;          /**< 2 while live */
    timestamp start;              /**< time of the first sample */
    timestamp end;                /**< time of the last sample */
    hist_value *hvalues;          /**< owned, n_sensors summaries; null only in a null record */
    uint32_t n_sensors;           /**< number of summaries */
    vesk_hb_record_events events; /**< the events between the samples */
} vesk_hb_record_sensor_values;

/**
 * Makes @p rec the interval from @p start to @p end with copies of the live summaries of @p hvlist,
 * in the order of the list, and of @p events, or with counters of 0 when @p events is null.
 *
 * Aborts with "rec->n_sensors > 0" when the list is empty.
 *
 * @return 0, or QE_ERROR_NO_MEMORY (-22) and nothing is left to destruct.
 */
VESK_API int vesk_hb_record_sensor_values_init(vesk_hb_record_sensor_values *rec,
                                               const timestamp *start, const timestamp *end,
                                               const hist_value_list *hvlist,
                                               const vesk_hb_record_events *events);

/** @return a new record as by vesk_hb_record_sensor_values_init(), or null with QE_ERROR_NO_MEMORY
 * (-22) in the cell. */
VESK_API vesk_hb_record_sensor_values *
vesk_hb_record_sensor_values_create(const timestamp *start, const timestamp *end,
                                    const hist_value_list *hvlist,
                                    const vesk_hb_record_events *events);

/** Makes @p rec a record with null timestamps, no summaries and no events, to be read. @return 0.
 */
VESK_API int vesk_hb_record_sensor_values_init_null(vesk_hb_record_sensor_values *rec);

/** @return a new null record, or null with QE_ERROR_NO_MEMORY (-22) in the cell. */
VESK_API vesk_hb_record_sensor_values *vesk_hb_record_sensor_values_create_null(void);

/** Releases what @p rec holds and marks it dead. */
VESK_API void vesk_hb_record_sensor_values_destruct(vesk_hb_record_sensor_values *rec);

/** Destructs and frees @p *rec and sets it to null. */
VESK_API void vesk_hb_record_sensor_values_destroy(vesk_hb_record_sensor_values **rec);

/** @return the summaries, which stay those of the record; null in a null record. */
VESK_API hist_value *
vesk_hb_record_sensor_values_get_hist_values(const vesk_hb_record_sensor_values *rec);

/** @return the number of summaries. */
VESK_API uint32_t
vesk_hb_record_sensor_values_get_number_hist_values(const vesk_hb_record_sensor_values *rec);

/** @return the time of the first sample, which stays part of the record. */
VESK_API timestamp *
vesk_hb_record_sensor_values_get_start_timestamp(vesk_hb_record_sensor_values *rec);

/** @return the time of the last sample, which stays part of the record. */
VESK_API timestamp *
vesk_hb_record_sensor_values_get_end_timestamp(vesk_hb_record_sensor_values *rec);

/** @return the event counters, which stay part of the record. */
VESK_API vesk_hb_record_events *
vesk_hb_record_sensor_values_get_events(vesk_hb_record_sensor_values *rec);

/**
 * Aborts with "rec1->hvalues != ((void *)0)", "rec1->n_sensors > 0" or the same of @p rec2 when a
 * record has no summaries.
 *
 * @return 1 when both have the same number of summaries, the same times, the same event counters
 * and summaries that are equal by hist_value_is_equal(); else 0.
 */
VESK_API int vesk_hb_record_sensor_values_is_equal(const vesk_hb_record_sensor_values *rec1,
                                                   const vesk_hb_record_sensor_values *rec2);

/**
 * Copies the times and summaries of @p rec to @p dst, whose own summaries are released, or to a new
 * record when @p dst is null. The event counters are not copied: those of @p dst stay as they are,
 * those of a new record may hold anything. @p rec is marked live with version 2, whatever its
 * version was.
 *
 * @return the copy, or null with QE_ERROR_NO_MEMORY (-22) in the cell and @p dst untouched.
 */
VESK_API vesk_hb_record_sensor_values *
vesk_hb_record_sensor_values_copy(vesk_hb_record_sensor_values *rec,
                                  vesk_hb_record_sensor_values *dst);

/**
 * Writes version 2 (1 byte), both timestamps (9 each), the number of summaries (4), the summaries
 * (37 each) and the event counters (21).
 *
 * Aborts with "rec->version == 2", "rec->hvalues != ((void *)0)" or "rec->n_sensors > 0".
 *
 * @return what the writer reported; QE_ERROR_LIMIT (-49) with more than 10000 summaries, and
 * nothing is written; or the negative result of the writer.
 */
VESK_API int
binary_serializer_write_vesk_hb_record_sensor_values(const vesk_hb_record_sensor_values *rec,
                                                     writer *writer);

/**
 * Reads an interval of version 1 or 2 into @p rec, which is live. Summaries in the right number are
 * read over. After a failure @p rec counts the summaries that were read.
 *
 * Aborts with "rec->version == 2", and with "nread != 0" where the data ends right before the
 * second event counter.
 *
 * @return the bytes consumed; 0 at the end of the data; QE_ERROR_BAD_VERSION (-12) on any other
 * version, also that of a part; QE_ERROR_MALFORMED (-6) on a timestamp with microseconds or a
 * number of summaries that is not 1 to 10000; QE_ERROR_NO_MEMORY (-22) without memory;
 * QE_ERROR_TRUNCATED (-48) where the data ends inside the interval; or the negative result of the
 * reader.
 */
VESK_API int binary_serializer_read_vesk_hb_record_sensor_values(vesk_hb_record_sensor_values *rec,
                                                                 reader *reader);

#ifdef __cplusplus
}
#endif

#endif
