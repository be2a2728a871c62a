#ifndef VESK_HIST_BUFFER_H
#define VESK_HIST_BUFFER_H

#include <stdint.h>
#include <stdio.h>

#include "hist_value_list.h"
#include "reader.h"
#include "timestamp.h"
#include "vesk_api.h"
#include "vesk_hb_record.h"
#include "vesk_hb_record_events.h"
#include "vesk_hb_record_sensor_names.h"
#include "writer.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct vesk_hist_buffer {
    signed char version;
    char *filename;
    FILE *fp;
    struct reader *reader;
    struct writer *writer;
    uint32_t max_data_records;
    uint32_t num_data_records;
    vesk_hb_record_sensor_names *hb_rec_sensors_last;
} vesk_hist_buffer;

VESK_API vesk_hist_buffer *vesk_hist_buffer_create(const char *filename, uint32_t max_data_records);
VESK_API vesk_hist_buffer *vesk_hist_buffer_open_for_read_write(const char *filename);
VESK_API void vesk_hist_buffer_close(vesk_hist_buffer **hbuf);
VESK_API int vesk_hist_buffer_write_interval(vesk_hist_buffer *hbuf, const timestamp *start,
                                             const timestamp *end, const hist_value_list *hvlist,
                                             const vesk_hb_record_events *events);
VESK_API int vesk_hist_buffer_read_record(vesk_hist_buffer *hbuf, vesk_hb_record *rec);
VESK_API int vesk_hist_buffer_get_number_empty_intervals(const vesk_hist_buffer *hbuf);
VESK_API vesk_hb_record_sensor_names *
vesk_hist_buffer_get_sensor_working_set(const vesk_hist_buffer *hbuf);
VESK_API int binary_serializer_write_vesk_hist_buffer(const vesk_hist_buffer *hbuf, writer *writer);
VESK_API int binary_serializer_read_vesk_hist_buffer(vesk_hist_buffer *hbuf, reader *reader);

#ifdef __cplusplus
}
#endif

#endif
