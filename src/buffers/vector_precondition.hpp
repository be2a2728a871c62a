// What the records that are made from a telemetry vector require of it: one row, with a timestamp
// and sensors.
#ifndef VESK_BUFFERS_VECTOR_PRECONDITION_HPP
#define VESK_BUFFERS_VECTOR_PRECONDITION_HPP

#include <vesk/telemetry_matrix.h>

#include "support/precondition.hpp"

// The timestamp of a vector; aborts unless the vector has one row with a timestamp, and sensors.
inline const timestamp *vector_timestamp(const matrix *vector)
{
    timestamp **timestamps =
        timestamp_array_get_timestamps(telemetry_matrix_get_timestamps(vector));
    VESK_REQUIRE(timestamps != nullptr, "timestamps != ((void *)0)");
    VESK_REQUIRE(telemetry_matrix_get_sensors(vector) != nullptr, "sensors != ((void *)0)");
    VESK_REQUIRE(matrix_get_number_rows(vector) == 1, "matrix_get_number_rows (vector) == 1");
    VESK_REQUIRE(timestamps[0] != nullptr, "timestamps[0] != ((void *)0)");
    return timestamps[0];
}

#endif
