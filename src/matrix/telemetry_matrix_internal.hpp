// The type-specific object of a telemetry matrix: its values and its labels, for those who store
// and print it. Not exported.
#ifndef VESK_MATRIX_TELEMETRY_MATRIX_INTERNAL_HPP
#define VESK_MATRIX_TELEMETRY_MATRIX_INTERNAL_HPP

#include <vesk/telemetry_matrix.h>

struct telemetry_matrix {
    signed char version;
    struct matrix *matrix;
    sensor_array *sensors;
    timestamp_array *timestamps;
    uint32_t owns_matrix;
};

#endif
