#ifndef VESK_DOUBLE_UTIL_H
#define VESK_DOUBLE_UTIL_H

#include "vesk_api.h"

#ifdef __cplusplus
extern "C" {
#endif

VESK_API double double_epsilon(void);
VESK_API double double_min(void);
VESK_API double double_max(void);
VESK_API int double_compare(double a, double b);
VESK_API int double_is_equal(double a, double b);

#ifdef __cplusplus
}
#endif

#endif
