/*
 * Records the load until SIGTERM, with an event at its start and its end, in an order of calls that
 * keeps what was acknowledged. A line tells of each sample that is in the box:
 *     daemon BASE [MILLISECONDS]
 */
#define _DEFAULT_SOURCE
#include <math.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>

#include <vesk/error.h>
#include <vesk/telemetry_matrix.h>
#include <vesk/vesk_check.h>
#include <vesk/vesk_prepare.h>
#include <vesk/vesk_start.h>

static vesk *box;     /* null while it cannot be started */
static timestamp now; /* of the latest sample */
static int succeeded(const char *what, int result)
{
    if (result < 0) {
        fprintf(stderr, "daemon: %s: %s (error %d)\n", what, qe_error_text(result), result);
    }
    return result >= 0;
}

/* Behind a failed write nothing must be written: close, start, write again, now or next time. */
static int record_vector(const char *base, const matrix *vector)
{
    int wanted = succeeded("refused", vesk_check_vector(vector));
    for (int attempt = 0; attempt < 2 && wanted; ++attempt) {
        if (box == NULL && (box = vesk_start(base, 60, 6, NULL)) == NULL) {
            succeeded("cannot start the box", qe_get_last_error());
        } else if (succeeded("not written", vesk_write_telemetry_vector(box, vector))) {
            return 1;
        } else {
            vesk_close(&box);
        }
    }
    return 0;
}

/* An event follows a sample of the same file. */
static int record_event(unsigned type, const char *text)
{
    vesk_cb_record_event *event = vesk_cb_record_event_create(type, &now, text);
    const int result = event != NULL ? vesk_write_tagged_event(box, event) : QE_ERROR_NO_MEMORY;
    if (!succeeded("event not written", result)) {
        vesk_close(&box); /* as for a vector */
    }
    if (event != NULL) {
        vesk_cb_record_event_destroy(&event);
    }
    return result == 0;
}

static void run(const char *base, matrix *vector, const struct timespec *interval, sigset_t *end)
{
    for (long number = 1, begun = 0, ended = 0; !ended; ++number) {
        double load;
        matrix_set(vector, 0, 0, (double)number);
        matrix_set(vector, 0, 1, getloadavg(&load, 1) == 1 ? load : NAN); /* NaN: no reading */
        if (succeeded("no time", timestamp_init_current(&now)) &&
            succeeded("no memory", telemetry_matrix_update_vector_timestamp(vector, &now)) &&
            record_vector(base, vector)) {
            succeeded("not on the medium yet", vesk_settle(box)); /* the next call tries again */
            succeeded("not synced", number % 10 == 0 ? vesk_sync(box) : 0);
            (void)vesk_prepare(box, 50000, 0); /* the next rotation, for at most 50 ms */
            printf("sample %ld\n", number);
            /* Behind the last sample of a file the history would not count the event. */
            begun = begun || (!vesk_is_full(box) && record_event(1, "daemon started"));
        }
        ended = fflush(stdout) != 0 || sigtimedwait(end, NULL, interval) == SIGTERM;
    }
    if (box != NULL && record_event(2, "daemon ended")) {
        vesk_close(&box);
    }
}

int main(int argc, char **argv)
{
    const long ms = argc > 2 ? strtol(argv[2], NULL, 10) : 1000;
    const struct timespec interval = {ms / 1000, ms % 1000 * 1000000};
    const char *names[] = {"::daemon.samples", "::load.1min"};
    sigset_t end;
    const int good = argc > 1 && ms > 0 && timestamp_init_current(&now) == 0 &&
                     sigemptyset(&end) == 0 && sigaddset(&end, SIGTERM) == 0 &&
                     sigprocmask(SIG_BLOCK, &end, NULL) == 0;
    sensor_array *sensors = sensor_array_create_from_names(names, 2);
    matrix *row = good && sensors != NULL ? matrix_create(1, 2) : NULL;
    matrix *vector = row != NULL ? telemetry_matrix_create_vector(row, sensors, &now) : NULL;
    if (vector == NULL) {
        return 2;
    }
    run(argv[1], vector, &interval, &end);
    matrix_destroy(&vector);
    return ferror(stdout) ? 1 : 0;
}
