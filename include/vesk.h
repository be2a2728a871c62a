#ifndef VESK_H
#define VESK_H

#include <stdint.h>

#include "matrix.h"
#include "reader.h"
#include "vesk_api.h"
#include "vesk_cb_record_event.h"
#include "vesk_zcf_state_c00.h"
#include "vesk_zcf_state_cc0.h"
#include "vesk_zcf_state_ccc.h"
#include "vesk_zcf_state_hcc.h"
#include "writer.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef enum vesk_zcf_state {
    VESK_ZCF_STATE_C00 = 1,
    VESK_ZCF_STATE_CC0 = 2,
    VESK_ZCF_STATE_CCC = 3,
    VESK_ZCF_STATE_HCC = 4
} vesk_zcf_state;

typedef struct vesk {
    char version;
    char *filename;
    char *state_filename;
    uint32_t state;
    uint32_t num_cb_samples;
    uint32_t num_hb_intervals;
    uint32_t num_samples_per_interval;
    uint32_t next_file_number;
    union {
        void *stage;
        vesk_zcf_state_c00 *c00;
        vesk_zcf_state_cc0 *cc0;
        vesk_zcf_state_ccc *ccc;
        vesk_zcf_state_hcc *hcc;
    };
    uint32_t stage_type;
} vesk;

VESK_API vesk *vesk_create(const char *filename, uint32_t num_cb_samples,
                           uint32_t num_hb_intervals);
VESK_API vesk *vesk_open(const char *filename);
VESK_API vesk *vesk_create_null(void);
VESK_API int vesk_write_telemetry_vector(vesk *vesk, const matrix *vector);
VESK_API int vesk_write_event(vesk *vesk, const vesk_cb_record_event *event);
VESK_API void vesk_close(vesk **vesk);
VESK_API int binary_serializer_write_vesk(const vesk *vesk, writer *writer);
VESK_API int binary_serializer_read_vesk(vesk *vesk, reader *reader);

#ifdef __cplusplus
}
#endif

#endif
