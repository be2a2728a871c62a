#ifndef VESK_HB_RECORD_SENSOR_NAMES_H
#define VESK_HB_RECORD_SENSOR_NAMES_H

#include <stdint.h>

#include "hist_value_list.h"
#include "reader.h"
#include "sensor_array.h"
#include "timestamp.h"
#include "vesk_api.h"
#include "vesk_cb_record_sensor_names.h"
#include "writer.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef vesk_cb_record_sensor_names vesk_hb_record_sensor_names;

VESK_API int vesk_hb_record_sensor_names_init(vesk_hb_record_sensor_names *rec,
                                              const timestamp *timestamp,
                                              const hist_value_list *hvlist);
VESK_API vesk_hb_record_sensor_names *
vesk_hb_record_sensor_names_create(const timestamp *timestamp, const hist_value_list *hvlist);
VESK_API int vesk_hb_record_sensor_names_init_null(vesk_hb_record_sensor_names *rec);
VESK_API vesk_hb_record_sensor_names *vesk_hb_record_sensor_names_create_null(void);
VESK_API void vesk_hb_record_sensor_names_destruct(vesk_hb_record_sensor_names *rec);
VESK_API void vesk_hb_record_sensor_names_destroy(vesk_hb_record_sensor_names **rec);
VESK_API int vesk_hb_record_sensor_names_is_equal(const vesk_hb_record_sensor_names *rec1,
                                                  const vesk_hb_record_sensor_names *rec2);
VESK_API int vesk_hb_record_sensor_names_are_sensors_equal(const vesk_hb_record_sensor_names *rec1,
                                                           const vesk_hb_record_sensor_names *rec2);
VESK_API vesk_hb_record_sensor_names *
vesk_hb_record_sensor_names_copy(const vesk_hb_record_sensor_names *rec,
                                 vesk_hb_record_sensor_names *dest);
VESK_API uint32_t
vesk_hb_record_sensor_names_get_number_sensors(const vesk_hb_record_sensor_names *rec);
VESK_API sensor_array *
vesk_hb_record_sensor_names_get_sensors(const vesk_hb_record_sensor_names *rec);
VESK_API timestamp *vesk_hb_record_sensor_names_get_timestamp(vesk_hb_record_sensor_names *rec);
VESK_API int
binary_serializer_write_vesk_hb_record_sensor_names(const vesk_hb_record_sensor_names *rec,
                                                    writer *writer);
VESK_API int binary_serializer_read_vesk_hb_record_sensor_names(vesk_hb_record_sensor_names *rec,
                                                                reader *reader);

#ifdef __cplusplus
}
#endif

#endif
