/*
 * Looks into a box without touching it, whatever state a crash left it in: files, spans of time,
 * last samples. Nothing that the files hold is believed, and nothing in them aborts.
 *
 *     reader BASE        exit code 0, 1 when the box cannot be read, 3 when something is damaged
 */
#include <ctype.h>
#include <stdio.h>

#include <vesk/error.h>
#include <vesk/vesk_limits.h>
#include <vesk/vesk_scan.h>

struct look {
    unsigned long records, damage, show_from; /* samples from that one on are printed */
    timestamp first, last;
};

static unsigned long damage;

/* Names may hold anything; a terminal gets printable characters only. */
static void put_text(const char *text)
{
    for (; *text != 0; ++text) {
        putchar(isprint((unsigned char)*text) ? *text : '_');
    }
}

static void show_sample(const vesk_scan_item *item)
{
    static char text[VESK_MAX_COUNT + 1]; /* the last byte stays 0 */
    printf("  %s", timestamp_to_string(&item->values->timestamp, text, sizeof text));
    for (uint32_t i = 0; i < item->values->n_sensors; ++i) {
        const sensor *named = sensor_array_get(item->names->sensors, (int)i);
        putchar(' ');
        put_text(sensor_get_name(named, text, VESK_MAX_COUNT));
        printf("=%g", (double)item->values->values[i]);
    }
    putchar('\n');
}

static int visit_item(const vesk_scan_item *item, void *context)
{
    struct look *look = context;
    if (item->error != 0) { /* not a record, or one that other readers refuse */
        ++look->damage;
    } else if (item->kind == VESK_SCAN_SENSOR_VALUES) {
        look->first = look->records == 0 ? item->values->timestamp : look->first;
        look->last = item->values->timestamp;
        if (look->records++ >= look->show_from) {
            show_sample(item);
        }
    } else if (item->kind == VESK_SCAN_INTERVAL) {
        look->first = look->records++ == 0 ? item->interval->start : look->first;
        look->last = item->interval->end;
    }
    return ferror(stdout) ? QE_ERROR_IO : 0;
}

static int visit_file(const vesk_scan_file *file, void *context)
{
    static const char *const roles[] = {"unknown", "history", "full", "open"};
    const int state_is_good = *(int *)context;
    if (file->role == VESK_SCAN_ORPHAN && state_is_good) {
        return 0; /* it does not belong to the box */
    }
    struct look look = {.show_from = (unsigned long)-1};
    const int result = file->missing   ? QE_ERROR_ABSENT
                       : file->foreign ? QE_ERROR_OPEN /* a link would lead anywhere */
                                       : vesk_scan_buffer(file->filename, visit_item, &look);
    put_text(file->filename);
    printf(": %s, %lu records, %lu damaged places", roles[file->role], look.records, look.damage);
    if (look.records > 0) {
        char first[18], last[18];
        printf(", %s to %s", timestamp_to_string(&look.first, first, sizeof first),
               timestamp_to_string(&look.last, last, sizeof last));
    }
    printf("%s%s\n", result != 0 ? ", " : "", result != 0 ? qe_error_text(result) : "");
    damage += look.damage + (result != 0);
    look = (struct look){.show_from = look.records > 3 ? look.records - 3 : 0};
    return result != 0 ? 0 : vesk_scan_buffer(file->filename, visit_item, &look);
}

int main(int argc, char **argv)
{
    char name[VESK_MAX_BASE_LENGTH + 7];
    vesk_state_summary state;
    if (argc != 2 || snprintf(name, sizeof name, "%s.state", argv[1]) >= (int)sizeof name) {
        return 2;
    }
    int state_is_good = vesk_scan_state(name, &state) == 0;
    vesk_state_summary_destruct(&state);
    const int result = vesk_scan_files(argv[1], visit_file, &state_is_good);
    if (result != 0 || fflush(stdout) != 0) {
        fprintf(stderr, "reader: %s\n", qe_error_text(result));
        return 1;
    }
    return damage > 0 || !state_is_good ? 3 : 0;
}
