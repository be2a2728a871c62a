#ifndef VESK_ZCF_STATE_C00_H
#define VESK_ZCF_STATE_C00_H

#include <stdint.h>

#include "matrix.h"
#include "reader.h"
#include "vesk_api.h"
#include "vesk_cb_record_event.h"
#include "vesk_current_buffer.h"
#include "writer.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct vesk_zcf_state_c00 {
    char version;
    vesk_current_buffer *cbuf0;
} vesk_zcf_state_c00;

VESK_API vesk_zcf_state_c00 *vesk_zcf_state_c00_create(const char *cbuf_filename,
                                                       uint32_t max_data_records);
VESK_API vesk_zcf_state_c00 *vesk_zcf_state_c00_create_null(void);
VESK_API void vesk_zcf_state_c00_destroy(vesk_zcf_state_c00 **state);
VESK_API int vesk_zcf_state_c00_write_telemetry_vector(vesk_zcf_state_c00 *state,
                                                       const matrix *vector);
VESK_API int vesk_zcf_state_c00_write_event(vesk_zcf_state_c00 *state,
                                            const vesk_cb_record_event *event);
VESK_API const char *vesk_zcf_state_c00_get_filename(const vesk_zcf_state_c00 *state);
VESK_API int binary_serializer_write_vesk_zcf_state_c00(const vesk_zcf_state_c00 *state,
                                                        writer *writer);
VESK_API int binary_serializer_read_vesk_zcf_state_c00(vesk_zcf_state_c00 *state, reader *reader);

#ifdef __cplusplus
}
#endif

#endif
