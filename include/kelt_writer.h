#ifndef VESK_KELT_WRITER_H
#define VESK_KELT_WRITER_H

#include "sensor_array.h"
#include "vesk_api.h"
#include "writer.h"

#ifdef __cplusplus
extern "C" {
#endif

VESK_API int kelt_writer_init(writer *writer_base, writer *inner);
VESK_API writer *kelt_writer_create(writer *inner);
VESK_API int kelt_writer_have_sensors_changed(writer *writer, const sensor_array *sensors);

#ifdef __cplusplus
}
#endif

#endif
