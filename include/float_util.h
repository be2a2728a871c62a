#ifndef VESK_FLOAT_UTIL_H
#define VESK_FLOAT_UTIL_H

#include "vesk_api.h"

#ifdef __cplusplus
extern "C" {
#endif

VESK_API double float_epsilon(void);
VESK_API int float_compare(float a, float b);
VESK_API int float_is_equal(float a, float b);

#ifdef __cplusplus
}
#endif

#endif
