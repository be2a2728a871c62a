/**
 * @file
 * @brief Telemetry as comma-separated text.
 *
 *     20070101:00:00:00,::SENSOR0,::SENSOR1
 *     20070101:00:00:00,1.000,2.000
 *     20070101:00:00:01,3.000,4.000
 *
 * A header names the sensors, then each row is a line of its timestamp, in local time, and a value
 * per sensor with three decimals. The header begins with the timestamp of the first row. Names of
 * 256 characters or more are cut off at 255. kelt_reader.h reads this form.
 *
 * Numbers have the decimal point of the process's locale. Where that is a comma, it cannot be told
 * from the one between two values, and the text cannot be read back: LC_NUMERIC has to be a locale
 * with a point, such as the "C" that a process begins with.
 */
#ifndef VESK_KELT_SERIALIZER_H
#define VESK_KELT_SERIALIZER_H

#include "matrix.h"
#include "vesk_api.h"
#include "writer.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Writes a matrix of any type through @p writer, which is one of kelt_writer.h. A header is written
 * when the sensors are not those of the latest header of that writer.
 *
 * A regular or transposed matrix is written with sensors "::SENSOR0", "::SENSOR1" and so on, and
 * with timestamps one second apart from 20070101:00:00:00 on. This enables direct access to it, and
 * so turns a view into a regular matrix, see matrix_enable_direct_access(); its values stay.
 *
 * Aborts with "m != ((void *)0)"; with "m->type > 0" on a null record; with
 * "m->version == ((char) 1)" on one that is not live; with
 * "writer->type == WRITER_TYPE_KELT" on any other writer; with "nbytes <= sizeof (line)" on a line
 * of more than 32768 characters; with "0" on an unknown type of matrix.
 *
 * @return the bytes written, the first negative result of @p writer, or QE_ERROR_NO_MEMORY (-22)
 * without memory. What was written stays in the stream.
 */
VESK_API int kelt_serializer_write_matrix(matrix *m, writer *writer);

#ifdef __cplusplus
}
#endif

#endif
