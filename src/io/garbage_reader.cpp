// A reader that damages what it reads on purpose, for programs that test how they handle bad data.
// The numbers come from rand(), drawn in the order of the calls.
#include <cstdlib>

#include <vesk/error.h>
#include <vesk/garbage_reader.h>

#include "io/reader_internal.hpp"
#include "support/object.hpp"
#include "support/precondition.hpp"

struct garbage {
    char version;
    struct reader *reader;
    uint32_t nclean; // bytes that still pass unchanged
    int finished;
};

static garbage *_live(void *implementation)
{
    auto *r = static_cast<garbage *>(implementation);
    VESK_REQUIRE(r != nullptr, "reader != ((void *)0)");
    VESK_REQUIRE(r->version == 1, "reader->version == ((char) 1)");
    VESK_REQUIRE(r->reader != nullptr, "reader->reader != ((void *)0)");
    return r;
}

// A random byte that is not 0: XORed with it, every byte changes.
static uint8_t _draw_damage()
{
    uint8_t damage = 0;
    while (damage == 0) {
        damage = static_cast<uint8_t>(rand());
    }
    return damage;
}

static int _garbage_reader_read_bytes(void *implementation, void *buffer, uint32_t n)
{
    garbage *r = _live(implementation);
    VESK_REQUIRE(buffer != nullptr, "buffer != ((void *)0)");
    const int nread = reader_read_bytes(r->reader, buffer, n);
    if (nread < 0) {
        return nread;
    }
    const auto count = static_cast<uint32_t>(nread);
    if (count > 0 && count <= r->nclean) {
        r->nclean -= count;
        return nread;
    }
    if (count == 0) {
        VESK_REQUIRE(reader_eof(r->reader), "reader_eof (reader->reader)");
        // The reader invents data behind the end of the source, but ends at some point.
        if ((rand() & 63) == 0) {
            r->finished = 1;
        }
    }
    if (r->finished != 0) {
        return 0;
    }
    auto *bytes = static_cast<uint8_t *>(buffer);
    for (uint32_t i = r->nclean; i < n; ++i) {
        bytes[i] ^= _draw_damage();
    }
    r->nclean = 0;
    return static_cast<int>(n);
}

static int _garbage_reader_eof(void *implementation)
{
    return _live(implementation)->finished;
}

static int _garbage_reader_destruct(void *implementation)
{
    garbage *r = _live(implementation);
    reader_destroy(&r->reader);
    *r = {};
    return 0;
}

int garbage_reader_init(reader *r, reader *base_reader, uint32_t nclean)
{
    VESK_REQUIRE(r != nullptr, "r != ((void *)0)");
    VESK_REQUIRE(base_reader != nullptr, "base_reader != ((void *)0)");
    auto *implementation = allocate<garbage>();
    if (implementation == nullptr) {
        return QE_ERROR_NO_MEMORY;
    }
    *implementation = {1, base_reader, nclean, 0};
    _reader_init(r, READER_TYPE_GARBAGE);
    r->reader = implementation;
    r->fn_destruct = _garbage_reader_destruct;
    r->fn_read_bytes = _garbage_reader_read_bytes;
    r->fn_eof = _garbage_reader_eof;
    return 0;
}

reader *garbage_reader_create(reader *base_reader, uint32_t nclean)
{
    VESK_REQUIRE(base_reader != nullptr, "base_reader != ((void *)0)");
    return create_object<reader>(
        [=](reader *r) { return garbage_reader_init(r, base_reader, nclean); });
}
