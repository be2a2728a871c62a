/**
 * @file
 * @brief A decompressing reader that knows the last savepoint it passed.
 *
 * It reads a sequence of zlib streams, as zlib_writer.h makes it, as if it were one.
 */
#ifndef VESK_ZLIB_READER_H
#define VESK_ZLIB_READER_H

#include <stdint.h>

#include "reader.h"
#include "vesk_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Makes @p r decompress what @p reader_base yields. It takes @p reader_base over.
 *
 * A read returns the bytes produced, fewer than wanted only where the source ends, be it in the
 * middle of a stream. Codes of the source are returned unchanged. Data that is not compressed data,
 * or is damaged, gives QE_ERROR_IO (-41), and so does a lack of memory: the reader is then dead,
 * and reading on aborts with "zreader->err == 0". Damage is noticed where zlib meets it, which may
 * be after some of the damaged bytes were handed out, at the latest at the end of their stream.
 *
 * reader_eof() is false while compressed input is left or the last read was filled; so it becomes
 * true only by a read that comes back short.
 *
 * A source that yields nothing without being at its end aborts with "reader_eof (zreader->reader)".
 *
 * @return 0, or QE_ERROR_NO_MEMORY (-22) without memory; then @p reader_base stays the caller's.
 *
 * Aborts with "r != ((void *)0)" or "reader_base != ((void *)0)".
 */
VESK_API int zlib_reader_init(reader *r, reader *reader_base);

/** @return a new reader, see zlib_reader_init(); null with QE_ERROR_NO_MEMORY (-22) without memory,
 * and @p reader_base stays the caller's. */
VESK_API reader *zlib_reader_create(reader *reader_base);

/**
 * A stream is complete when its checksum was read, which may take one read more than its content.
 *
 * Aborts with "reader != ((void *)0)", "reader->version == ((char) 1)", or
 * "reader->type == READER_TYPE_ZLIB" on another kind of reader.
 *
 * @return the compressed bytes, counted from where @p reader began, up to the end of the last
 * complete zlib stream that was read, modulo 2^32; 0 before the first.
 */
VESK_API uint32_t zlib_reader_get_last_savepoint(const reader *reader);

#ifdef __cplusplus
}
#endif

#endif
