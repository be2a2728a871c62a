/* clang-format off */
/*
 * A library that is loaded before the C library (LD_PRELOAD) and makes one call of the process
 * fail, or that one and all behind it. Environment variables say which:
 *
 *   VESK_FAIL_CALLS     read, write, open, close, list, stat, lock, fork, socket, wait, rename,
 *                       sync, unlink, truncate, seek or clock
 *   VESK_FAIL_AT        the number of the call, from 1 on; processes that are forked count on
 *                       together
 *   VESK_FAIL_WITH      a number of errno, or "short": half of what was asked for is read or
 *                       written
 *   VESK_FAIL_FOR_EVER  set: all calls from that one on fail
 *   VESK_FAIL_BELOW     beginnings of paths, separated by ':'. Only calls on such paths count, and
 *                       on descriptors of such files; fork, socket, wait and clock always count
 *   VESK_FAIL_REACHED   a file that is made when a call fails
 *   VESK_FAIL_NO_WAIT   set: waiting takes no time, but all clocks go on by as much
 *
 * The functions of stdio are replaced as such, because the C library does not let go of the calls
 * that they make.
 */
/* clang-format on */
#ifndef VESK_TESTS_SURROUNDINGS_PLAN_H
#define VESK_TESTS_SURROUNDINGS_PLAN_H

#include <stdbool.h>
#include <stdint.h>
#include <string.h>

/* Shared by all processes that are forked. */
struct progress {
    long calls;
    int64_t nanoseconds; /* that nobody waited for */
};

struct plan {
    const char *calls;
    long at;
    int error;
    bool is_short;
    bool for_ever;
    const char *below;
    const char *reached;
    bool no_wait;
    struct progress *progress;
};

extern struct plan plan;

/* True when this call is one that fails: then errno is set. */
bool is_due(const char *calls);
/* The same, of a call on a path or on a descriptor. */
bool due_path(const char *calls, const char *path);
bool due_file(const char *calls, int fd);

/* The function of this name behind this library. */
void *behind(const char *name);

#define REAL(result, name, arguments)                                                              \
    static result(*real) arguments;                                                                \
    if (real == NULL) {                                                                            \
        void *found = behind(name);                                                                \
        memcpy(&real, &found, sizeof found);                                                       \
    }

#endif
