#ifndef VESK_ZCF_STATE_CC0_H
#define VESK_ZCF_STATE_CC0_H

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

typedef struct vesk_zcf_state_cc0 {
    char version;
    char *cbuf0_filename;
    vesk_current_buffer *cbuf1;
} vesk_zcf_state_cc0;

VESK_API vesk_zcf_state_cc0 *vesk_zcf_state_cc0_create(const char *cbuf0_filename,
                                                       const char *cbuf1_filename,
                                                       uint32_t max_data_records);
VESK_API vesk_zcf_state_cc0 *vesk_zcf_state_cc0_create_null(void);
VESK_API void vesk_zcf_state_cc0_destroy(vesk_zcf_state_cc0 **state);
VESK_API int vesk_zcf_state_cc0_write_telemetry_vector(vesk_zcf_state_cc0 *state,
                                                       const matrix *vector);
VESK_API int vesk_zcf_state_cc0_write_event(vesk_zcf_state_cc0 *state,
                                            const vesk_cb_record_event *event);
VESK_API const char *vesk_zcf_state_cc0_get_cbuf0_filename(const vesk_zcf_state_cc0 *state);
VESK_API const char *vesk_zcf_state_cc0_get_cbuf1_filename(const vesk_zcf_state_cc0 *state);
VESK_API int binary_serializer_write_vesk_zcf_state_cc0(const vesk_zcf_state_cc0 *state,
                                                        writer *writer);
VESK_API int binary_serializer_read_vesk_zcf_state_cc0(vesk_zcf_state_cc0 *state, reader *reader);

#ifdef __cplusplus
}
#endif

#endif
