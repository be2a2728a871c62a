/**
 * @file
 * @brief Summarising a file of raw samples into intervals of a history buffer.
 */
#ifndef VESK_CURRENT_BUFFER_COMPRESS_H
#define VESK_CURRENT_BUFFER_COMPRESS_H

#include <stdint.h>

#include "vesk_api.h"
#include "vesk_hist_buffer.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Appends the samples of the closed current buffer @p cbuf_filename to @p hbuf, one interval for
 * every @p samples_per_hb_interval consecutive vectors.
 *
 * An interval has the times of its first and its last sample, a summary (hist_value.h) for every
 * sensor that was in any of its samples, and how many events of the types 1 to 5 were read while it
 * was open; so an event behind the last sample of an interval counts for the next one. A sensor
 * without a valid value is there with a count of 0. The file is only read, but must be writable.
 *
 * The capacity of the file must be a multiple of @p samples_per_hb_interval, and @p hbuf must have
 * room for all of its intervals. A file that ends early, and one that fails in the middle, leaves a
 * short interval at the end: what was read is written in any case, and stays in @p hbuf. Events
 * behind the last sample are not written.
 *
 * Aborts with "samples_per_hb_interval > 0"; with "!timestamp_is_null (&state->start)" or
 * "!timestamp_is_null (&state->end)" when the first or the last sample of an interval was taken at
 * second 0; and with "0" on an event of another type than 1 to 5.
 *
 * @return 0; QE_ERROR_MALFORMED (-6) when the capacity does not fit, with nothing written, when a
 * sample has another number of values than there are sensors, or when there are more samples than
 * the capacity; the codes of vesk_current_buffer_open_for_read_write() and of
 * vesk_current_buffer_read_record() but QE_ERROR_END_OF_RECORDS (-43); the codes of
 * vesk_hist_buffer_write_interval().
 */
VESK_API int vesk_current_buffer_compress(const char *cbuf_filename, vesk_hist_buffer *hbuf,
                                          uint32_t samples_per_hb_interval);

#ifdef __cplusplus
}
#endif

#endif
