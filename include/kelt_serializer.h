#ifndef VESK_KELT_SERIALIZER_H
#define VESK_KELT_SERIALIZER_H

#include "matrix.h"
#include "vesk_api.h"
#include "writer.h"

#ifdef __cplusplus
extern "C" {
#endif

VESK_API int kelt_serializer_write_matrix(matrix *m, writer *writer);

#ifdef __cplusplus
}
#endif

#endif
