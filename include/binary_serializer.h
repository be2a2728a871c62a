/**
 * @file
 * @brief The stored forms of matrices.
 *
 * A matrix is stored as version 1 (1 byte), its type (4 bytes) and a body. The body begins with
 * another version 1; then follow, for a regular matrix, the numbers of rows and columns (4 bytes
 * each) and the values row by row (8 bytes each); for a transposed one, the matrix that it shows;
 * for a telemetry matrix, the matrix of its values, its sensors and its timestamps.
 *
 * Forms nest without a limit, as matrices do: a file from an untrusted source can exhaust the stack
 * of its reader.
 */
#ifndef VESK_BINARY_SERIALIZER_H
#define VESK_BINARY_SERIALIZER_H

#include "matrix.h"
#include "reader.h"
#include "vesk_api.h"
#include "writer.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Writes a matrix of any type.
 *
 * Aborts with "m != ((void *)0)", "m->version == 1", "m->type > 0" or, on a matrix without its
 * type-specific object, "m->matrix != ((void *)0)".
 *
 * @return the bytes written; QE_ERROR_LIMIT (-49) for a regular matrix of more than 10000 rows or
 * columns, of which six bytes are then written; or the first negative result of a part. What was
 * written stays in the stream.
 */
VESK_API int binary_serializer_write_matrix(const matrix *m, writer *writer);

/**
 * Reads a matrix of any type into @p m, a null record. After a failure @p m may be partly filled
 * and can only be destructed.
 *
 * Aborts with "m != ((void *)0)", "m->version == 1" or "m->matrix == ((void *)0)".
 *
 * @return the bytes read; 0 at the end of the data; QE_ERROR_BAD_VERSION (-12) for an unknown
 * version; QE_ERROR_MALFORMED (-6) for an unknown type, for a number of rows or columns
 * outside 1..10000, and for sensors or timestamps that are more or fewer than the columns or rows;
 * QE_ERROR_TRUNCATED (-48) when the data end inside the form; QE_ERROR_NO_MEMORY (-22) without
 * memory; or the failure of a part.
 */
VESK_API int binary_serializer_read_matrix(matrix *m, reader *reader);

/**
 * Writes a byte 1 and a matrix, or a byte 0 when @p m is null.
 *
 * @return the bytes written, or a failure as of binary_serializer_write_matrix().
 */
VESK_API int binary_serializer_write_optional_matrix(const matrix *m, writer *writer);

/**
 * Reads what binary_serializer_write_optional_matrix() wrote, and stores a new matrix, or null when
 * there is none, in `*m`. After a failure `*m` is null.
 *
 * @return the bytes read; 0 at the end of the data; QE_ERROR_MALFORMED (-6) for a first byte above
 * 1; QE_ERROR_TRUNCATED (-48) when the data end behind it; or a failure as of
 * binary_serializer_read_matrix().
 */
VESK_API int binary_serializer_read_optional_matrix(matrix **m, reader *reader);

#ifdef __cplusplus
}
#endif

#endif
