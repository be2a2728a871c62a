#ifndef VESK_HB_RECORD_EVENTS_H
#define VESK_HB_RECORD_EVENTS_H

#include <stdint.h>

#include "reader.h"
#include "vesk_api.h"
#include "writer.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct vesk_hb_record_events {
    signed char version;
    uint32_t n_type1_events;
    uint32_t n_type4_events;
    uint32_t n_type2_events;
    uint32_t n_type3_events;
    uint32_t n_type5_events;
} vesk_hb_record_events;

VESK_API int vesk_hb_record_events_init_null(vesk_hb_record_events *rec);
VESK_API vesk_hb_record_events *vesk_hb_record_events_create_null(void);
VESK_API void vesk_hb_record_events_destruct(vesk_hb_record_events *rec);
VESK_API void vesk_hb_record_events_destroy(vesk_hb_record_events **rec);
VESK_API vesk_hb_record_events *vesk_hb_record_events_copy(const vesk_hb_record_events *rec,
                                                           vesk_hb_record_events *dst);
VESK_API int vesk_hb_record_events_is_equal(const vesk_hb_record_events *rec1,
                                            const vesk_hb_record_events *rec2);
VESK_API void vesk_hb_record_events_merge_with(vesk_hb_record_events *rec1,
                                               const vesk_hb_record_events *rec2);
VESK_API int binary_serializer_write_vesk_hb_record_events(const vesk_hb_record_events *rec,
                                                           writer *writer);
VESK_API int binary_serializer_read_vesk_hb_record_events(vesk_hb_record_events *rec,
                                                          reader *reader);

#ifdef __cplusplus
}
#endif

#endif
