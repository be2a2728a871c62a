/**
 * @file
 * @brief A reader for telemetry as text, one vector at a time.
 *
 * The form is that of kelt_serializer.h: lines of fields with commas between them. A header line
 * names the sensors of the data lines that follow. The first line of a file is a header, and every
 * later one replaces the sensors.
 *
 * - A line is at most 65535 characters long with its end; what is left of a longer one is taken for
 *   another line. "\r" before the end of a line is tolerated.
 * - Fields are never empty: two commas in a row count as one.
 * - A data line is a timestamp in local time, and a value for each sensor, as atof() reads it,
 *   rounded to single precision.
 * - A line is a header when something other than digits and ",-./:" stands in it, and one of these
 *   words occurs from there on: SSC ssc SB sb Temp temp PS ps VDC vdc N0 n0 CORE core CPU cpu DISK
 *   disk READ read WRITE write IDLE idle V_ v_ T_ t_ POWER power PACKET packet. It also is one when
 *   "::" stands right before that place, as in "::SENSOR0".
 */
#ifndef VESK_KELT_READER_H
#define VESK_KELT_READER_H

#include <stdint.h>
#include <stdio.h>

#include "matrix.h"
#include "sensor_array.h"
#include "vesk_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/** An open text file of telemetry. */
typedef struct kelt_reader {
    FILE *fp;       /**< the file */
    int owns_fp;    /**< 1 when closing the reader closes the file */
    matrix *vector; /**< the sensors of the latest header with the latest values; null after a
                       header that could not be taken */
} kelt_reader;

/**
 * Opens a file and reads its header.
 *
 * Aborts with "path != ((void *)0)", or as kelt_reader_open_from_fp() does.
 *
 * @return the reader, to be released with kelt_reader_close(). Null on failure with, in the
 * last-error cell: QE_ERROR_OPEN (-40) the file cannot be opened; or as kelt_reader_open_from_fp().
 */
VESK_API kelt_reader *kelt_reader_open(const char *path);

/**
 * Reads the header from @p fp, which stays the caller's.
 *
 * Aborts with "fp != ((void *)0)", or with "p >= line + 18" as
 * kelt_reader_get_next_telemetry_vector() does.
 *
 * @return the reader, to be released with kelt_reader_close(). Null on failure with, in the
 * last-error cell: QE_ERROR_NOT_FULL (-44) no line can be read; QE_ERROR_MALFORMED (-6) the first
 * line is not a header, or names no sensor; QE_ERROR_NO_MEMORY (-22) no memory.
 */
VESK_API kelt_reader *kelt_reader_open_from_fp(FILE *fp);

/** Closes the file, if the reader opened it, frees the reader and sets `*reader` to null. Aborts
 * with "reader != ((void *)0)" or "*reader != ((void *)0)". */
VESK_API void kelt_reader_close(kelt_reader **reader);

/**
 * Reads the next line of data, past the headers in front of it.
 *
 * Aborts with "reader != ((void *)0)"; with "nvalues == nsensors" on a line with fewer values than
 * sensors; with "p >= line + 18" on a line that has something other than digits and ",-./:" in its
 * first 18 characters; with "feof (kelt->fp)" when the file cannot be read; with
 * "kelt->vector != ((void *)0)" after a header that could not be taken.
 *
 * @return a telemetry vector, which stays the reader's and is overwritten by the next call. Null at
 * the end of the file, without a code, and null on failure with, in the last-error cell:
 * QE_ERROR_MALFORMED (-6) an empty line, a line with more values than sensors, or a header without
 * sensors; QE_ERROR_BAD_TIME (-11) a malformed timestamp; QE_ERROR_NO_MEMORY (-22) no memory.
 */
VESK_API matrix *kelt_reader_get_next_telemetry_vector(kelt_reader *reader);

/**
 * Aborts with "kelt != ((void *)0)", or with "kelt->vector != ((void *)0)" after a header that
 * could not be taken.
 *
 * @return the number of sensors of the latest header.
 */
VESK_API uint32_t kelt_reader_get_number_sensors(const kelt_reader *kelt);

/**
 * Aborts with "kelt != ((void *)0)", or with "kelt->vector != ((void *)0)" after a header that
 * could not be taken.
 *
 * @return the sensors of the latest header, which stay the reader's.
 */
VESK_API sensor_array *kelt_reader_get_sensors(const kelt_reader *kelt);

#ifdef __cplusplus
}
#endif

#endif
