/**
 * @file
 * @brief An event of a current buffer: a type, a time and a text.
 */
#ifndef VESK_CB_RECORD_EVENT_H
#define VESK_CB_RECORD_EVENT_H

#include <stdint.h>

#include "reader.h"
#include "timestamp.h"
#include "vesk_api.h"
#include "writer.h"

#ifdef __cplusplus
extern "C" {
#endif

/** An event. */
typedef struct vesk_cb_record_event {
    char version;               /**< 1 while live */
    uint32_t type;              /**< the meaning is the caller's; the history counts types 1 to 5 */
    struct timestamp timestamp; /**< when it happened */
    char *text;                 /**< owned; null only in a null event */
} vesk_cb_record_event;

/**
 * Makes @p rec an event of @p type with copies of @p t and @p text.
 *
 * An empty text and one of more than 10000 bytes can be held, but not be read back from a file; and
 * only types 1 to 5 can be counted in the history.
 *
 * Aborts with "type > 0", "t != ((void *)0)" or "text != ((void *)0)".
 *
 * @return 0, or QE_ERROR_NO_MEMORY (-22) and nothing is left to destruct.
 */
VESK_API int vesk_cb_record_event_init(vesk_cb_record_event *rec, uint32_t type, const timestamp *t,
                                       const char *text);

/** @return a new event as by vesk_cb_record_event_init(), or null with QE_ERROR_NO_MEMORY (-22) in
 * the cell. */
VESK_API vesk_cb_record_event *vesk_cb_record_event_create(uint32_t type, const timestamp *t,
                                                           const char *text);

/** Makes @p rec an event of type 0, with the null timestamp and no text, to be read. @return 0. */
VESK_API int vesk_cb_record_event_init_null(vesk_cb_record_event *rec);

/** @return a new event as by vesk_cb_record_event_init_null(), or null with QE_ERROR_NO_MEMORY
 * (-22) in the cell. */
VESK_API vesk_cb_record_event *vesk_cb_record_event_create_null(void);

/** Releases the timestamp and the text of @p rec and marks it dead. */
VESK_API void vesk_cb_record_event_destruct(vesk_cb_record_event *rec);

/**
 * Destructs and frees @p *rec and sets it to null.
 *
 * Aborts with "*rec != ((void *)0)".
 */
VESK_API void vesk_cb_record_event_destroy(vesk_cb_record_event **rec);

/** @return the type of @p rec. */
VESK_API uint32_t vesk_cb_record_event_get_type(const vesk_cb_record_event *rec);

/** @return the timestamp of @p rec, which stays part of it. */
VESK_API timestamp *vesk_cb_record_event_get_timestamp(vesk_cb_record_event *rec);

/** @return the text of @p rec, which stays part of it; null for a null event. */
VESK_API const char *vesk_cb_record_event_get_text(const vesk_cb_record_event *rec);

/**
 * @return 1 when both events have the same type, time and text, byte for byte; else 0. Null events
 * have no text to compare: they abort with "rec1->text != ((void *)0)" or the same of @p rec2.
 */
VESK_API int vesk_cb_record_event_is_equal(const vesk_cb_record_event *rec1,
                                           const vesk_cb_record_event *rec2);

/**
 * Writes version 1 (1 byte), the type (4), the timestamp (9) and the text (4 and its length).
 *
 * @return what the writer reported; QE_ERROR_LIMIT (-49) when the text is longer than 10000 bytes,
 * and the fields before it are in the stream; or the negative result of the writer.
 */
VESK_API int binary_serializer_write_vesk_cb_record_event(const vesk_cb_record_event *rec,
                                                          writer *writer);

/**
 * Reads an event into @p rec, which is live; its text is replaced once the new one was read.
 *
 * @return the bytes consumed; 0 at the end of the data; QE_ERROR_BAD_VERSION (-12) on a version
 * other than 1; QE_ERROR_MALFORMED (-6) on a timestamp with microseconds or a text whose length is
 * not 1 to 10000 or which contains a zero byte; QE_ERROR_END_OF_RECORDS (-43) where the data ends
 * before the length of the text, QE_ERROR_TRUNCATED (-48) where it ends elsewhere;
 * QE_ERROR_NO_MEMORY (-22) without memory; or the negative result of the reader. It aborts with
 * "nread != 0" where the data ends right behind the length of the text.
 */
VESK_API int binary_serializer_read_vesk_cb_record_event(vesk_cb_record_event *rec, reader *reader);

#ifdef __cplusplus
}
#endif

#endif
