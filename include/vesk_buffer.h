#ifndef VESK_BUFFER_H
#define VESK_BUFFER_H

#include <stdint.h>

#include "vesk_api.h"
#include "writer.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct vesk_current_buffer vesk_current_buffer;
typedef struct vesk_hist_buffer vesk_hist_buffer;

enum { VESK_BUFFER_TYPE_CURRENT = 1, VESK_BUFFER_TYPE_HIST = 2 };

typedef struct vesk_buffer {
    uint32_t type;
    union {
        void *data;
        vesk_current_buffer *cbuf;
        vesk_hist_buffer *hbuf;
    };
    uint32_t owns_data;
} vesk_buffer;

VESK_API int vesk_buffer_init_null(vesk_buffer *buf);
VESK_API int vesk_buffer_init_current_buffer(vesk_buffer *buf, vesk_current_buffer *cbuf);
VESK_API int vesk_buffer_init_hist_buffer(vesk_buffer *buf, vesk_hist_buffer *hbuf);
VESK_API void vesk_buffer_destruct(vesk_buffer *buf);
VESK_API void vesk_buffer_destroy(vesk_buffer **buf);
VESK_API void vesk_buffer_detach(vesk_buffer *rec);
VESK_API vesk_buffer *vesk_buffer_open_for_read_write(const char *path);
VESK_API int binary_serializer_write_vesk_buffer(const vesk_buffer *buf, writer *writer);

#ifdef __cplusplus
}
#endif

#endif
