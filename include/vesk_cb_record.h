/**
 * @file
 * @brief A record of a current buffer, of any type.
 *
 * A current buffer is a stream of records of three types. This one carries a payload of any of
 * them and says whether it has to destroy it: a record made by an init function only borrows the
 * payload of the caller, a record that was read owns its payload until it is detached.
 *
 * A record may be used for one read after the other. It is kept by value and holds no payload to
 * begin with:
 *
 *     vesk_cb_record rec;
 *     vesk_cb_record_init_null(&rec);
 *     while (vesk_current_buffer_read_record(cbuf, &rec) == 0) { ... }
 *     vesk_cb_record_destruct(&rec);
 */
#ifndef VESK_CB_RECORD_H
#define VESK_CB_RECORD_H

#include <stdint.h>

#include "reader.h"
#include "vesk_api.h"
#include "vesk_cb_record_event.h"
#include "vesk_cb_record_sensor_names.h"
#include "vesk_cb_record_sensor_values.h"
#include "writer.h"

#ifdef __cplusplus
extern "C" {
#endif

/** What a record carries; 0 stands for nothing. */
typedef enum vesk_cb_record_type {
    VESK_CB_RECORD_SENSOR_NAMES = 1,  /**< the sensors that the values behind it belong to */
    VESK_CB_RECORD_SENSOR_VALUES = 2, /**< one sample of these sensors */
    VESK_CB_RECORD_EVENT = 3          /**< an event */
} vesk_cb_record_type;

/** A record of a current buffer. It has no version: an empty record is a valid one. */
typedef struct vesk_cb_record {
    uint32_t type; /**< a vesk_cb_record_type, or 0 */
    union {
        void *data;                           /**< the payload; null in an empty record */
        vesk_cb_record_sensor_names *names;   /**< the payload of type 1 */
        vesk_cb_record_sensor_values *values; /**< the payload of type 2 */
        vesk_cb_record_event *event;          /**< the payload of type 3 */
    };
    uint32_t owns_data; /**< not 0 when the record destroys its payload */
} vesk_cb_record;

/** Makes @p rec an empty record, without looking at what it was before. @return 0. */
VESK_API int vesk_cb_record_init_null(vesk_cb_record *rec);

/** Makes @p rec a record of @p names, which stay the caller's. @return 0. */
VESK_API int vesk_cb_record_init_sensor_names(vesk_cb_record *rec,
                                              vesk_cb_record_sensor_names *names);

/** Makes @p rec a record of @p values, which stay the caller's. @return 0. */
VESK_API int vesk_cb_record_init_sensor_values(vesk_cb_record *rec,
                                               vesk_cb_record_sensor_values *values);

/** Makes @p rec a record of @p event, which stays the caller's. @return 0. */
VESK_API int vesk_cb_record_init_event(vesk_cb_record *rec, vesk_cb_record_event *event);

/**
 * Empties @p rec, and destroys its payload when the record owns it. The record may be used again.
 *
 * Aborts with "0" when it owns a payload of an unknown type.
 */
VESK_API void vesk_cb_record_destruct(vesk_cb_record *rec);

/**
 * Gives the payload to the caller, who takes it from the record and destroys it in time. The record
 * keeps its type and still points at the payload, but never destroys it.
 *
 * Aborts with "rec->type > 0" or "rec->data != ((void *)0)" on an empty record.
 */
VESK_API void vesk_cb_record_detach(vesk_cb_record *rec);

/**
 * Writes the type, 4 bytes, and the form of the payload.
 *
 * Aborts with "rec->names != ((void *)0)", "rec->values != ((void *)0)" or
 * "rec->event != ((void *)0)" without a payload, and with "0" on an unknown type.
 *
 * @return what the writer reported, or the first negative result of the writer or of the payload.
 * Nothing is taken back then: a payload that refuses to be written (QE_ERROR_LIMIT (-49)) leaves
 * its type behind, and what follows in the stream cannot be read.
 */
VESK_API int binary_serializer_write_vesk_cb_record(const vesk_cb_record *rec, writer *writer);

/**
 * Reads the next record into @p rec, which is empty or holds an earlier record. A payload that
 * @p rec owns is used again when it is of the same type: pointers to it stay valid, pointers into
 * it do not, with the exception of the array of a sample, which is kept when the number of values
 * is the same. Any other payload is destroyed if it is owned, and dropped.
 *
 * @return the bytes consumed, and @p rec owns its payload; 0 at the end of the records, and @p rec
 * is untouched; QE_ERROR_TRUNCATED (-48) where the data ends inside the type, or the negative
 * result of @p reader for it, and @p rec is untouched; QE_ERROR_MALFORMED (-6) on an unknown type,
 * and @p rec is untouched; QE_ERROR_TRUNCATED (-48) where it ends inside the payload, or the code
 * of the payload or of the reader, and @p rec has no payload.
 */
VESK_API int binary_serializer_read_vesk_cb_record(vesk_cb_record *rec, reader *reader);

#ifdef __cplusplus
}
#endif

#endif
