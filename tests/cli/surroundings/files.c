/*
 * Reading, writing and opening by descriptors, and what is done to names and whole files.
 */
#define _GNU_SOURCE
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/uio.h>
#include <unistd.h>

#include "plan.h"

/* Of an amount that is read or written in part. */
static size_t part_of(size_t size)
{
    return plan.is_short ? (size + 1) / 2 : size;
}

#define READER(name, parameters, types, arguments, shorter)                                        \
    ssize_t name parameters                                                                        \
    {                                                                                              \
        REAL(ssize_t, #name, types)                                                                \
        if (due_file("read", fd)) {                                                                \
            if (!plan.is_short) {                                                                  \
                return -1;                                                                         \
            }                                                                                      \
            return real shorter;                                                                   \
        }                                                                                          \
        return real arguments;                                                                     \
    }

READER(read, (int fd, void *to, size_t size), (int, void *, size_t), (fd, to, size),
       (fd, to, part_of(size)))
READER(pread, (int fd, void *to, size_t size, off_t at), (int, void *, size_t, off_t),
       (fd, to, size, at), (fd, to, part_of(size), at))
READER(pread64, (int fd, void *to, size_t size, off64_t at), (int, void *, size_t, off64_t),
       (fd, to, size, at), (fd, to, part_of(size), at))
READER(readv, (int fd, const struct iovec *to, int count), (int, const struct iovec *, int),
       (fd, to, count), (fd, to, (count + 1) / 2))

#define WRITER(name, parameters, types, arguments, shorter)                                        \
    ssize_t name parameters                                                                        \
    {                                                                                              \
        REAL(ssize_t, #name, types)                                                                \
        if (due_file("write", fd)) {                                                               \
            if (!plan.is_short) {                                                                  \
                return -1;                                                                         \
            }                                                                                      \
            return real shorter;                                                                   \
        }                                                                                          \
        return real arguments;                                                                     \
    }

WRITER(write, (int fd, const void *from, size_t size), (int, const void *, size_t),
       (fd, from, size), (fd, from, part_of(size)))
WRITER(pwrite, (int fd, const void *from, size_t size, off_t at),
       (int, const void *, size_t, off_t), (fd, from, size, at), (fd, from, part_of(size), at))
WRITER(pwrite64, (int fd, const void *from, size_t size, off64_t at),
       (int, const void *, size_t, off64_t), (fd, from, size, at), (fd, from, part_of(size), at))
WRITER(writev, (int fd, const struct iovec *from, int count), (int, const struct iovec *, int),
       (fd, from, count), (fd, from, (count + 1) / 2))

static mode_t mode_in(int flags, va_list rest)
{
    return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE ? va_arg(rest, mode_t) : 0;
}

#define OPENER(name)                                                                               \
    int name(const char *path, int flags, ...)                                                     \
    {                                                                                              \
        REAL(int, #name, (const char *, int, ...))                                                 \
        va_list rest;                                                                              \
        va_start(rest, flags);                                                                     \
        const mode_t mode = mode_in(flags, rest);                                                  \
        va_end(rest);                                                                              \
        return due_path("open", path) ? -1 : real(path, flags, mode);                              \
    }

OPENER(open)
OPENER(open64)

#define OPENER_AT(name)                                                                            \
    int name(int folder, const char *path, int flags, ...)                                         \
    {                                                                                              \
        REAL(int, #name, (int, const char *, int, ...))                                            \
        va_list rest;                                                                              \
        va_start(rest, flags);                                                                     \
        const mode_t mode = mode_in(flags, rest);                                                  \
        va_end(rest);                                                                              \
        const bool fails = path[0] == '/' ? due_path("open", path) : due_file("open", folder);     \
        return fails ? -1 : real(folder, path, flags, mode);                                       \
    }

OPENER_AT(openat)
OPENER_AT(openat64)

DIR *opendir(const char *path)
{
    REAL(DIR *, "opendir", (const char *))
    return due_path("open", path) || due_path("list", path) ? NULL : real(path);
}

/* The descriptor is free behind a close that fails, as in the kernel. */
int close(int fd)
{
    REAL(int, "close", (int))
    const bool fails = due_file("close", fd);
    const int result = real(fd);
    errno = fails ? plan.error : errno;
    return fails ? -1 : result;
}

struct dirent *readdir(DIR *folder)
{
    REAL(struct dirent *, "readdir", (DIR *))
    return due_file("list", dirfd(folder)) ? NULL : real(folder);
}

struct dirent64 *readdir64(DIR *folder)
{
    REAL(struct dirent64 *, "readdir64", (DIR *))
    return due_file("list", dirfd(folder)) ? NULL : real(folder);
}

#define STATUS(name, type)                                                                         \
    int name(const char *restrict path, struct type *restrict status)                              \
    {                                                                                              \
        REAL(int, #name, (const char *, struct type *))                                            \
        return due_path("stat", path) ? -1 : real(path, status);                                   \
    }
#define FILE_STATUS(name, type)                                                                    \
    int name(int fd, struct type *status)                                                          \
    {                                                                                              \
        REAL(int, #name, (int, struct type *))                                                     \
        return due_file("stat", fd) ? -1 : real(fd, status);                                       \
    }
#define STATUS_AT(name, type)                                                                      \
    int name(int folder, const char *restrict path, struct type *restrict status, int flags)       \
    {                                                                                              \
        REAL(int, #name, (int, const char *, struct type *, int))                                  \
        const bool fails = path[0] == '/' ? due_path("stat", path) : due_file("stat", folder);     \
        return fails ? -1 : real(folder, path, status, flags);                                     \
    }

STATUS(stat, stat)
STATUS(stat64, stat64)
STATUS(lstat, stat)
STATUS(lstat64, stat64)
STATUS(statvfs, statvfs)
STATUS(statvfs64, statvfs64)
FILE_STATUS(fstat, stat)
FILE_STATUS(fstat64, stat64)
STATUS_AT(fstatat, stat)
STATUS_AT(fstatat64, stat64)

int statx(int folder, const char *restrict path, int flags, unsigned mask,
          struct statx *restrict status)
{
    REAL(int, "statx", (int, const char *, int, unsigned, struct statx *))
    const bool fails = path[0] == '/' ? due_path("stat", path) : due_file("stat", folder);
    return fails ? -1 : real(folder, path, flags, mask, status);
}

int flock(int fd, int operation)
{
    REAL(int, "flock", (int, int))
    return due_file("lock", fd) ? -1 : real(fd, operation);
}

static bool is_lock(int command)
{
    return command == F_SETLK || command == F_SETLKW || command == F_OFD_SETLK ||
           command == F_OFD_SETLKW;
}

#define CONTROL(name)                                                                              \
    int name(int fd, int command, ...)                                                             \
    {                                                                                              \
        REAL(int, #name, (int, int, ...))                                                          \
        va_list rest;                                                                              \
        va_start(rest, command);                                                                   \
        void *argument = va_arg(rest, void *);                                                     \
        va_end(rest);                                                                              \
        return is_lock(command) && due_file("lock", fd) ? -1 : real(fd, command, argument);        \
    }

CONTROL(fcntl)
CONTROL(fcntl64)

int rename(const char *from, const char *to)
{
    REAL(int, "rename", (const char *, const char *))
    return due_path("rename", from) ? -1 : real(from, to);
}

int link(const char *from, const char *to)
{
    REAL(int, "link", (const char *, const char *))
    return due_path("rename", from) ? -1 : real(from, to);
}

int fsync(int fd)
{
    REAL(int, "fsync", (int))
    return due_file("sync", fd) ? -1 : real(fd);
}

int fdatasync(int fd)
{
    REAL(int, "fdatasync", (int))
    return due_file("sync", fd) ? -1 : real(fd);
}

int unlink(const char *path)
{
    REAL(int, "unlink", (const char *))
    return due_path("unlink", path) ? -1 : real(path);
}

int remove(const char *path)
{
    REAL(int, "remove", (const char *))
    return due_path("unlink", path) ? -1 : real(path);
}

int ftruncate(int fd, off_t size)
{
    REAL(int, "ftruncate", (int, off_t))
    return due_file("truncate", fd) ? -1 : real(fd, size);
}

int ftruncate64(int fd, off64_t size)
{
    REAL(int, "ftruncate64", (int, off64_t))
    return due_file("truncate", fd) ? -1 : real(fd, size);
}

off_t lseek(int fd, off_t offset, int whence)
{
    REAL(off_t, "lseek", (int, off_t, int))
    return due_file("seek", fd) ? -1 : real(fd, offset, whence);
}
