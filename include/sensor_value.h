#ifndef VESK_SENSOR_VALUE_H
#define VESK_SENSOR_VALUE_H

#include "vesk_api.h"

#ifdef __cplusplus
extern "C" {
#endif

VESK_API int sensor_value_compare(float a, float b);
VESK_API int sensor_value_is_equal(float a, float b);
VESK_API int sensor_value_is_valid(float v);
VESK_API float sensor_value_from_string(const char *str);
VESK_API double sensor_value_to_double(float v);

VESK_API extern float _qe_invalid_sensor_value;

#ifdef __cplusplus
}
#endif

#endif
