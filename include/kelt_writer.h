/**
 * @file
 * @brief A writer for telemetry as text, see kelt_serializer.h.
 *
 * It passes on what is written to it, and remembers which sensors the latest header named.
 * Telemetry that is written through one such writer makes one file, with a header wherever the
 * sensors change.
 */
#ifndef VESK_KELT_WRITER_H
#define VESK_KELT_WRITER_H

#include "sensor_array.h"
#include "vesk_api.h"
#include "writer.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Makes @p writer_base a writer of type `WRITER_TYPE_KELT` that writes to @p inner. It takes over
 * @p inner, and flushes and destroys it with itself.
 *
 * Aborts with "writer_base != ((void *)0)" or "inner != ((void *)0)".
 *
 * @return 0, or QE_ERROR_NO_MEMORY (-22) without memory; @p inner then stays the caller's.
 */
VESK_API int kelt_writer_init(writer *writer_base, writer *inner);

/** @return a new writer, see kelt_writer_init(); null with QE_ERROR_NO_MEMORY (-22) without memory,
 * and @p inner stays the caller's. */
VESK_API writer *kelt_writer_create(writer *inner);

/**
 * Compares @p sensors with those of the latest header, and remembers a copy of them if they differ.
 *
 * Aborts with "writer != ((void *)0)", "writer->version == ((char) 1)" or "sensors != ((void *)0)",
 * and with "writer->type == WRITER_TYPE_KELT" on any other writer.
 *
 * @return 1 when they differ, or there was no header yet; 0 when they are equal; QE_ERROR_NO_MEMORY
 * (-22) without memory, and nothing is then remembered.
 */
VESK_API int kelt_writer_have_sensors_changed(writer *writer, const sensor_array *sensors);

#ifdef __cplusplus
}
#endif

#endif
