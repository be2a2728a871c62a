/*
 * Records a room: the shortest whole program over the library, and the one that the README shows.
 *
 *     room        ten readings into the box "room" of the working folder, behind what is in it
 */
#include <stdio.h>

#include <vesk/error.h>
#include <vesk/sensor_array.h>
#include <vesk/telemetry_matrix.h>
#include <vesk/vesk_start.h>

/* A vector is a matrix of one row, with the names of its columns and the time of the row. */
static matrix *make_vector(const char *const *names, uint32_t count)
{
    timestamp now;
    matrix *row = timestamp_init_current(&now) == 0 ? matrix_create(1, count) : NULL;
    sensor_array *sensors = row != NULL ? sensor_array_create_from_names(names, count) : NULL;
    matrix *vector = sensors != NULL ? telemetry_matrix_create_vector(row, sensors, &now) : NULL;
    if (vector == NULL && sensors != NULL) {
        sensor_array_destroy(&sensors);
    }
    if (vector == NULL && row != NULL) {
        matrix_destroy(&row);
    }
    return vector; /* it owns the row and the sensors */
}

static int record(vesk *box, matrix *vector, double temperature, double humidity)
{
    timestamp now;
    int result = timestamp_init_current(&now);
    if (result == 0) {
        result = telemetry_matrix_update_vector_timestamp(vector, &now);
    }
    if (result == 0) {
        matrix_set(vector, 0, 0, temperature);
        matrix_set(vector, 0, 1, humidity);
        result = vesk_write_telemetry_vector(box, vector); /* survives a kill from here on */
    }
    /* Now and then the box moves on to other files; from here on that survives a loss of power. */
    return result == 0 ? vesk_settle(box) : result;
}

int main(void)
{
    const char *names[] = {"::room.temperature_C", "::room.humidity_percent"};
    matrix *vector = make_vector(names, 2);
    /* A new box with 600 samples a file and 60 intervals of them, or the one that is there. */
    vesk *box = vector != NULL ? vesk_start("room", 600, 60, NULL) : NULL;
    int result = box != NULL ? 0 : qe_get_last_error();
    for (int i = 0; i < 10 && result == 0; ++i) {
        result = record(box, vector, 21.5 + 0.1 * i, 40.0);
    }
    if (result != 0) {
        fprintf(stderr, "room: %s (error %d)\n", qe_error_text(result), result);
    }
    if (box != NULL) {
        vesk_close(&box);
    }
    if (vector != NULL) {
        matrix_destroy(&vector);
    }
    return result == 0 ? 0 : 1;
}
