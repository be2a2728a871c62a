/**
 * @file
 * @brief History buffers: files of summarised intervals.
 *
 * A history buffer holds up to `max_data_records` intervals, one sensor-values record each, with a
 * sensor-names record before the first and wherever the sensors change. The beginning of the file
 * is described in vesk_buffer.h, the records in vesk_hb_record.h.
 *
 * What current buffers say about flushing and about reading to the end before writing holds here
 * too, see vesk_current_buffer.h.
 */
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

/** An open file of summarised intervals. */
typedef struct vesk_hist_buffer {
    signed char version;       /**< 1 while open */
    char *filename;            /**< path of the file; owned */
    FILE *fp;                  /**< the file; closed with the buffer */
    struct reader *reader;     /**< over `fp`, from opening until an interval was written, else
 null */
    struct writer *writer;     /**< over `fp`; each flush ends one zlib stream */
    uint32_t max_data_records; /**< capacity in intervals */
    uint32_t num_data_records; /**< intervals written or read so far */
    vesk_hb_record_sensor_names *hb_rec_sensors_last; /**< the working set: the latest sensor names,
                                                         or null; owned */
} vesk_hist_buffer;

/**
 * Makes a new file, replacing one of that name, for @p max_data_records intervals.
 *
 * The file stays empty until the first interval is written or the buffer is closed. An odd capacity
 * is accepted here, but such a file cannot be opened again.
 *
 * Aborts with "max_data_records != 0".
 *
 * @return the buffer, to be released with vesk_hist_buffer_close(). Null on failure with, in the
 * last-error cell: QE_ERROR_OPEN (-40) the file cannot be opened; QE_ERROR_NO_MEMORY (-22) no
 * memory; or the result of writing the header.
 */
VESK_API vesk_hist_buffer *vesk_hist_buffer_create(const char *filename, uint32_t max_data_records);

/**
 * Opens a file for reading, and for appending once it is read to its end. Its first record has then
 * been read: it names the sensors in the working set. A file without records is fine, its working
 * set is null.
 *
 * @return the buffer, to be released with vesk_hist_buffer_close(). Null on failure with the codes
 * of vesk_buffer_open_for_read_write() in the last-error cell, and QE_ERROR_WRONG_KIND (-3) when
 * the file is a current buffer.
 */
VESK_API vesk_hist_buffer *vesk_hist_buffer_open_for_read_write(const char *filename);

/**
 * Finishes and closes the file, frees the buffer and sets the caller's pointer to null.
 *
 * Aborts with "*hbuf != ((void *)0)", "(*hbuf)->writer != ((void *)0)" or
 * "(*hbuf)->filename != ((void *)0)".
 */
VESK_API void vesk_hist_buffer_close(vesk_hist_buffer **hbuf);

/**
 * Appends one interval: a sensor-names record, with the time @p start, if there is no working set
 * or if the sensors of @p hvlist differ from it in number, identity or order; then the summaries of
 * @p hvlist. Then flushes.
 *
 * @p events are the counts of the events in the interval; null counts none. All arguments stay the
 * caller's. The names become the working set even when writing them fails, unless there was no
 * memory for them: then there is no working set. A failed write does not count the interval.
 *
 * Aborts with "start != ((void *)0)", "end != ((void *)0)", "hvlist != ((void *)0)" or
 * "hbuf->writer != ((void *)0)". A stream that zlib itself refused (QE_ERROR_COMPRESSION (-42))
 * aborts on its next use with "zwriter->err == 0".
 *
 * @return 0; QE_ERROR_FULL (-2) when the buffer is full, with nothing written; QE_ERROR_MALFORMED
 * (-6) when the list is empty or a time cannot be stored; QE_ERROR_IO (-41) the file takes no more;
 * QE_ERROR_LIMIT (-49) more than 10000 sensors; QE_ERROR_COMPRESSION (-42) compression failed;
 * QE_ERROR_NO_MEMORY (-22) no memory.
 */
VESK_API int vesk_hist_buffer_write_interval(vesk_hist_buffer *hbuf, const timestamp *start,
                                             const timestamp *end, const hist_value_list *hvlist,
                                             const vesk_hb_record_events *events);

/**
 * Reads the next record into @p rec, which must be initialised and may hold the record before.
 *
 * Sensor names become the working set of the buffer: @p rec shows them, but they stay the buffer's
 * and live until the next names are read or written, or the buffer is closed. An interval belongs
 * to @p rec and is counted in `num_data_records`.
 *
 * Aborts with "hbuf->reader != ((void *)0)" on a buffer that was created or written to, and with
 * "reader_eof (hbuf->reader)" when the file cannot be read. A file that ends right behind the
 * length of a string, or right behind the first count of events, aborts with "nread != 0".
 *
 * @return 0; QE_ERROR_END_OF_RECORDS (-43) at the end of the records, also when the file ends just
 * where a sensor's name should begin; QE_ERROR_TRUNCATED (-48) the file ends inside the record;
 * QE_ERROR_MALFORMED (-6) unknown record type or malformed content; QE_ERROR_BAD_VERSION (-12)
 * unknown version; QE_ERROR_LIMIT (-49) a stored count is out of range; QE_ERROR_IO (-41) the
 * compressed data are damaged, after which nothing more can be read; QE_ERROR_NO_MEMORY (-22) no
 * memory.
 */
VESK_API int vesk_hist_buffer_read_record(vesk_hist_buffer *hbuf, vesk_hb_record *rec);

/**
 * @return how many intervals still find place: the capacity less what was written or read so far;
 * QE_ERROR_MALFORMED (-6) when that is more than the capacity. A capacity of 2^31 or more gives
 * other negative numbers.
 */
VESK_API int vesk_hist_buffer_get_number_empty_intervals(const vesk_hist_buffer *hbuf);

/**
 * Aborts with "hbuf->version == ((char) 1)" on a buffer that is not open.
 *
 * @return the latest sensor names written or read, or null; they stay the buffer's.
 */
VESK_API vesk_hb_record_sensor_names *
vesk_hist_buffer_get_sensor_working_set(const vesk_hist_buffer *hbuf);

/**
 * Writes the header: version and capacity, 5 bytes.
 *
 * @return the sum of what @p writer reported, or its first negative result.
 */
VESK_API int binary_serializer_write_vesk_hist_buffer(const vesk_hist_buffer *hbuf, writer *writer);

/**
 * Reads the header into @p hbuf. The capacity is stored before it is judged.
 *
 * @return 5; 0 when the data end before the header; QE_ERROR_TRUNCATED (-48) when they end inside
 * it; QE_ERROR_BAD_VERSION (-12) unknown version; QE_ERROR_MALFORMED (-6) a capacity of 0 or an odd
 * one; or the negative result of @p reader.
 */
VESK_API int binary_serializer_read_vesk_hist_buffer(vesk_hist_buffer *hbuf, reader *reader);

#ifdef __cplusplus
}
#endif

#endif
