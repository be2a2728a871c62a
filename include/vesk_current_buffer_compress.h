#ifndef VESK_CURRENT_BUFFER_COMPRESS_H
#define VESK_CURRENT_BUFFER_COMPRESS_H

#include <stdint.h>

#include "vesk_api.h"
#include "vesk_hist_buffer.h"

#ifdef __cplusplus
extern "C" {
#endif

VESK_API int vesk_current_buffer_compress(const char *cbuf_filename, vesk_hist_buffer *hbuf,
                                          uint32_t samples_per_hb_interval);

#ifdef __cplusplus
}
#endif

#endif
