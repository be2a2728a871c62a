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

typedef struct vesk_cb_record_event {
    char version;
    uint32_t type;
    struct timestamp timestamp;
    char *text;
} vesk_cb_record_event;

VESK_API int vesk_cb_record_event_init(vesk_cb_record_event *rec, uint32_t type, const timestamp *t,
                                       const char *text);
VESK_API vesk_cb_record_event *vesk_cb_record_event_create(uint32_t type, const timestamp *t,
                                                           const char *text);
VESK_API int vesk_cb_record_event_init_null(vesk_cb_record_event *rec);
VESK_API vesk_cb_record_event *vesk_cb_record_event_create_null(void);
VESK_API void vesk_cb_record_event_destruct(vesk_cb_record_event *rec);
VESK_API void vesk_cb_record_event_destroy(vesk_cb_record_event **rec);
VESK_API uint32_t vesk_cb_record_event_get_type(const vesk_cb_record_event *rec);
VESK_API timestamp *vesk_cb_record_event_get_timestamp(vesk_cb_record_event *rec);
VESK_API int vesk_cb_record_event_is_equal(const vesk_cb_record_event *rec1,
                                           const vesk_cb_record_event *rec2);
VESK_API int binary_serializer_write_vesk_cb_record_event(const vesk_cb_record_event *rec,
                                                          writer *writer);
VESK_API int binary_serializer_read_vesk_cb_record_event(vesk_cb_record_event *rec, reader *reader);

#ifdef __cplusplus
}
#endif

#endif
