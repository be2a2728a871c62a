// A stranger's C++ program: records a few samples, opens the box again and goes on.
#include <cstdio>

#include <vesk/error.h>
#include <vesk/sensor_array.h>
#include <vesk/telemetry_matrix.h>
#include <vesk/vesk.h>

static int write_sample(vesk *box, sensor_array *sensors, double value)
{
    timestamp now;
    timestamp_init_current(&now);
    matrix *row = matrix_create(1, 1);
    matrix_set(row, 0, 0, value);
    matrix *vector = telemetry_matrix_create_vector(row, sensor_array_copy(sensors), &now);
    const int result = vesk_write_telemetry_vector(box, vector);
    matrix_destroy(&vector);
    return result;
}

int main()
{
    const char *names[] = {"::stranger.value"};
    sensor_array *sensors = sensor_array_create_from_names(names, 1);
    vesk *box = vesk_create("stranger", 4, 2);
    int failed = box == nullptr ? 1 : 0;
    for (int i = 0; i < 14 && failed == 0; ++i) {
        failed = write_sample(box, sensors, i) < 0 ? 1 : 0;
    }
    if (box != nullptr) {
        vesk_close(&box);
    }
    qe_set_last_error(0);
    box = vesk_open("stranger");
    if (box == nullptr || qe_get_last_error() != 0 || write_sample(box, sensors, 14.0) < 0) {
        failed = 1;
    }
    if (box != nullptr) {
        vesk_close(&box);
    }
    sensor_array_destroy(&sensors);
    std::puts(failed == 0 ? "a C++ program works" : "a C++ program failed");
    return failed;
}
