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
 * @return @p buflen, 0 when the data ended before the first byte, QE_ERROR_TRUNCATED (-48) when it
 * ended later, or the reader's code.
 *
 * Aborts with "buffer != ((void *)0)" or "buflen > 0".
 */
VESK_API int binary_serializer_read_bytes(void *buffer, uint32_t buflen, reader *reader);

/**
 * Writes the length of @p str (4 bytes) and its bytes without the terminator. An empty string can
 * be written, but not read back.
 *
 * @return the sum of what the writer reported (4 + length on a raw writer), its code, or
 * QE_ERROR_LIMIT (-49) when the string is longer than 10000 bytes; then nothing was written.
 */
VESK_API int binary_serializer_write_string(const char *str, writer *writer);

/**
 * Reads a string.
 *
 * @param[out] nread the bytes consumed, 0 on failure; may be null.
 * @return the string, which the caller frees, or null with a code in the cell:
 * QE_ERROR_END_OF_RECORDS (-43) when the data ended before the length, QE_ERROR_TRUNCATED (-48)
 * when it ended inside the length or the text, QE_ERROR_MALFORMED (-6) for a length outside
 * 1..10000 or a text with a NUL byte, QE_ERROR_NO_MEMORY (-22) without memory, or the reader's
 * code.
 *
 * Aborts with "nread != 0" when the data ends exactly between length and text, and with
 * "reader_eof (reader)" when the reader yields nothing without being at its end.
 */
VESK_API char *binary_serializer_read_string(reader *reader, int *nread);

/**
 * Host order to stored order (big-endian), by bits. The result is to be stored, not computed with.
 *
 * Where the processor hands floats over in registers that quiet signalling NaNs, as 32-bit x86
 * does, a result or an argument that happens to look like one loses a bit, whatever this function
 * does: one number in some hundreds comes out wrong. The library itself turns numbers round as
 * integers.
 */
VESK_API float hton_float(float f);

/** Stored order to host order, with the limit of hton_float(). */
VESK_API float ntoh_float(float f);

/** As hton_float(), and with the same limit. */
VESK_API double hton_double(double d);

/** Stored order to host order, with the limit of hton_float(). */
VESK_API double ntoh_double(double d);

#ifdef __cplusplus
}
#endif

#endif
