/**
 * @file
 * @brief A reader of a file.
 */
#ifndef VESK_RAW_READER_H
#define VESK_RAW_READER_H

#include <stdint.h>
#include <stdio.h>

#include "reader.h"
#include "vesk_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Makes @p reader read from the stdio stream @p fp, from where it stands.
 *
 * A read returns what fread() gives: fewer bytes than wanted at the end of the file, and 0 at the
 * end. A read error also looks like that, but reader_eof() stays false. As always with stdio,
 * reader_eof() becomes true when a read hits the end, not when the position gets there.
 *
 * @param flags bit 0 set: @p fp stays the caller's. Otherwise destroying the reader closes it.
 * @return 0, or QE_ERROR_NO_MEMORY (-22) without memory; then @p fp stays open and the caller's.
 *
 * Aborts with "fp != ((void *)0)".
 */
VESK_API int raw_reader_init(reader *reader, FILE *fp, uint32_t flags);

/** As raw_reader_init(), allocated. @return null without memory, with QE_ERROR_NO_MEMORY (-22) in
 * the cell. */
VESK_API reader *raw_reader_create(FILE *fp, uint32_t flags);

#ifdef __cplusplus
}
#endif

#endif
