// What all writers have in common: a record with a type, an implementation and three functions. The
// calls check the record and pass on to the implementation.
#include <cstdlib>

#include <vesk/writer.h>

#include "io/memory_writer.hpp"
#include "io/writer_internal.hpp"
#include "support/object.hpp"
#include "support/precondition.hpp"

int _writer_init(writer *w, uint32_t type)
{
    VESK_REQUIRE(w != nullptr, "writer != ((void *)0)");
    VESK_REQUIRE(type > 0, "type > 0");
    w->version = 1;
    w->type = type;
    w->writer = nullptr;
    return 0;
}

void _writer_destruct(writer *w)
{
    VESK_REQUIRE(w != nullptr, "writer != ((void *)0)");
    VESK_REQUIRE(w->version == 1, "writer->version == ((char) 1)");
    w->version = 0;
    w->type = 0;
}

void writer_destruct(writer *w)
{
    VESK_REQUIRE(w != nullptr, "writer != ((void *)0)");
    VESK_REQUIRE(w->version == 1, "writer->version == ((char) 1)");
    VESK_REQUIRE(w->fn_destruct != nullptr, "writer->fn_destruct != ((void *)0)");
    VESK_REQUIRE(w->writer != nullptr, "writer->writer != ((void *)0)");
    // The writer is marked dead before its implementation is destroyed, so that nobody uses it in
    // between.
    _writer_destruct(w);
    w->fn_destruct(w->writer);
    free(w->writer);
    w->writer = nullptr;
}

void writer_destroy(writer **w)
{
    VESK_REQUIRE(w != nullptr, "writer != ((void *)0)");
    VESK_REQUIRE(*w != nullptr, "*writer != ((void *)0)");
    destroy_object(w, writer_destruct);
}

int writer_write_bytes(writer *w, const void *buf, uint32_t n)
{
    VESK_REQUIRE(w != nullptr, "writer != ((void *)0)");
    VESK_REQUIRE(w->version == 1, "writer->version == ((char) 1)");
    VESK_REQUIRE(w->fn_write_bytes != nullptr, "writer->fn_write_bytes != ((void *)0)");
    VESK_REQUIRE(w->writer != nullptr, "writer->writer != ((void *)0)");
    VESK_REQUIRE(buf != nullptr, "buf != ((void *)0)");
    return w->fn_write_bytes(w->writer, buf, n);
}

int writer_flush(writer *w)
{
    VESK_REQUIRE(w != nullptr, "writer != ((void *)0)");
    VESK_REQUIRE(w->version == 1, "writer->version == ((char) 1)");
    VESK_REQUIRE(w->fn_flush != nullptr, "writer->fn_flush != ((void *)0)");
    VESK_REQUIRE(w->writer != nullptr, "writer->writer != ((void *)0)");
    return w->fn_flush(w->writer);
}

bool _writer_takes_blocks(const writer *w)
{
    return w->fn_write_bytes == _raw_writer_write_bytes ||
           w->fn_write_bytes == _zlib_writer_write_bytes ||
           w->fn_write_bytes == byte_list_writer::append;
}
