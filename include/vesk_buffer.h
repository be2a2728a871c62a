/**
 * @file
 * @brief A handle on either kind of buffer file.
 *
 * Every buffer file begins with a 4-byte kind, so that a file can be opened without knowing whether
 * it holds raw samples (vesk_current_buffer.h) or summarised intervals (vesk_hist_buffer.h).
 *
 * A file is a sequence of complete zlib streams, one for each write that was acknowledged; what
 * they decompress to is one run of bytes:
 *
 * | offset | size | field |
 * |---|---|---|
 * | 0 | 4 | kind: 1 current buffer, 2 history buffer |
 * | 4 | 1 | version of the header, 1 |
 * | 5 | 4 | capacity in sensor-values records, even and not 0 |
 * | 9 | | records |
 *
 * Nothing locks a file: one that somebody writes to must not be opened a second time.
 */
#ifndef VESK_BUFFER_H
#define VESK_BUFFER_H

#include <stdint.h>

#include "vesk_api.h"
#include "writer.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct vesk_current_buffer vesk_current_buffer;
typedef struct vesk_hist_buffer vesk_hist_buffer;

/** Kinds of buffer file, as stored and in vesk_buffer::type. */
enum {
    VESK_BUFFER_TYPE_CURRENT = 1, /**< raw samples */
    VESK_BUFFER_TYPE_HIST = 2     /**< summarised intervals */
};

/** A buffer of either kind. */
typedef struct vesk_buffer {
    uint32_t type; /**< VESK_BUFFER_TYPE_CURRENT or VESK_BUFFER_TYPE_HIST, 0 for none */
    union {
        void *data;                /**< the buffer, whatever its kind */
        vesk_current_buffer *cbuf; /**< the buffer of type VESK_BUFFER_TYPE_CURRENT */
        vesk_hist_buffer *hbuf;    /**< the buffer of type VESK_BUFFER_TYPE_HIST */
    };
    uint32_t owns_data; /**< 1 when destructing the handle closes the buffer */
} vesk_buffer;

/** Makes @p buf a handle on no buffer. @return 0. */
VESK_API int vesk_buffer_init_null(vesk_buffer *buf);

/** Makes @p buf a handle on @p cbuf, which stays the caller's. @return 0. */
VESK_API int vesk_buffer_init_current_buffer(vesk_buffer *buf, vesk_current_buffer *cbuf);

/** Makes @p buf a handle on @p hbuf, which stays the caller's. @return 0. */
VESK_API int vesk_buffer_init_hist_buffer(vesk_buffer *buf, vesk_hist_buffer *hbuf);

/**
 * Closes the buffer if the handle owns it, and makes the handle one on no buffer.
 *
 * Aborts with "0" when the handle owns a buffer of unknown type.
 */
VESK_API void vesk_buffer_destruct(vesk_buffer *buf);

/** As vesk_buffer_destruct(), then frees the handle and sets the caller's pointer to null. */
VESK_API void vesk_buffer_destroy(vesk_buffer **buf);

/**
 * Makes the buffer the caller's: destructing the handle no longer closes it. The handle still shows
 * the buffer.
 *
 * Aborts with "rec->type > 0" or "rec->data != ((void *)0)" on a handle on no buffer.
 */
VESK_API void vesk_buffer_detach(vesk_buffer *rec);

/**
 * Opens the file @p path for reading, and for appending once it is read to its end.
 *
 * Its first record has then been read: it must name sensors and is the working set of the buffer. A
 * file without records is fine. The file must be readable and writable. One that ends right behind
 * the length of a string aborts with "nread != 0".
 *
 * @return a handle that owns the buffer, to be released with vesk_buffer_destroy(). Null on failure
 * with, in the last-error cell: QE_ERROR_OPEN (-40) the file cannot be opened; QE_ERROR_TRUNCATED
 * (-48) it is shorter than the kind, or ends inside the first record; QE_ERROR_UNKNOWN_KIND (-4)
 * the kind is unknown, or the first record names no sensors; QE_ERROR_IO (-41) the compressed data
 * are damaged, or the header cannot be read or states a capacity of 0 or an odd one;
 * QE_ERROR_MALFORMED (-6), QE_ERROR_BAD_VERSION (-12) or QE_ERROR_LIMIT (-49) the first record is
 * malformed; QE_ERROR_NO_MEMORY (-22) no memory.
 */
VESK_API vesk_buffer *vesk_buffer_open_for_read_write(const char *path);

/**
 * Writes the kind and the header of the buffer, 9 bytes.
 *
 * Aborts with "0" on a handle on no buffer.
 *
 * @return the sum of what @p writer reported, or its first negative result.
 */
VESK_API int binary_serializer_write_vesk_buffer(const vesk_buffer *buf, writer *writer);

#ifdef __cplusplus
}
#endif

#endif
