#ifndef VESK_HIST_VALUE_H
#define VESK_HIST_VALUE_H

#include <stdint.h>

#include "reader.h"
#include "vesk_api.h"
#include "writer.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct hist_value {
    signed char version;
    uint32_t count;
    float min_value;
    float max_value;
    float first_value;
    float last_value;
    float sum;
    float sum_squares;
    float sum_cubes;
    float sum_fourth_powers;
} hist_value;

VESK_API int hist_value_init(hist_value *hv);
VESK_API hist_value *hist_value_create(void);
VESK_API void hist_value_destruct(hist_value *hv);
VESK_API void hist_value_destroy(hist_value **hv);
VESK_API hist_value *hist_value_copy(const hist_value *hv, hist_value *dst);
VESK_API int hist_value_is_equal(const hist_value *hv1, const hist_value *hv2);
VESK_API void hist_value_update(hist_value *hv, float value);
VESK_API void hist_value_merge_with(hist_value *hv1, const hist_value *hv2);
VESK_API int binary_serializer_write_hist_value(const hist_value *hv, writer *writer);
VESK_API int binary_serializer_read_hist_value(hist_value *hv, reader *reader);

#ifdef __cplusplus
}
#endif

#endif
