#ifndef VESK_ZCF_STATE_HCC_H
#define VESK_ZCF_STATE_HCC_H

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

typedef struct vesk_zcf_state_hcc {
    char version;
    char *hbuf_filename;
    char *cbuf1_filename;
    vesk_current_buffer *cbuf2;
} vesk_zcf_state_hcc;

VESK_API vesk_zcf_state_hcc *vesk_zcf_state_hcc_create(const char *hbuf_filename,
                                                       const char *cbuf1_filename,
                                                       const char *cbuf2_filename,
                                                       uint32_t max_data_records);
VESK_API vesk_zcf_state_hcc *vesk_zcf_state_hcc_create_null(void);
VESK_API void vesk_zcf_state_hcc_destroy(vesk_zcf_state_hcc **state);
VESK_API int vesk_zcf_state_hcc_write_telemetry_vector(vesk_zcf_state_hcc *state,
                                                       const matrix *vector);
VESK_API int vesk_zcf_state_hcc_write_event(vesk_zcf_state_hcc *state,
                                            const vesk_cb_record_event *event);
VESK_API const char *vesk_zcf_state_hcc_get_hbuf_filename(const vesk_zcf_state_hcc *state);
VESK_API const char *vesk_zcf_state_hcc_get_cbuf1_filename(const vesk_zcf_state_hcc *state);
VESK_API const char *vesk_zcf_state_hcc_get_cbuf2_filename(const vesk_zcf_state_hcc *state);
VESK_API int binary_serializer_write_vesk_zcf_state_hcc(const vesk_zcf_state_hcc *state,
                                                        writer *writer);
VESK_API int binary_serializer_read_vesk_zcf_state_hcc(vesk_zcf_state_hcc *state, reader *reader);

#ifdef __cplusplus
}
#endif

#endif
