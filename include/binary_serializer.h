#ifndef VESK_BINARY_SERIALIZER_H
#define VESK_BINARY_SERIALIZER_H

#include "matrix.h"
#include "reader.h"
#include "vesk_api.h"
#include "writer.h"

#ifdef __cplusplus
extern "C" {
#endif

VESK_API int binary_serializer_write_matrix(const matrix *m, writer *writer);
VESK_API int binary_serializer_read_matrix(matrix *m, reader *reader);
VESK_API int binary_serializer_write_optional_matrix(const matrix *m, writer *writer);
VESK_API int binary_serializer_read_optional_matrix(matrix **m, reader *reader);

#ifdef __cplusplus
}
#endif

#endif
