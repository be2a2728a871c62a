// What all readers have in common: a record with a type, an implementation and three functions. The
// calls check the record and pass on to the implementation.
#include <cstdlib>

#include <vesk/reader.h>

#include "io/reader_internal.hpp"
#include "support/object.hpp"
#include "support/precondition.hpp"

int _reader_init(reader *r, uint32_t type)
{
    VESK_REQUIRE(r != nullptr, "reader != ((void *)0)");
    VESK_REQUIRE(type > 0, "type > 0");
    r->version = 1;
    r->type = type;
    r->reader = nullptr;
    return 0;
}

void _reader_destruct(reader *r)
{
    VESK_REQUIRE(r != nullptr, "reader != ((void *)0)");
    VESK_REQUIRE(r->version == 1, "reader->version == ((char) 1)");
    r->version = 0;
    r->type = 0;
}

void reader_destruct(reader *r)
{
    VESK_REQUIRE(r != nullptr, "reader != ((void *)0)");
    VESK_REQUIRE(r->version == 1, "reader->version == ((char) 1)");
    VESK_REQUIRE(r->fn_destruct != nullptr, "reader->fn_destruct != ((void *)0)");
    // The reader is marked dead before its implementation is destroyed, so that nobody uses it in
    // between.
    _reader_destruct(r);
    r->fn_destruct(r->reader);
    free(r->reader);
    r->reader = nullptr;
}

void reader_destroy(reader **r)
{
    VESK_REQUIRE(r != nullptr, "reader != ((void *)0)");
    VESK_REQUIRE(*r != nullptr, "*reader != ((void *)0)");
    destroy_object(r, reader_destruct);
}

int reader_read_bytes(reader *r, void *buf, uint32_t n)
{
    VESK_REQUIRE(r != nullptr, "reader != ((void *)0)");
    VESK_REQUIRE(r->version == 1, "reader->version == ((char) 1)");
    VESK_REQUIRE(r->fn_read_bytes != nullptr, "reader->fn_read_bytes != ((void *)0)");
    VESK_REQUIRE(buf != nullptr, "buf != ((void *)0)");
    return r->fn_read_bytes(r->reader, buf, n);
}

int reader_eof(reader *r)
{
    VESK_REQUIRE(r != nullptr, "reader != ((void *)0)");
    VESK_REQUIRE(r->version == 1, "reader->version == ((char) 1)");
    VESK_REQUIRE(r->fn_eof != nullptr, "reader->fn_eof != ((void *)0)");
    return r->fn_eof(r->reader);
}

bool _reader_gives_blocks(const reader *r)
{
    return r->fn_read_bytes == _raw_reader_read_bytes ||
           r->fn_read_bytes == _zlib_reader_read_bytes ||
           r->fn_read_bytes == _memory_reader_read_bytes ||
           r->fn_read_bytes == _reporting_reader_read_bytes;
}
