// A writer over a stdio stream. Every write is flushed to the operating system at once, so that a
// program that dies loses no record, and so that the write itself reports when a full disk refuses
// it.
#include <vesk/error.h>
#include <vesk/raw_writer.h>

#include "io/raw_stream.hpp"
#include "io/writer_internal.hpp"
#include "support/precondition.hpp"

static raw_stream *_live(void *implementation)
{
    auto *w = static_cast<raw_stream *>(implementation);
    VESK_REQUIRE(w != nullptr, "writer != ((void *)0)");
    VESK_REQUIRE(w->version == 1, "writer->version == ((char) 1)");
    VESK_REQUIRE(w->fp != nullptr, "writer->fp != ((void *)0)");
    return w;
}

int _raw_writer_write_bytes(void *implementation, const void *buffer, uint32_t n)
{
    raw_stream *stream = _live(implementation);
    VESK_REQUIRE(buffer != nullptr, "buffer != ((void *)0)");
    const bool taken = fwrite(buffer, 1, n, stream->fp) == n;
    // Every record reaches the file at once. On a full device the bytes often fail only here.
    const bool flushed = fflush(stream->fp) == 0;
    return taken && flushed ? static_cast<int>(n) : QE_ERROR_IO;
}

static int _raw_writer_flush(void *implementation)
{
    (void)fflush(_live(implementation)->fp);
    return 0;
}

static int _raw_writer_destruct(void *implementation)
{
    _raw_writer_flush(implementation);
    return raw_stream_destruct(_live(implementation));
}

int raw_writer_init(writer *w, FILE *fp, uint32_t flags)
{
    VESK_REQUIRE(w != nullptr, "writer != ((void *)0)");
    VESK_REQUIRE(fp != nullptr, "fp != ((void *)0)");
    raw_stream *stream = raw_stream_create(fp, flags);
    if (stream == nullptr) {
        return QE_ERROR_NO_MEMORY;
    }
    _writer_init(w, WRITER_TYPE_RAW);
    w->writer = stream;
    w->fn_destruct = _raw_writer_destruct;
    w->fn_write_bytes = _raw_writer_write_bytes;
    w->fn_flush = _raw_writer_flush;
    return 0;
}

writer *raw_writer_create(FILE *fp, uint32_t flags)
{
    VESK_REQUIRE(fp != nullptr, "fp != ((void *)0)");
    return create_object<writer>([=](writer *w) { return raw_writer_init(w, fp, flags); });
}
