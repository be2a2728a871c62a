// Checks whether a vector or an event can be stored and read back, before anything is written. A
// vector is judged as a whole: its type and shape, its time, and each of its sensors.
#include <vesk/error.h>
#include <vesk/sensor_array.h>
#include <vesk/telemetry_matrix.h>
#include <vesk/timestamp_array.h>
#include <vesk/vesk_check.h>

#include "buffers/storable.hpp"
#include "support/precondition.hpp"

// Looks at each sensor alone. A vector that was widened has places without a sensor.
static int _check_names(sensor *const *sensors, uint32_t n)
{
    for (uint32_t i = 0; i < n; ++i) {
        if (sensors[i] == nullptr || sensors[i]->canonical == nullptr) {
            return QE_ERROR_MALFORMED;
        }
        const int result = check_storable_text(sensors[i]->canonical->name);
        if (result < 0) {
            return result;
        }
    }
    return 0;
}

int vesk_check_vector(const matrix *vector)
{
    VESK_REQUIRE(vector != nullptr, "vector != ((void *)0)");
    if (matrix_get_type(vector) != MATRIX_TYPE_TELEMETRY || matrix_get_number_rows(vector) != 1) {
        return QE_ERROR_MALFORMED;
    }
    const timestamp_array *times = telemetry_matrix_get_timestamps(vector);
    const timestamp *time = timestamp_array_get_timestamps(times)[0];
    if (time == nullptr || check_storable_time(*time) < 0) {
        return QE_ERROR_BAD_TIME;
    }
    const sensor_array *sensors = telemetry_matrix_get_sensors(vector);
    const uint32_t n = sensor_array_get_size(sensors);
    if (n == 0 || n > max_stored_count) {
        return QE_ERROR_LIMIT;
    }
    const int result = _check_names(sensor_array_get_sensors(sensors), n);
    return result < 0 ? result : check_repetition(sensor_array_get_sensors(sensors), n);
}

int vesk_check_event(const vesk_cb_record_event *event)
{
    VESK_REQUIRE(event != nullptr, "event != ((void *)0)");
    VESK_REQUIRE(event->version == 1, "event->version == ((char) 1)");
    return check_storable_event(*event);
}
