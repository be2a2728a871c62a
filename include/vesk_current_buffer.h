#ifndef VESK_CURRENT_BUFFER_H
#define VESK_CURRENT_BUFFER_H

#include <stdint.h>
#include <stdio.h>

#include "matrix.h"
#include "reader.h"
#include "vesk_api.h"
#include "vesk_cb_record.h"
#include "vesk_cb_record_event.h"
#include "vesk_cb_record_sensor_names.h"
#include "writer.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct vesk_current_buffer {
    char version;
    char *filename;
    FILE *file;
    struct reader *reader;
    struct writer *writer;
    uint32_t max_data_records;
    uint32_t num_data_records;
    vesk_cb_record_sensor_names *sensor_working_set;
} vesk_current_buffer;

VESK_API vesk_current_buffer *vesk_current_buffer_create(const char *filename,
                                                         uint32_t max_data_records);
VESK_API vesk_current_buffer *vesk_current_buffer_open_for_read_write(const char *filename);
VESK_API vesk_current_buffer *vesk_current_buffer_open_for_append(const char *filename);
VESK_API int vesk_current_buffer_write_telemetry_vector(vesk_current_buffer *cbuf,
                                                        const matrix *vector);
VESK_API int vesk_current_buffer_write_event(vesk_current_buffer *cbuf,
                                             const vesk_cb_record_event *event);
VESK_API int vesk_current_buffer_read_record(vesk_current_buffer *cbuf, vesk_cb_record *rec);
VESK_API const char *vesk_current_buffer_get_filename(const vesk_current_buffer *cbuf);
VESK_API vesk_cb_record_sensor_names *
vesk_current_buffer_get_sensor_working_set(const vesk_current_buffer *cbuf);
VESK_API void vesk_current_buffer_close(vesk_current_buffer **cbuf);
VESK_API int binary_serializer_write_vesk_current_buffer(const vesk_current_buffer *cbuf,
                                                         writer *writer);
VESK_API int binary_serializer_read_vesk_current_buffer(vesk_current_buffer *cbuf, reader *reader);

#ifdef __cplusplus
}
#endif

#endif
