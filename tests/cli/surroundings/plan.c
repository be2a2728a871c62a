/*
 * Reads from the environment which call is to fail, and counts the calls.
 */
#define _GNU_SOURCE
#include "plan.h"

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

struct plan plan;

__attribute__((constructor)) static void read_plan(void)
{
    const char *at = getenv("VESK_FAIL_AT");
    const char *with = getenv("VESK_FAIL_WITH");
    plan.progress = mmap(NULL, sizeof *plan.progress, PROT_READ | PROT_WRITE,
                         MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (plan.progress == MAP_FAILED) {
        abort();
    }
    plan.at = at != NULL ? atol(at) : 0;
    plan.is_short = with != NULL && strcmp(with, "short") == 0;
    plan.error = with != NULL && !plan.is_short ? atoi(with) : ENOSPC;
    plan.for_ever = getenv("VESK_FAIL_FOR_EVER") != NULL;
    plan.below = getenv("VESK_FAIL_BELOW");
    plan.reached = getenv("VESK_FAIL_REACHED");
    plan.no_wait = getenv("VESK_FAIL_NO_WAIT") != NULL;
    plan.calls = getenv("VESK_FAIL_CALLS");
}

static void tell_reached(void)
{
    const int before = errno;
    if (plan.reached != NULL) {
        const long fd =
            syscall(SYS_openat, AT_FDCWD, plan.reached, O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
        if (fd >= 0) {
            (void)syscall(SYS_close, fd);
        }
    }
    errno = before;
}

bool is_due(const char *calls)
{
    if (plan.calls == NULL || strcmp(plan.calls, calls) != 0) {
        return false;
    }
    const long number = __atomic_add_fetch(&plan.progress->calls, 1, __ATOMIC_SEQ_CST);
    if (number != plan.at && !(plan.for_ever && number > plan.at)) {
        return false;
    }
    tell_reached();
    errno = plan.error;
    return true;
}

static bool is_below(const char *path)
{
    const char *rest = plan.below;
    while (rest != NULL && *rest != '\0') {
        const size_t length = strcspn(rest, ":");
        if (strncmp(path, rest, length) == 0) {
            return true;
        }
        rest += length + (rest[length] == ':');
    }
    return false;
}

static bool counts(int fd)
{
    const int before = errno;
    char link[64];
    char path[PATH_MAX];
    (void)snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    const long length = syscall(SYS_readlinkat, AT_FDCWD, link, path, sizeof path - 1);
    errno = before;
    if (length < 0) {
        return false;
    }
    path[length] = '\0';
    return is_below(path);
}

bool due_path(const char *calls, const char *path)
{
    return path != NULL && is_below(path) && is_due(calls);
}

bool due_file(const char *calls, int fd)
{
    return plan.calls != NULL && strcmp(plan.calls, calls) == 0 && counts(fd) && is_due(calls);
}

void *behind(const char *name)
{
    void *found = dlsym(RTLD_NEXT, name);
    if (found == NULL) {
        abort();
    }
    return found;
}
