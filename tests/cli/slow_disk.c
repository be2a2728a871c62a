/* A disk that takes its time: each call that brings something onto the medium waits for the
 * milliseconds in the file VESK_TEST_SLOW_DISK. It is loaded into the command with LD_PRELOAD. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

static void take_time(void)
{
    const char *path = getenv("VESK_TEST_SLOW_DISK");
    FILE *file = path != NULL ? fopen(path, "re") : NULL;
    long milliseconds = 0;
    if (file != NULL) {
        if (fscanf(file, "%ld", &milliseconds) != 1) {
            milliseconds = 0;
        }
        fclose(file);
    }
    const struct timespec rest = {milliseconds / 1000, milliseconds % 1000 * 1000000};
    nanosleep(&rest, NULL);
}

static int call(const char *name, int descriptor)
{
    int (*real)(int) = NULL;
    /* The way that POSIX shows: ISO C knows no conversion to a pointer to a function. */
    *(void **)&real = dlsym(RTLD_NEXT, name);
    take_time();
    return real(descriptor);
}

int fsync(int descriptor)
{
    return call("fsync", descriptor);
}

int fdatasync(int descriptor)
{
    return call("fdatasync", descriptor);
}
