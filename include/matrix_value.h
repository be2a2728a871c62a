#ifndef VESK_MATRIX_VALUE_H
#define VESK_MATRIX_VALUE_H

#include "vesk_api.h"

#ifdef __cplusplus
extern "C" {
#endif

VESK_API double matrix_value_max(double a, double b);
VESK_API double matrix_value_min(double a, double b);
VESK_API int matrix_value_compare(double a, double b);
VESK_API int matrix_value_is_equal(double a, double b);
VESK_API double matrix_value_from_string(const char *str);
VESK_API double matrix_value_unit_roundoff(void);

#ifdef __cplusplus
}
#endif

#endif
