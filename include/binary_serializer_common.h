/**
 * @file
 * @brief The primitive stored forms: bytes, strings and numbers.
 *
 * The forms of the other types are built from these and declared in the headers of their types.
 */
#ifndef VESK_BINARY_SERIALIZER_COMMON_H
#define VESK_BINARY_SERIALIZER_COMMON_H

#include <stdint.h>

#include "reader.h"
#include "vesk_api.h"
#include "writer.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Reads exactly @p buflen bytes.
 *
 * @return @p buflen, 0 when the data ended before the first byte, -48 when it ended later, or the
 * reader's code.
 *
 * Aborts with "buffer != ((void *)0)" or "buflen > 0".
 */
VESK_API int binary_serializer_read_bytes(void *buffer, uint32_t buflen, reader *reader);

/**
 * Writes the length of @p str (4 bytes) and its bytes without the terminator. An empty string can
 * be written, but not read back.
 *
 * @return the sum of what the writer reported (4 + length on a raw writer), its code, or -49 when
 * the string is longer than 10000 bytes; then nothing was written.
 */
VESK_API int binary_serializer_write_string(const char *str, writer *writer);

/**
 * Reads a string.
 *
 * @param[out] nread the bytes consumed, 0 on failure; may be null.
 * @return the string, which the caller frees, or null with a code in the cell: -43 when the data
 * ended before the length, -48 when it ended inside the length or the text, -6 for a length outside
 * 1..10000 or a text with a NUL byte, -22 without memory, or the reader's code.
 *
 * Aborts with "nread != 0" when the data ends exactly between length and text, and with
 * "reader_eof (reader)" when the reader yields nothing without being at its end.
 */
VESK_API char *binary_serializer_read_string(reader *reader, int *nread);

/** Host order to stored order (big-endian), by bits. The result is to be stored, not computed with.
 */
VESK_API float hton_float(float f);

/** Stored order to host order. */
VESK_API float ntoh_float(float f);

/** Host order to stored order (big-endian), by bits. The result is to be stored, not computed with.
 */
VESK_API double hton_double(double d);

/** Stored order to host order. */
VESK_API double ntoh_double(double d);

#ifdef __cplusplus
}
#endif

#endif
