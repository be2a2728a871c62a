/**
 * @file
 * @brief Halving the resolution of a full history buffer.
 */
#ifndef VESK_HIST_BUFFER_COMPRESS_H
#define VESK_HIST_BUFFER_COMPRESS_H

#include "vesk_api.h"
#include "vesk_hist_buffer.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Appends the intervals of the closed history buffer @p hbuf_in_filename to @p hbuf_out, one for
 * each pair of neighbours: the first with the second, the third with the fourth and so on.
 *
 * A merged interval reaches from the start of the first to the end of the second, has the summaries
 * of all sensors of both (hist_value_merge_with(), a sensor of only one keeps its summary) and the
 * sums of the event counts. A change of sensors between the two does not part them. The input file
 * is only read, but must be writable.
 *
 * The input must be full, and @p hbuf_out must have room for half of its capacity.
 *
 * Aborts with "*names1 != ((void *)0)" on an input without any record; with
 * "*names1 == state->hbuf_in->hb_rec_sensors_last" when the sensors change twice between two
 * intervals of one pair; and with "hvalue->count == 0" when a sensor occurs twice in a set.
 *
 * @return 0; QE_ERROR_MALFORMED (-6) when @p hbuf_out has too little room, with nothing written,
 * when an interval has another number of summaries than there are sensors, or when there are more
 * intervals than the capacity; QE_ERROR_NOT_FULL (-44) when there are fewer, after all whole pairs
 * were written; the codes of vesk_hist_buffer_open_for_read_write() and of
 * vesk_hist_buffer_read_record() but QE_ERROR_END_OF_RECORDS (-43); the codes of
 * vesk_hist_buffer_write_interval().
 */
VESK_API int vesk_hist_buffer_compress(const char *hbuf_in_filename, vesk_hist_buffer *hbuf_out);

#ifdef __cplusplus
}
#endif

#endif
