/**
 * @file
 * @brief A record of a history buffer, of either type.
 *
 * The counterpart of vesk_cb_record.h: a history buffer is a stream of records that name sensors or
 * summarise them over an interval. A record made by an init function borrows its payload, a record
 * that was read owns it until it is detached.
 */
#ifndef VESK_HB_RECORD_H
#define VESK_HB_RECORD_H

#include <stdint.h>

#include "reader.h"
#include "vesk_api.h"
#include "vesk_hb_record_sensor_names.h"
#include "vesk_hb_record_sensor_values.h"
#include "writer.h"

#ifdef __cplusplus
extern "C" {
#endif

/** What a record carries; 0 stands for nothing. */
typedef enum vesk_hb_record_type {
    VESK_HB_RECORD_SENSOR_NAMES = 1, /**< the sensors that the intervals behind it summarise */
    VESK_HB_RECORD_SENSOR_VALUES = 2 /**< one interval of these sensors */
} vesk_hb_record_type;

/** A record of a history buffer. It has no version: an empty record is a valid one. */
typedef struct vesk_hb_record {
    uint32_t type; /**< a vesk_hb_record_type, or 0 */
    union {
        void *data;                           /**< the payload; null in an empty record */
        vesk_hb_record_sensor_names *names;   /**< the payload of type 1 */
        vesk_hb_record_sensor_values *values; /**< the payload of type 2 */
    };
    uint32_t owns_data; /**< not 0 when the record destroys its payload */
} vesk_hb_record;

/** Makes @p rec an empty record, without looking at what it was before. @return 0. */
VESK_API int vesk_hb_record_init_null(vesk_hb_record *rec);

/**
 * Makes @p rec a record of @p names, which stay the caller's.
 *
 * Aborts with "names != ((void *)0)".
 *
 * @return 0.
 */
VESK_API int vesk_hb_record_init_sensor_names(vesk_hb_record *rec,
                                              vesk_hb_record_sensor_names *names);

/**
 * Makes @p rec a record of @p values, which stay the caller's.
 *
 * Aborts with "values != ((void *)0)".
 *
 * @return 0.
 */
VESK_API int vesk_hb_record_init_sensor_values(vesk_hb_record *rec,
                                               vesk_hb_record_sensor_values *values);

/**
 * Empties @p rec, and destroys its payload when the record owns it. The record may be used again.
 *
 * Aborts with "0" when it owns a payload of an unknown type.
 */
VESK_API void vesk_hb_record_destruct(vesk_hb_record *rec);

/**
 * Gives the payload to the caller, who takes it from the record and destroys it in time. The record
 * keeps its type and still points at the payload, but never destroys it.
 *
 * Aborts with "rec->type > 0" or "rec->data != ((void *)0)" on an empty record.
 */
VESK_API void vesk_hb_record_detach(vesk_hb_record *rec);

/**
 * Writes the type, 4 bytes, and the form of the payload.
 *
 * Aborts with "rec->names != ((void *)0)" or "rec->values != ((void *)0)" without a payload, and
 * with "0" on an unknown type.
 *
 * @return what the writer reported, or the first negative result of the writer or of the payload.
 * Nothing is taken back then.
 */
VESK_API int binary_serializer_write_vesk_hb_record(const vesk_hb_record *rec, writer *writer);

/**
 * Reads the next record into @p rec, which is empty or holds an earlier record. A payload that
 * @p rec owns is used again when it is of the same type; any other one is destroyed if it is owned,
 * and dropped, and so it is before an unknown type is refused.
 *
 * @return the bytes consumed, and @p rec owns its payload; 0 at the end of the records, and @p rec
 * is untouched; QE_ERROR_TRUNCATED (-48) where the data ends inside the type, or the negative
 * result of @p reader for it, and @p rec is untouched; QE_ERROR_MALFORMED (-6) on an unknown type;
 * QE_ERROR_TRUNCATED (-48) where the data ends inside the record, or the code of the payload or of
 * the reader, and @p rec has no payload.
 */
VESK_API int binary_serializer_read_vesk_hb_record(vesk_hb_record *rec, reader *reader);

#ifdef __cplusplus
}
#endif

#endif
