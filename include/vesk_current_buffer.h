/**
 * @file
 * @brief Current buffers: files of raw samples.
 *
 * A current buffer holds up to `max_data_records` telemetry vectors, one sensor-values record each,
 * with a sensor-names record before the first and wherever the set of sensors changes, and events
 * in between. The beginning of the file is described in vesk_buffer.h, the records in
 * vesk_cb_record.h.
 *
 * Every record is flushed when it is written: a record that was acknowledged is a complete zlib
 * stream in the file, and what a crash can tear is only the record being written. Nothing is synced
 * to the disk.
 *
 * A buffer that was opened is read first. It must not be written to before
 * vesk_current_buffer_read_record() returned QE_ERROR_END_OF_RECORDS (-43), since the file is never
 * repositioned: the record would overwrite what was not read. vesk_current_buffer_open_for_append()
 * sees to that.
 */
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

/** An open file of raw samples. */
typedef struct vesk_current_buffer {
    char version;              /**< 1 while open */
    char *filename;            /**< path of the file; owned */
    FILE *file;                /**< the file; closed with the buffer */
    struct reader *reader;     /**< over `file`, from opening until the first write, else null */
    struct writer *writer;     /**< over `file`; each flush ends one zlib stream */
    uint32_t max_data_records; /**< capacity in sensor-values records */
    uint32_t num_data_records; /**< sensor-values records written or read so far */
    vesk_cb_record_sensor_names *sensor_working_set; /**< the latest sensor names, or null; owned */
} vesk_current_buffer;

/**
 * Makes a new file, replacing one of that name, for @p max_data_records vectors.
 *
 * The file stays empty until the first record is written or the buffer is closed. An odd capacity
 * is accepted here, but such a file cannot be opened again.
 *
 * Aborts with "max_data_records > 0".
 *
 * @return the buffer, to be released with vesk_current_buffer_close(). Null on failure with, in the
 * last-error cell: QE_ERROR_OPEN (-40) the file cannot be opened; QE_ERROR_COMPRESSION (-42) its
 * header cannot be written; QE_ERROR_NO_MEMORY (-22) no memory.
 */
VESK_API vesk_current_buffer *vesk_current_buffer_create(const char *filename,
                                                         uint32_t max_data_records);

/**
 * Opens a file for reading. Its first record has then been read: it names the sensors in the
 * working set. A file without records is fine, its working set is null.
 *
 * @return the buffer, to be released with vesk_current_buffer_close(). Null on failure with the
 * codes of vesk_buffer_open_for_read_write() in the last-error cell, and QE_ERROR_WRONG_KIND (-3)
 * when the file is a history buffer.
 */
VESK_API vesk_current_buffer *vesk_current_buffer_open_for_read_write(const char *filename);

/**
 * Opens a file and reads it to its end, so that it can be appended to: the count and the working
 * set are then as they were when the last record was written. Records that are appended form zlib
 * streams behind those that are there; no byte of the file is rewritten.
 *
 * @return the buffer, to be released with vesk_current_buffer_close(). Null on failure with, in the
 * last-error cell, the codes of vesk_current_buffer_open_for_read_write() and of
 * vesk_current_buffer_read_record(), and QE_ERROR_MALFORMED (-6) when the file holds more vectors
 * than its capacity. So a file into which vesk_current_buffer_write_event() wrote cannot be opened
 * for appending (QE_ERROR_MALFORMED (-6)).
 */
VESK_API vesk_current_buffer *vesk_current_buffer_open_for_append(const char *filename);

/**
 * Appends one vector: a sensor-names record if there is no working set or if the sensors of
 * @p vector differ from it, then the values, rounded to single precision. Then flushes.
 *
 * @p vector is a telemetry matrix of one row and stays the caller's, unchanged. The names become
 * the working set even when writing them fails; a failed write does not count the vector, and the
 * bytes that went into the stream stay there, so the buffer should be closed.
 *
 * Aborts with "matrix_get_number_rows (vector) == 1", and when the vector carries no sensors. A
 * stream that zlib itself refused (QE_ERROR_COMPRESSION (-42)) aborts on its next use with
 * "zwriter->err == 0".
 *
 * @return 0; QE_ERROR_FULL (-2) when the buffer is full, with nothing written; QE_ERROR_IO (-41)
 * the file takes no more; QE_ERROR_LIMIT (-49) more than 10000 sensors or a name of more than 10000
 * bytes; QE_ERROR_MALFORMED (-6) the vector's time cannot be stored; QE_ERROR_COMPRESSION (-42)
 * compression failed; QE_ERROR_NO_MEMORY (-22) no memory.
 */
VESK_API int vesk_current_buffer_write_telemetry_vector(vesk_current_buffer *cbuf,
                                                        const matrix *vector);

