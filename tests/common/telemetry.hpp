// Vectors and events in one line.
#ifndef VESK_TESTS_COMMON_TELEMETRY_HPP
#define VESK_TESTS_COMMON_TELEMETRY_HPP

#include <string>
#include <vector>

#include <vesk/matrix.h>
#include <vesk/sensor_array.h>
#include <vesk/telemetry_matrix.h>
#include <vesk/timestamp.h>
#include <vesk/vesk_cb_record_event.h>

#include "support/owner.hpp"

using owned_matrix = owned<matrix, matrix_destroy>;
using owned_event = owned<vesk_cb_record_event, vesk_cb_record_event_destroy>;

inline timestamp make_timestamp(long seconds)
{
    timestamp t;
    const struct timeval tv = {seconds, 0};
    timestamp_init_from_timeval(&t, &tv);
    return t;
}

struct reading {
    std::string sensor;
    double value;
};

// The readings of one second.
inline owned_matrix make_vector(long seconds, const std::vector<reading> &readings)
{
    std::vector<const char *> names;
    for (const reading &r : readings) {
        names.push_back(r.sensor.c_str());
    }
    const auto n = static_cast<uint32_t>(readings.size());
    matrix *values = matrix_create(1, n);
    for (uint32_t i = 0; i < n; ++i) {
        matrix_set(values, 0, i, readings[i].value);
    }
    const timestamp t = make_timestamp(seconds);
    return owned_matrix(telemetry_matrix_create_vector(
        values, sensor_array_create_from_names(names.data(), n), &t));
}

inline owned_event make_event(uint32_t type, long seconds, const std::string &text)
{
    const timestamp t = make_timestamp(seconds);
    return owned_event(vesk_cb_record_event_create(type, &t, text.c_str()));
}

#endif
