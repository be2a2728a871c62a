// Allocates memory for callers from the allocator of the system, so that free() may release it.
// They leave the last-error cell alone.
#include <cstdlib>
#include <cstring>

#include <vesk/memory.h>

#include "support/memory_internal.hpp"
#include "support/precondition.hpp"

void *_qe_malloc(size_t size)
{
    return malloc(size);
}

void *_qe_calloc(size_t count, size_t size)
{
    return calloc(count, size);
}

void _qe_free(void *ptr)
{
    free(ptr);
}

char *_qe_strdup(const char *str)
{
    return strdup(str);
}

void *qe_heapify(const void *p, size_t size)
{
    VESK_REQUIRE(p != nullptr, "p != ((void *)0)");
    void *copy = malloc(size);
    VESK_REQUIRE(copy != nullptr, "copy != ((void *)0)");
    return memcpy(copy, p, size);
}

// Negative until the environment has been read.
static int _qe_mem_level = -1;

int _qe_get_mem_level()
{
    if (_qe_mem_level < 0) {
        const char *level = getenv("QE_MEM_LEVEL");
        _qe_mem_level = level == nullptr ? 0 : atoi(level);
    }
    return _qe_mem_level;
}
