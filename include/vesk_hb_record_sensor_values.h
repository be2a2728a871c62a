#ifndef VESK_HB_RECORD_SENSOR_VALUES_H
#define VESK_HB_RECORD_SENSOR_VALUES_H

#include <stdint.h>

#include "hist_value.h"
#include "hist_value_list.h"
#include "reader.h"
#include "timestamp.h"
#include "vesk_api.h"
#include "vesk_hb_record_events.h"
#include "writer.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct vesk_hb_record_sensor_values {
    signed char version;
    timestamp start;
    timestamp end;
    hist_value *hvalues;
    uint32_t n_sensors;
    vesk_hb_record_events events;
} vesk_hb_record_sensor_values;

VESK_API int vesk_hb_record_sensor_values_init(vesk_hb_record_sensor_values *rec,
                                               const timestamp *start, const timestamp *end,
                                               const hist_value_list *hvlist,
                                               const vesk_hb_record_events *events);
VESK_API vesk_hb_record_sensor_values *
vesk_hb_record_sensor_values_create(const timestamp *start, const timestamp *end,
                                    const hist_value_list *hvlist,
                                    const vesk_hb_record_events *events);
VESK_API int vesk_hb_record_sensor_values_init_null(vesk_hb_record_sensor_values *rec);
VESK_API vesk_hb_record_sensor_values *vesk_hb_record_sensor_values_create_null(void);
VESK_API void vesk_hb_record_sensor_values_destruct(vesk_hb_record_sensor_values *rec);
VESK_API void vesk_hb_record_sensor_values_destroy(vesk_hb_record_sensor_values **rec);
VESK_API hist_value *
vesk_hb_record_sensor_values_get_hist_values(const vesk_hb_record_sensor_values *rec);
VESK_API uint32_t
vesk_hb_record_sensor_values_get_number_hist_values(const vesk_hb_record_sensor_values *rec);
VESK_API timestamp *
vesk_hb_record_sensor_values_get_start_timestamp(vesk_hb_record_sensor_values *rec);
VESK_API timestamp *
vesk_hb_record_sensor_values_get_end_timestamp(vesk_hb_record_sensor_values *rec);
VESK_API vesk_hb_record_events *
vesk_hb_record_sensor_values_get_events(vesk_hb_record_sensor_values *rec);
VESK_API int vesk_hb_record_sensor_values_is_equal(const vesk_hb_record_sensor_values *rec1,
                                                   const vesk_hb_record_sensor_values *rec2);
VESK_API vesk_hb_record_sensor_values *
vesk_hb_record_sensor_values_copy(vesk_hb_record_sensor_values *rec,
                                  vesk_hb_record_sensor_values *dst);
VESK_API int
binary_serializer_write_vesk_hb_record_sensor_values(const vesk_hb_record_sensor_values *rec,
                                                     writer *writer);
VESK_API int binary_serializer_read_vesk_hb_record_sensor_values(vesk_hb_record_sensor_values *rec,
                                                                 reader *reader);

#ifdef __cplusplus
}
#endif

#endif
