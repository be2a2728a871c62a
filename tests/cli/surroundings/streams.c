/*
 * The functions of stdio. They are replaced as such: the calls that they make stay inside the C
 * library.
 */
#define _GNU_SOURCE
#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdio_ext.h>
#include <sys/types.h>

#include "plan.h"

/* What the C library calls the flag of a stream that had an error is not public. */
#define ERROR_SEEN 0x20

static void mark(FILE *stream)
{
    stream->_flags |= ERROR_SEEN;
}

/* What a stream cannot write it forgets. */
static void lose(FILE *stream)
{
    const int before = errno;
    __fpurge(stream);
    errno = before;
    mark(stream);
}

/* A stream asks for the rest itself when it is given a part, so there are no short reads. */
size_t fread(void *restrict to, size_t size, size_t count, FILE *restrict stream)
{
    REAL(size_t, "fread", (void *, size_t, size_t, FILE *))
    if (!plan.is_short && due_file("read", fileno(stream))) {
        mark(stream);
        return 0;
    }
    return real(to, size, count, stream);
}

char *fgets(char *restrict to, int size, FILE *restrict stream)
{
    REAL(char *, "fgets", (char *, int, FILE *))
    if (!plan.is_short && due_file("read", fileno(stream))) {
        mark(stream);
        return NULL;
    }
    return real(to, size, stream);
}

#define CHARACTER_READER(name)                                                                     \
    int name(FILE *stream)                                                                         \
    {                                                                                              \
        REAL(int, #name, (FILE *))                                                                 \
        if (!plan.is_short && due_file("read", fileno(stream))) {                                  \
            mark(stream);                                                                          \
            return EOF;                                                                            \
        }                                                                                          \
        return real(stream);                                                                       \
    }

CHARACTER_READER(getc)
CHARACTER_READER(fgetc)

static int real_flush(FILE *stream)
{
    REAL(int, "fflush", (FILE *))
    return real(stream);
}

/* A stream that can write a part only meets an error with the rest. */
size_t fwrite(const void *restrict from, size_t size, size_t count, FILE *restrict stream)
{
    REAL(size_t, "fwrite", (const void *, size_t, size_t, FILE *))
    if (due_file("write", fileno(stream))) {
        const size_t written = plan.is_short ? real(from, 1, size * count / 2, stream) : 0;
        if (plan.is_short) {
            (void)real_flush(stream);
        }
        lose(stream);
        errno = plan.error;
        return size > 0 ? written / size : 0;
    }
    return real(from, size, count, stream);
}

#define CHARACTER_WRITER(name)                                                                     \
    int name(int character, FILE *stream)                                                          \
    {                                                                                              \
        REAL(int, #name, (int, FILE *))                                                            \
        if (due_file("write", fileno(stream))) {                                                   \
            lose(stream);                                                                          \
            return EOF;                                                                            \
        }                                                                                          \
        return real(character, stream);                                                            \
    }

CHARACTER_WRITER(putc)
CHARACTER_WRITER(fputc)

int fputs(const char *restrict text, FILE *restrict stream)
{
    REAL(int, "fputs", (const char *, FILE *))
    if (due_file("write", fileno(stream))) {
        lose(stream);
        return EOF;
    }
    return real(text, stream);
}

int fprintf(FILE *restrict stream, const char *restrict format, ...)
{
    if (due_file("write", fileno(stream))) {
        lose(stream);
        return -1;
    }
    va_list arguments;
    va_start(arguments, format);
    const int result = vfprintf(stream, format, arguments);
    va_end(arguments);
    return result;
}

int fflush(FILE *stream)
{
    if (stream != NULL && due_file("write", fileno(stream))) {
        lose(stream);
        return EOF;
    }
    return real_flush(stream);
}

#define STREAM_OPENER(name)                                                                        \
    FILE *name(const char *restrict path, const char *restrict mode)                               \
    {                                                                                              \
        REAL(FILE *, #name, (const char *, const char *))                                          \
        return due_path("open", path) ? NULL : real(path, mode);                                   \
    }

STREAM_OPENER(fopen)
STREAM_OPENER(fopen64)

int fclose(FILE *stream)
{
    REAL(int, "fclose", (FILE *))
    const bool is_unwritten = __fpending(stream) > 0 && due_file("write", fileno(stream));
    const bool fails = is_unwritten || due_file("close", fileno(stream));
    if (is_unwritten) {
        __fpurge(stream);
    }
    const int result = real(stream);
    errno = fails ? plan.error : errno;
    return fails ? EOF : result;
}

#define STREAM_SEEKER(name, type)                                                                  \
    int name(FILE *stream, type offset, int whence)                                                \
    {                                                                                              \
        REAL(int, #name, (FILE *, type, int))                                                      \
        return due_file("seek", fileno(stream)) ? -1 : real(stream, offset, whence);               \
    }
#define STREAM_TELLER(name, type)                                                                  \
    type name(FILE *stream)                                                                        \
    {                                                                                              \
        REAL(type, #name, (FILE *))                                                                \
        return due_file("seek", fileno(stream)) ? -1 : real(stream);                               \
    }

STREAM_SEEKER(fseek, long)
STREAM_SEEKER(fseeko, off_t)
STREAM_SEEKER(fseeko64, off64_t)
STREAM_TELLER(ftell, long)
STREAM_TELLER(ftello, off_t)
STREAM_TELLER(ftello64, off64_t)
