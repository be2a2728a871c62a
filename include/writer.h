/**
 * @file
 * @brief A sink of bytes.
 *
 * 1. A writer is made by its implementation: raw_writer.h (files), zlib_writer.h (compression),
 *    kelt_writer.h (text telemetry). Everybody else uses the four functions below.
 * 2. A writer owns its implementation object, and the implementation owns what it writes to.
 * 3. What a write returns counts what the implementation says: a raw writer counts the bytes taken,
 *    a compressing writer the compressed bytes that it passed on, which is mostly 0. So a result is
 *    tested for being negative, never for being n.
 * 4. Callers may bring implementations of their own: fill in all fields of ::writer, with
 *    @c version 1, a @c type above 0 and an implementation object from malloc().
 */
#ifndef VESK_WRITER_H
#define VESK_WRITER_H

#include <stdint.h>

#include "vesk_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/** What a writer writes to. */
enum {
    WRITER_TYPE_RAW = 1,  /**< a file */
    WRITER_TYPE_ZLIB = 2, /**< another writer, compressed */
    WRITER_TYPE_KELT = 3  /**< another writer, as text telemetry */
};

/** A sink of bytes. */
typedef struct writer {
    char version;  /**< 1 while live, 0 after writer_destruct() */
    uint32_t type; /**< one of WRITER_TYPE_RAW and so on */
    void *writer;  /**< the implementation object, from malloc(), owned */
    /** Releases what the implementation object holds, not the object itself. */
    int (*fn_destruct)(void *writer);
    /** Takes @p n bytes; returns a count of bytes or a negative code. */
    int (*fn_write_bytes)(void *writer, const void *buffer, uint32_t n);
    /** Passes on what is buffered; returns a count of bytes or a negative code. */
    int (*fn_flush)(void *writer);
} writer;

/**
 * Passes on what is still buffered and releases everything that @p writer holds. The writer is
 * marked dead before its implementation goes. Does not free @p writer itself. A failure to pass on
 * the rest goes unnoticed: who must know calls writer_flush() first.
 *
 * Aborts with "writer->version == ((char) 1)", "writer->fn_destruct != ((void *)0)" or
 * "writer->writer != ((void *)0)".
 */
VESK_API void writer_destruct(writer *writer);

/** Destructs and frees @p *writer and sets it to null. */
VESK_API void writer_destroy(writer **writer);

/**
 * Writes the @p n bytes (below 2^31) at @p buf.
 *
 * @return a count of bytes, see above, or a negative code of the implementation.
 *
 * Aborts with "writer->version == ((char) 1)", "writer->fn_write_bytes != ((void *)0)",
 * "writer->writer != ((void *)0)" or "buf != ((void *)0)".
 */
VESK_API int writer_write_bytes(writer *writer, const void *buf, uint32_t n);

/**
 * Passes on what is buffered.
 *
 * @return the result of the implementation: a negative code on failure.
 *
 * Aborts with "writer->version == ((char) 1)", "writer->fn_flush != ((void *)0)" or
 * "writer->writer != ((void *)0)".
 */
VESK_API int writer_flush(writer *writer);

#ifdef __cplusplus
}
#endif

#endif
