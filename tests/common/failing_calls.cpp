#include "common/failing_calls.hpp"

#include <cstddef>
#include <zlib.h>

// Counts down to the call that fails; 0 when none shall.
static int allocations_left = 0;
static bool allocations_fail_for_ever = false;
static bool allocation_failed = false;

static int zlib_calls_left = 0;
static int zlib_code = 0;

failing_allocation::failing_allocation(int n, duration how_long)
{
    allocations_left = n;
    allocations_fail_for_ever = how_long == for_ever;
    allocation_failed = false;
}

failing_allocation::~failing_allocation()
{
    allocations_left = 0;
}

bool failing_allocation::happened()
{
    return allocation_failed;
}

failing_zlib::failing_zlib(int n, int code)
{
    zlib_calls_left = n;
    zlib_code = code;
}

failing_zlib::~failing_zlib()
{
    zlib_calls_left = 0;
}

static bool _allocation_fails()
{
    if (allocations_left == 0 || --allocations_left > 0) {
        return false;
    }
    allocations_left = allocations_fail_for_ever ? 1 : 0;
    allocation_failed = true;
    return true;
}

static bool _zlib_fails()
{
    return zlib_calls_left > 0 && --zlib_calls_left == 0;
}

// The linker's names for the calls as written and for the functions that were meant.
extern "C" {
void *__real_malloc(size_t size);
void *__real_calloc(size_t count, size_t size);
char *__real_strdup(const char *text);
int __real_deflate(z_stream *stream, int flush);
int __real_inflate(z_stream *stream, int flush);

void *__wrap_malloc(size_t size)
{
    return _allocation_fails() ? nullptr : __real_malloc(size);
}

void *__wrap_calloc(size_t count, size_t size)
{
    return _allocation_fails() ? nullptr : __real_calloc(count, size);
}

char *__wrap_strdup(const char *text)
{
    return _allocation_fails() ? nullptr : __real_strdup(text);
}

int __wrap_deflate(z_stream *stream, int flush)
{
    return _zlib_fails() ? zlib_code : __real_deflate(stream, flush);
}

int __wrap_inflate(z_stream *stream, int flush)
{
    return _zlib_fails() ? zlib_code : __real_inflate(stream, flush);
}
}
