// A reader over a stdio stream. A read that fails looks like the end of the data; the end is known
// only after a read that came back short.
#include <vesk/error.h>
#include <vesk/raw_reader.h>

#include "io/raw_stream.hpp"
#include "io/reader_internal.hpp"
#include "support/precondition.hpp"

static raw_stream *_live(void *implementation)
{
    auto *r = static_cast<raw_stream *>(implementation);
    VESK_REQUIRE(r != nullptr, "reader != ((void *)0)");
    VESK_REQUIRE(r->version == 1, "reader->version == ((char) 1)");
    VESK_REQUIRE(r->fp != nullptr, "reader->fp != ((void *)0)");
    return r;
}

int _raw_reader_read_bytes(void *implementation, void *buffer, uint32_t n)
{
    raw_stream *stream = _live(implementation);
    VESK_REQUIRE(buffer != nullptr, "buffer != ((void *)0)");
    return static_cast<int>(fread(buffer, 1, n, stream->fp));
}

static int _raw_reader_eof(void *implementation)
{
    return feof(_live(implementation)->fp);
}

static int _raw_reader_destruct(void *implementation)
{
    return raw_stream_destruct(_live(implementation));
}

int raw_reader_init(reader *r, FILE *fp, uint32_t flags)
{
    VESK_REQUIRE(r != nullptr, "reader != ((void *)0)");
    VESK_REQUIRE(fp != nullptr, "fp != ((void *)0)");
    raw_stream *stream = raw_stream_create(fp, flags);
    if (stream == nullptr) {
        return QE_ERROR_NO_MEMORY;
    }
    _reader_init(r, READER_TYPE_RAW);
    r->reader = stream;
    r->fn_destruct = _raw_reader_destruct;
    r->fn_read_bytes = _raw_reader_read_bytes;
    r->fn_eof = _raw_reader_eof;
    return 0;
}

reader *raw_reader_create(FILE *fp, uint32_t flags)
{
    VESK_REQUIRE(fp != nullptr, "fp != ((void *)0)");
    return create_object<reader>([=](reader *r) { return raw_reader_init(r, fp, flags); });
}
