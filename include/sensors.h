#ifndef VESK_SENSORS_H
#define VESK_SENSORS_H

#include "sensor.h"
#include "vesk_api.h"

#ifdef __cplusplus
extern "C" {
#endif

VESK_API sensor *sensors_get_sensor(const char *name);
VESK_API void sensors_destroy_sensor(sensor *sensor);

#ifdef __cplusplus
}
#endif

#endif
