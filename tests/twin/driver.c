/*
 * Runs a recorder by commands, one a line, so that a test in another language can drive it, under a
 * sanitizer or on another processor as well:
 *
 *   sensors ID NAME...        defines a sensor array; names in hexadecimal
 *   create BASE S H           a new recorder
 *   open BASE                 the recorder that is stored
 *   vector ID SECONDS VALUES  writes a vector; VALUES are the bits of the doubles in one word
 *   event TYPE SECONDS TEXT   writes an event; TEXT in hexadecimal
 *   tagged TYPE SECONDS TEXT  writes an event as a record, into the open buffer
 *   close                     closes the recorder
 *
 * Each command is answered by a line with its result and the last-error cell, which is cleared
 * before the command. The result of create and open is 1, or 0 for null.
 */
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/time.h>

#include <vesk/error.h>
#include <vesk/matrix.h>
#include <vesk/sensor_array.h>
#include <vesk/telemetry_matrix.h>
#include <vesk/timestamp.h>
#include <vesk/vesk.h>
#include <vesk/vesk_cb_record.h>
#include <vesk/vesk_cb_record_event.h>
#include <vesk/vesk_current_buffer.h>
#include <vesk/writer.h>

enum { MAX_ARRAYS = 64 };

static sensor_array *arrays[MAX_ARRAYS];
static vesk *recorder;

static void die(const char *what)
{
    fprintf(stderr, "driver: %s\n", what);
    exit(2);
}

static char *next_word(char **line)
{
    char *word = strtok_r(NULL, " \n", line);
    if (word == NULL) {
        die("word missing");
    }
    return word;
}

static uint32_t next_number(char **line)
{
    return (uint32_t)strtoul(next_word(line), NULL, 10);
}

static sensor_array **next_array(char **line)
{
    const uint32_t id = next_number(line);
    if (id >= MAX_ARRAYS) {
        die("no such sensor array");
    }
    return &arrays[id];
}

static timestamp next_timestamp(char **line)
{
    const struct timeval time = {.tv_sec = (time_t)strtol(next_word(line), NULL, 10), .tv_usec = 0};
    timestamp t;
    if (timestamp_init_from_timeval(&t, &time) != 0) {
        die("time out of range");
    }
    return t;
}

/* Decodes in place. */
static char *unhex(char *word)
{
    char *end = word;
    for (const char *digits = word; digits[0] != 0 && digits[1] != 0; digits += 2) {
        const char pair[] = {digits[0], digits[1], 0};
        *end++ = (char)strtoul(pair, NULL, 16);
    }
    *end = 0;
    return word;
}

static int define_sensors(char **line)
{
    sensor_array **array = next_array(line);
    if (*array != NULL) {
        sensor_array_destroy(array);
    }
    uint32_t n = 0;
    const char **names = NULL;
    for (char *word = strtok_r(NULL, " \n", line); word != NULL;
         word = strtok_r(NULL, " \n", line)) {
        const char **larger = realloc(names, (n + 1) * sizeof *names);
        if (larger == NULL) {
            die("out of memory");
        }
        names = larger;
        names[n++] = unhex(word);
    }
    *array = sensor_array_create_from_names(names, n);
    free(names);
    return *array != NULL;
}

static uint64_t hex_digit(char c)
{
    return (uint64_t)(c <= '9' ? c - '0' : c - 'a' + 10);
}

static int write_vector(char **line)
{
    sensor_array *sensors = *next_array(line);
    const uint32_t n = sensor_array_get_size(sensors);
    timestamp time = next_timestamp(line);
    const char *digits = next_word(line);
    if (strlen(digits) != 16 * (size_t)n) {
        die("as many values as sensors, please");
    }
    matrix *values = matrix_create(1, n);
    for (uint32_t i = 0; i < n; ++i) {
        uint64_t bits = 0;
        for (int k = 0; k < 16; ++k) {
            bits = bits << 4 | hex_digit(*digits++);
        }
        double value;
        memcpy(&value, &bits, sizeof value);
        matrix_set(values, 0, i, value);
    }
    matrix *vector = telemetry_matrix_create_vector(values, sensor_array_copy(sensors), &time);
    const int result = vesk_write_telemetry_vector(recorder, vector);
    matrix_destroy(&vector);
    timestamp_destruct(&time);
    return result;
}

static const vesk_current_buffer *open_buffer(void)
{
    switch (recorder->state) {
    case VESK_ZCF_STATE_C00:
        return recorder->c00->cbuf0;
    case VESK_ZCF_STATE_CC0:
        return recorder->cc0->cbuf1;
    case VESK_ZCF_STATE_CCC:
        return recorder->ccc->cbuf2;
    default:
        return recorder->hcc->cbuf2;
    }
}

/* The recorder has no call for this: events with a type go through the record writer. */
static int write_tagged(vesk_cb_record_event *event)
{
    vesk_cb_record record;
    writer *out = open_buffer()->writer;
    vesk_cb_record_init_event(&record, event);
    const int result = binary_serializer_write_vesk_cb_record(&record, out);
    const int flushed = writer_flush(out);
    vesk_cb_record_destruct(&record);
    return result < 0 ? result : flushed < 0 ? flushed : 0;
}

static int write_event(char **line, int tagged)
{
    const uint32_t type = next_number(line);
    timestamp time = next_timestamp(line);
    vesk_cb_record_event *event = vesk_cb_record_event_create(type, &time, unhex(next_word(line)));
    const int result = tagged ? write_tagged(event) : vesk_write_event(recorder, event);
    vesk_cb_record_event_destroy(&event);
    timestamp_destruct(&time);
    return result;
}

static int run(char *text)
{
    char *line;
    const char *command = strtok_r(text, " \n", &line);
    if (command == NULL) {
        die("empty line");
    }
    if (strcmp(command, "sensors") == 0) {
        return define_sensors(&line);
    }
    if (strcmp(command, "vector") == 0) {
        return write_vector(&line);
    }
    if (strcmp(command, "event") == 0) {
        return write_event(&line, 0);
    }
    if (strcmp(command, "tagged") == 0) {
        return write_event(&line, 1);
    }
    if (strcmp(command, "create") == 0) {
        const char *base = next_word(&line);
        const uint32_t samples = next_number(&line);
        recorder = vesk_create(base, samples, next_number(&line));
        return recorder != NULL;
    }
    if (strcmp(command, "open") == 0) {
        recorder = vesk_open(next_word(&line));
        return recorder != NULL;
    }
    if (strcmp(command, "close") == 0) {
        vesk_close(&recorder);
        return recorder == NULL;
    }
    die("unknown command");
    return 0;
}

int main(void)
{
    char *text = NULL;
    size_t size = 0;
    while (getline(&text, &size, stdin) > 0) {
        qe_set_last_error(0);
        const int result = run(text);
        printf("%d %d\n", result, qe_get_last_error());
        fflush(stdout);
    }
    free(text);
    if (recorder != NULL) {
        vesk_close(&recorder);
    }
    for (int id = 0; id < MAX_ARRAYS; ++id) {
        if (arrays[id] != NULL) {
            sensor_array_destroy(&arrays[id]);
        }
    }
    return 0;
}
