#ifndef VESK_ZCF_STATE_CCC_H
#define VESK_ZCF_STATE_CCC_H

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

typedef struct vesk_zcf_state_ccc {
    char version;
    char *cbuf0_filename;
    char *cbuf1_filename;
    vesk_current_buffer *cbuf2;
} vesk_zcf_state_ccc;

VESK_API vesk_zcf_state_ccc *vesk_zcf_state_ccc_create(const char *cbuf0_filename,
                                                       const char *cbuf1_filename,
                                                       const char *cbuf2_filename,
                                                       uint32_t max_data_records);
VESK_API vesk_zcf_state_ccc *vesk_zcf_state_ccc_create_null(void);
VESK_API void vesk_zcf_state_ccc_destroy(vesk_zcf_state_ccc **state);
VESK_API int vesk_zcf_state_ccc_write_telemetry_vector(vesk_zcf_state_ccc *state,
                                                       const matrix *vector);
VESK_API int vesk_zcf_state_ccc_write_event(vesk_zcf_state_ccc *state,
                                            const vesk_cb_record_event *event);
VESK_API const char *vesk_zcf_state_ccc_get_cbuf0_filename(const vesk_zcf_state_ccc *state);
VESK_API const char *vesk_zcf_state_ccc_get_cbuf1_filename(const vesk_zcf_state_ccc *state);
VESK_API const char *vesk_zcf_state_ccc_get_cbuf2_filename(const vesk_zcf_state_ccc *state);
VESK_API int binary_serializer_write_vesk_zcf_state_ccc(const vesk_zcf_state_ccc *state,
                                                        writer *writer);
VESK_API int binary_serializer_read_vesk_zcf_state_ccc(vesk_zcf_state_ccc *state, reader *reader);

#ifdef __cplusplus
}
#endif

#endif
