/*
 * Summarises numbers of any source as a box does its samples, without a box: what was added up part
 * by part merges into the summary of the whole.
 *
 *     seq 100 | summary 25       a line for each 25 numbers, and one for all; nan is "no reading"
 */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>

#include <vesk/hist_value.h>

/* The sums are kept in single precision; the deviation is of the population. */
static int show(const char *what, const hist_value *part)
{
    const double count = part->count;
    const double mean = part->count > 0 ? (double)part->sum / count : NAN;
    const double variance = part->count > 0 ? (double)part->sum_squares / count - mean * mean : NAN;
    return printf("%s: count %u, min %g, max %g, first %g, last %g, mean %g, stddev %g\n", what,
                  (unsigned)part->count, (double)part->min_value, (double)part->max_value,
                  (double)part->first_value, (double)part->last_value, mean,
                  sqrt(variance < 0 ? 0 : variance));
}

/* 1 for a number, 0 at the end, -1 for anything else. */
static int read_number(float *number)
{
    char line[64];
    char *rest;
    if (fgets(line, sizeof line, stdin) == NULL) {
        return ferror(stdin) ? -1 : 0;
    }
    *number = strtof(line, &rest);
    return rest != line && (*rest == '\n' || *rest == 0) ? 1 : -1;
}

int main(int argc, char **argv)
{
    const long size = argc == 2 ? strtol(argv[1], NULL, 10) : 0;
    if (size < 1) {
        fprintf(stderr, "usage: summary NUMBERS_A_PART <FILE\n");
        return 2;
    }
    hist_value whole, part;
    hist_value_init(&whole);
    hist_value_init(&part);
    float number;
    long in_part = 0;
    int more, shown = 0;
    do {
        more = read_number(&number);
        if (more > 0) {
            hist_value_update(&part, number);
            ++in_part;
        }
        if (in_part == size || (more <= 0 && in_part > 0)) {
            shown = show("part", &part);
            hist_value_merge_with(&whole, &part); /* the earlier one takes the later one */
            hist_value_init(&part);
            in_part = 0;
        }
    } while (more > 0 && shown >= 0);
    if (more < 0) {
        fprintf(stderr, "summary: a line is no number, or cannot be read\n");
        return 1;
    }
    shown = show("whole", &whole);
    return shown < 0 || fflush(stdout) != 0 ? 1 : 0;
}
