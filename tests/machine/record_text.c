/*
 * Records text telemetry into a new box: record_text TEXT BASE SAMPLES INTERVALS. script/same-bytes
 * runs it as it is built for every machine and compares the boxes.
 */
#include <stdio.h>
#include <stdlib.h>

#include <vesk/error.h>
#include <vesk/kelt_reader.h>
#include <vesk/vesk.h>

static int record(kelt_reader *text, vesk *box)
{
    qe_set_last_error(0);
    const matrix *vector;
    while ((vector = kelt_reader_get_next_telemetry_vector(text)) != NULL) {
        const int written = vesk_write_telemetry_vector(box, vector);
        if (written != 0) {
            return written;
        }
    }
    return qe_get_last_error();
}

int main(int argc, char **argv)
{
    if (argc != 5) {
        fprintf(stderr, "usage: record_text TEXT BASE SAMPLES INTERVALS\n");
        return 2;
    }
    kelt_reader *text = kelt_reader_open(argv[1]);
    vesk *box = vesk_create(argv[2], (uint32_t)atoi(argv[3]), (uint32_t)atoi(argv[4]));
    if (text == NULL || box == NULL) {
        fprintf(stderr, "record_text: %s\n", qe_error_text(qe_get_last_error()));
        return 1;
    }
    const int result = record(text, box);
    if (result != 0) {
        fprintf(stderr, "record_text: %s\n", qe_error_text(result));
    }
    vesk_close(&box);
    kelt_reader_close(&text);
    return result == 0 ? 0 : 1;
}
