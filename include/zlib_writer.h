/**
 * @file
 * @brief A compressing writer whose every flush is a savepoint.
 *
 * The output is a sequence of complete zlib streams (RFC 1950), one for every flush that had
 * something to write. The end of each is a savepoint: the data up to there can be read back
 * whatever happens to the rest.
 */
#ifndef VESK_ZLIB_WRITER_H
#define VESK_ZLIB_WRITER_H

#include "vesk_api.h"
#include "writer.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Makes @p w compress what is written to it into @p writer_base, which it takes over.
 *
 * Input is buffered in blocks of 2048 bytes. A write returns the compressed bytes that it passed
 * on, 0 when everything was buffered. A flush ends the zlib stream; with nothing buffered it does
 * nothing and returns 0.
 *
 * When @p writer_base fails, its code is returned and the current stream is torn: what was
 * buffered is lost, and the next write begins a new stream behind what did get out. When zlib
 * fails, the result is QE_ERROR_COMPRESSION (-42) and the writer is dead: to flush it, to destroy
 * it or to write more than its buffer holds aborts with "zwriter->err == 0".
 *
 * Destroying the writer flushes it first and destroys @p writer_base. Whether that flush failed is
 * not told: who must know calls writer_flush() before.
 *
 * @return 0, or QE_ERROR_NO_MEMORY (-22) without memory; then @p writer_base stays the caller's.
 *
 * Aborts with "w != ((void *)0)" or "writer_base != ((void *)0)".
 */
VESK_API int zlib_writer_init(writer *w, writer *writer_base);

/** @return a new writer, see zlib_writer_init(); null with QE_ERROR_NO_MEMORY (-22) without memory,
 * and @p writer_base stays the caller's. */
VESK_API writer *zlib_writer_create(writer *writer_base);

#ifdef __cplusplus
}
#endif

#endif
