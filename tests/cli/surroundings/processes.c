/*
 * Processes, sockets, clocks and waiting.
 */
#define _GNU_SOURCE
#include <poll.h>
#include <signal.h>
#include <stdint.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include "plan.h"

pid_t fork(void)
{
    REAL(pid_t, "fork", (void))
    return is_due("fork") ? -1 : real();
}

pid_t waitpid(pid_t process, int *status, int options)
{
    REAL(pid_t, "waitpid", (pid_t, int *, int))
    return is_due("wait") ? -1 : real(process, status, options);
}

#define SOCKET(result, name, parameters, types, arguments)                                         \
    result name parameters                                                                         \
    {                                                                                              \
        REAL(result, #name, types)                                                                 \
        return is_due("socket") ? -1 : real arguments;                                             \
    }

SOCKET(int, socket, (int domain, int type, int protocol), (int, int, int), (domain, type, protocol))
SOCKET(int, socketpair, (int domain, int type, int protocol, int pair[2]), (int, int, int, int *),
       (domain, type, protocol, pair))
SOCKET(int, bind, (int fd, __CONST_SOCKADDR_ARG address, socklen_t size),
       (int, __CONST_SOCKADDR_ARG, socklen_t), (fd, address, size))
SOCKET(int, connect, (int fd, __CONST_SOCKADDR_ARG address, socklen_t size),
       (int, __CONST_SOCKADDR_ARG, socklen_t), (fd, address, size))
SOCKET(ssize_t, send, (int fd, const void *from, size_t size, int flags),
       (int, const void *, size_t, int), (fd, from, size, flags))
SOCKET(ssize_t, recv, (int fd, void *to, size_t size, int flags), (int, void *, size_t, int),
       (fd, to, size, flags))
SOCKET(ssize_t, sendmsg, (int fd, const struct msghdr *message, int flags),
       (int, const struct msghdr *, int), (fd, message, flags))
SOCKET(ssize_t, recvmsg, (int fd, struct msghdr *message, int flags), (int, struct msghdr *, int),
       (fd, message, flags))
SOCKET(int, setsockopt, (int fd, int level, int name, const void *value, socklen_t size),
       (int, int, int, const void *, socklen_t), (fd, level, name, value, size))

static const int64_t second = 1000000000;

static int64_t nanoseconds_of(const struct timespec *time)
{
    return (int64_t)time->tv_sec * second + time->tv_nsec;
}

static void skip(int64_t nanoseconds)
{
    (void)__atomic_add_fetch(&plan.progress->nanoseconds, nanoseconds, __ATOMIC_SEQ_CST);
}

static int tell_time(clockid_t clock, struct timespec *now)
{
    REAL(int, "clock_gettime", (clockid_t, struct timespec *))
    const int result = real(clock, now);
    const int64_t shown =
        nanoseconds_of(now) + __atomic_load_n(&plan.progress->nanoseconds, __ATOMIC_SEQ_CST);
    now->tv_sec = (time_t)(shown / second);
    now->tv_nsec = (long)(shown % second);
    return result;
}

int clock_gettime(clockid_t clock, struct timespec *now)
{
    return is_due("clock") ? -1 : tell_time(clock, now);
}

time_t time(time_t *now)
{
    struct timespec told = {0, 0};
    (void)tell_time(CLOCK_REALTIME, &told);
    if (now != NULL) {
        *now = told.tv_sec;
    }
    return told.tv_sec;
}

int gettimeofday(struct timeval *restrict now, void *restrict zone)
{
    struct timespec told = {0, 0};
    (void)zone;
    (void)tell_time(CLOCK_REALTIME, &told);
    now->tv_sec = told.tv_sec;
    now->tv_usec = told.tv_nsec / 1000;
    return 0;
}

int nanosleep(const struct timespec *length, struct timespec *rest)
{
    REAL(int, "nanosleep", (const struct timespec *, struct timespec *))
    if (is_due("wait")) {
        return -1;
    }
    if (plan.no_wait) {
        skip(nanoseconds_of(length));
        return 0;
    }
    return real(length, rest);
}

int clock_nanosleep(clockid_t clock, int flags, const struct timespec *until, struct timespec *rest)
{
    REAL(int, "clock_nanosleep", (clockid_t, int, const struct timespec *, struct timespec *))
    if (is_due("wait")) {
        return plan.error;
    }
    if (plan.no_wait && flags == 0) {
        skip(nanoseconds_of(until));
        return 0;
    }
    return real(clock, flags, until, rest);
}

int ppoll(struct pollfd *files, nfds_t count, const struct timespec *timeout, const sigset_t *mask)
{
    REAL(int, "ppoll", (struct pollfd *, nfds_t, const struct timespec *, const sigset_t *))
    static const struct timespec at_once = {0, 0};
    if (is_due("wait")) {
        return -1;
    }
    const bool skips = plan.no_wait && timeout != NULL;
    const int result = real(files, count, skips ? &at_once : timeout, mask);
    if (skips && result == 0) {
        skip(nanoseconds_of(timeout));
    }
    return result;
}

/* Answers of other processes take real time. */
int poll(struct pollfd *files, nfds_t count, int timeout)
{
    REAL(int, "poll", (struct pollfd *, nfds_t, int))
    return is_due("wait") ? -1 : real(files, count, timeout);
}
