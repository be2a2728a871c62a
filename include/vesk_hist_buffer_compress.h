#ifndef VESK_HIST_BUFFER_COMPRESS_H
#define VESK_HIST_BUFFER_COMPRESS_H

#include "vesk_api.h"
#include "vesk_hist_buffer.h"

#ifdef __cplusplus
extern "C" {
#endif

VESK_API int vesk_hist_buffer_compress(const char *hbuf_in_filename, vesk_hist_buffer *hbuf_out);

#ifdef __cplusplus
}
#endif

#endif