/**
 * Appends an event, full buffer or not, and flushes.
 *
 * The event is written as its bare form, without the record type that precedes every other record.
 * That is what the format has here, but no reader gets past it: vesk_current_buffer_read_record()
 * returns QE_ERROR_MALFORMED (-6) at the event, and so does everything that reads the file to its
 * end. Events that shall be read back are written with vesk_current_buffer_write_tagged_event().
 *
 * @p event stays the caller's.
 *
 * @return 0, or the negative result of the write: QE_ERROR_LIMIT (-49) the text has more than 10000
 * bytes, QE_ERROR_MALFORMED (-6) its time cannot be stored, QE_ERROR_IO (-41) or
 * QE_ERROR_COMPRESSION (-42) the stream failed. The result of the flush, on which small events
 * reach the file, is not returned but left in the last-error cell when it is negative.
 */
VESK_API int vesk_current_buffer_write_event(vesk_current_buffer *cbuf,
                                             const vesk_cb_record_event *event);

/**
 * Appends an event as a record with its type, which readers take like any other, full buffer or
 * not, and flushes. It does not count as a vector.
 *
 * Nothing is written unless the event can be read back and counted in the history, and unless the
 * buffer holds a vector already: the first record of a file must name the sensors, or the file does
 * not open. An event that comes earlier is to be kept until the next vector was written.
 *
 * @p event stays the caller's.
 *
 * Aborts with "event != ((void *)0)" or "event->version == ((char) 1)". A stream that zlib itself
 * refused (QE_ERROR_COMPRESSION (-42)) aborts on its next use with "zwriter->err == 0".
 *
 * @return 0 when the event is with the operating system. Before a byte is written:
 * QE_ERROR_MALFORMED (-6) the type is not 1 to 5, the time is null or cannot be stored, or there is
 * no text; QE_ERROR_LIMIT (-49) the text has more than 10000 bytes; QE_ERROR_UNKNOWN_KIND (-4) the
 * buffer holds no vector yet. Later: QE_ERROR_IO (-41) the file takes no more; QE_ERROR_COMPRESSION
 * (-42) compression failed.
 */
VESK_API int vesk_current_buffer_write_tagged_event(vesk_current_buffer *cbuf,
                                                    const vesk_cb_record_event *event);

/**
 * Reads the next record into @p rec, which must be initialised and may hold the record before.
 *
 * Sensor names become the working set of the buffer: @p rec shows them, but they stay the buffer's
 * and live until the next names are read. Values and events belong to @p rec. Values are counted in
 * `num_data_records`.
 *
 * Aborts with "cbuf->reader != ((void *)0)" on a buffer that was created or written to, and with
 * "reader_eof (cbuf->reader)" when the file cannot be read. A file that ends right behind the
 * length of a string aborts with "nread != 0".
 *
 * @return 0; QE_ERROR_END_OF_RECORDS (-43) at the end of the records, also when the file ends just
 * where a sensor's name should begin; QE_ERROR_TRUNCATED (-48) the file ends inside the record;
 * QE_ERROR_MALFORMED (-6) unknown record type or malformed content; QE_ERROR_BAD_VERSION (-12)
 * unknown version; QE_ERROR_LIMIT (-49) a stored count is out of range; QE_ERROR_IO (-41) the
 * compressed data are damaged, after which nothing more can be read; QE_ERROR_NO_MEMORY (-22) no
 * memory.
 */
VESK_API int vesk_current_buffer_read_record(vesk_current_buffer *cbuf, vesk_cb_record *rec);

/** @return the path of the file; it stays the buffer's. */
VESK_API const char *vesk_current_buffer_get_filename(const vesk_current_buffer *cbuf);

/** @return the latest sensor names written or read, or null; they stay the buffer's. */
VESK_API vesk_cb_record_sensor_names *
vesk_current_buffer_get_sensor_working_set(const vesk_current_buffer *cbuf);

/**
 * Finishes and closes the file, frees the buffer and sets the caller's pointer to null.
 *
 * Aborts with "*cbuf != ((void *)0)", "(*cbuf)->filename != ((void *)0)" or
 * "(*cbuf)->writer != ((void *)0)".
 */
VESK_API void vesk_current_buffer_close(vesk_current_buffer **cbuf);

/**
 * Writes the header: version and capacity, 5 bytes.
 *
 * @return the sum of what @p writer reported, or its first negative result.
 */
VESK_API int binary_serializer_write_vesk_current_buffer(const vesk_current_buffer *cbuf,
                                                         writer *writer);

/**
 * Reads the header into @p cbuf. The capacity is stored before it is judged.
 *
 * @return 5; 0 when the data end before the header; QE_ERROR_TRUNCATED (-48) when they end inside
 * it; QE_ERROR_BAD_VERSION (-12) unknown version; QE_ERROR_MALFORMED (-6) a capacity of 0 or an odd
 * one; or the negative result of @p reader.
 */
VESK_API int binary_serializer_read_vesk_current_buffer(vesk_current_buffer *cbuf, reader *reader);

#ifdef __cplusplus
}
#endif

#endif
