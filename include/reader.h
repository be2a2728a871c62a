/**
 * @file
 * @brief A source of bytes.
 *
 * 1. A reader is made by its implementation: raw_reader.h (files), zlib_reader.h (compressed data),
 *    garbage_reader.h (damaged data). Everybody else uses the four functions below.
 * 2. A reader owns its implementation object, and the implementation owns what it reads from.
 * 3. A short count is no error here. Who needs exactly n bytes uses binary_serializer_read_bytes().
 * 4. Callers may bring implementations of their own: fill in all fields of ::reader, with
 *    @c version 1, a @c type above 0 and an implementation object from malloc().
 */
#ifndef VESK_READER_H
#define VESK_READER_H

#include <stdint.h>

#include "vesk_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/** What a reader reads from. */
enum {
    READER_TYPE_RAW = 1,    /**< a file */
    READER_TYPE_ZLIB = 2,   /**< compressed data of another reader */
    READER_TYPE_GARBAGE = 3 /**< another reader, damaged on purpose */
};

/** A source of bytes. */
typedef struct reader {
    char version;  /**< 1 while live, 0 after reader_destruct() */
    uint32_t type; /**< one of READER_TYPE_RAW and so on */
    void *reader;  /**< the implementation object, from malloc(), owned */
    /** Releases what the implementation object holds, not the object itself. */
    int (*fn_destruct)(void *reader);
    /** Reads up to @p n bytes; returns their count or a negative code. */
    int (*fn_read_bytes)(void *reader, void *buffer, uint32_t n);
    /** Nonzero at the end of the input. */
    int (*fn_eof)(void *reader);
} reader;

/**
 * Releases everything that @p reader holds. The reader is marked dead before its implementation
 * goes. Does not free @p reader itself.
 *
 * Aborts with "reader->version == ((char) 1)" or "reader->fn_destruct != ((void *)0)".
 */
VESK_API void reader_destruct(reader *reader);

/** Destructs and frees @p *reader and sets it to null. */
VESK_API void reader_destroy(reader **reader);

/**
 * Reads up to @p n bytes (below 2^31) into @p buf.
 *
 * @return the number of bytes read, 0 at the end of the input, or a negative code of the
 * implementation.
 *
 * Aborts with "reader->version == ((char) 1)", "reader->fn_read_bytes != ((void *)0)" or
 * "buf != ((void *)0)".
 */
VESK_API int reader_read_bytes(reader *reader, void *buf, uint32_t n);

/** @return nonzero at the end of the input; a file knows that only after a read hit its end. */
VESK_API int reader_eof(reader *reader);

#ifdef __cplusplus
}
#endif

#endif
