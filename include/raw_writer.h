/**
 * @file
 * @brief A writer to a file.
 */
#ifndef VESK_RAW_WRITER_H
#define VESK_RAW_WRITER_H

#include <stdint.h>
#include <stdio.h>

#include "vesk_api.h"
#include "writer.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Makes @p writer write to the stdio stream @p fp, from where it stands.
 *
 * Every write is handed to the operating system at once and returns the bytes taken, or QE_ERROR_IO
 * (-41) when not all of them were: on a full device, a part of them may then be in the file. The
 * writer stays usable after that. A flush returns 0.
 *
 * @param flags bit 0 set: @p fp stays the caller's. Otherwise destroying the writer closes it.
 * @return 0, or QE_ERROR_NO_MEMORY (-22) without memory; then @p fp stays open and the caller's.
 *
 * Aborts with "fp != ((void *)0)".
 */
VESK_API int raw_writer_init(writer *writer, FILE *fp, uint32_t flags);

/** As raw_writer_init(), allocated. @return null without memory, with QE_ERROR_NO_MEMORY (-22) in
 * the cell. */
VESK_API writer *raw_writer_create(FILE *fp, uint32_t flags);

#ifdef __cplusplus
}
#endif

#endif
