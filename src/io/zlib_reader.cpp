// Reads across a sequence of complete zlib streams (see zlib_writer.cpp) as if it were one, and
// remembers where the last complete one ended. A damaged stream kills the reader.
#include <zlib.h>

#include <vesk/error.h>
#include <vesk/zlib_reader.h>

#include "io/reader_internal.hpp"
#include "io/zlib_format.hpp"
#include "io/zlib_memory.hpp"
#include "support/object.hpp"
#include "support/precondition.hpp"

struct zreader {
    char version;
    uint8_t in[zlib_block_size];
    int initialised; // a zlib stream is open
    struct reader *reader;
    uint32_t consumed;       // compressed bytes that inflate took
    uint32_t last_savepoint; // `consumed` at the end of the last complete stream
    int err;                 // the zlib error that killed the stream
    z_stream zstrm;          // its avail_out tells between reads whether the last one was filled
    zlib_memory memory;
};

static zreader *_live(void *implementation)
{
    auto *zreader = static_cast<struct zreader *>(implementation);
    VESK_REQUIRE(zreader != nullptr, "zreader != ((void *)0)");
    VESK_REQUIRE(zreader->version == 1, "zreader->version == ((char) 1)");
    VESK_REQUIRE(zreader->reader != nullptr, "zreader->reader != ((void *)0)");
    return zreader;
}

static int _die(struct zreader *zreader, int zlib_error)
{
    zreader->err = zlib_error;
    return QE_ERROR_IO;
}

// Input left over from the stream before is fed to the new one.
static int _open_stream(struct zreader *zreader)
{
    zlib_memory_attach(&zreader->memory, &zreader->zstrm);
    const int result = inflateInit_(&zreader->zstrm, zlib_interface_version, zlib_stream_size);
    if (result != Z_OK) {
        return _die(zreader, result);
    }
    zreader->initialised = 1;
    return 0;
}

static void _close_stream(struct zreader *zreader)
{
    if (zreader->initialised != 0) {
        inflateEnd(&zreader->zstrm);
        zreader->initialised = 0;
    }
}

// Returns what the source returned, 1 when there was no need to ask it.
static int _fetch_input(struct zreader *zreader)
{
    z_stream *zstrm = &zreader->zstrm;
    // A filled buffer means that zlib may still hold output: that comes before more input.
    if (zstrm->avail_in > 0 || zstrm->avail_out == 0) {
        return 1;
    }
    const int nread = reader_read_bytes(zreader->reader, zreader->in, sizeof zreader->in);
    if (nread > 0) {
        zstrm->next_in = zreader->in;
        zstrm->avail_in = static_cast<uInt>(nread);
    }
    return nread;
}

// One step of zlib into `out`. Returns the bytes produced or a negative code.
static int _inflate(struct zreader *zreader, uint8_t *out, uint32_t size)
{
    z_stream *zstrm = &zreader->zstrm;
    const uInt available = zstrm->avail_in;
    zstrm->next_out = out;
    zstrm->avail_out = size;
    const int result = inflate(zstrm, Z_NO_FLUSH);
    switch (result) {
    case Z_DATA_ERROR:
    case Z_MEM_ERROR:
    case Z_NEED_DICT:
        _close_stream(zreader);
        return _die(zreader, result);
    case Z_STREAM_ERROR:
        return _die(zreader, result);
    default:
        break;
    }
    zreader->consumed += available - zstrm->avail_in;
    if (result == Z_STREAM_END) {
        _close_stream(zreader);
        zreader->last_savepoint = zreader->consumed;
    }
    return static_cast<int>(size - zstrm->avail_out);
}

int _zlib_reader_read_bytes(void *implementation, void *buffer, uint32_t n)
{
    struct zreader *zreader = _live(implementation);
    VESK_REQUIRE(zreader->err == 0, "zreader->err == 0");
    VESK_REQUIRE(buffer != nullptr, "buffer != ((void *)0)");
    auto *bytes = static_cast<uint8_t *>(buffer);
    uint32_t total = 0;
    while (total < n) {
        if (zreader->initialised == 0 && _open_stream(zreader) < 0) {
            return QE_ERROR_IO;
        }
        const int fetched = _fetch_input(zreader);
        if (fetched < 0) {
            return fetched;
        }
        if (fetched == 0) {
            VESK_REQUIRE(reader_eof(zreader->reader), "reader_eof (zreader->reader)");
            break;
        }
        const int produced = _inflate(zreader, bytes + total, n - total);
        if (produced < 0) {
            return produced;
        }
        total += static_cast<uint32_t>(produced);
    }
    return static_cast<int>(total);
}

static int _zlib_reader_eof(void *implementation)
{
    struct zreader *zreader = _live(implementation);
    if (zreader->zstrm.avail_in > 0 || zreader->zstrm.avail_out == 0) {
        return 0;
    }
    return reader_eof(zreader->reader);
}

static int _zlib_reader_destruct(void *implementation)
{
    struct zreader *zreader = _live(implementation);
    _close_stream(zreader);
    reader_destroy(&zreader->reader);
    zlib_memory_release(&zreader->memory);
    *zreader = {};
    return 0;
}

int zlib_reader_init(reader *r, reader *reader_base)
{
    VESK_REQUIRE(r != nullptr, "r != ((void *)0)");
    VESK_REQUIRE(reader_base != nullptr, "reader_base != ((void *)0)");
    auto *zreader = allocate_zeroed<struct zreader>(1);
    if (zreader == nullptr) {
        return QE_ERROR_NO_MEMORY;
    }
    zreader->version = 1;
    zreader->reader = reader_base;
    zreader->zstrm.avail_out = UINT32_MAX;
    _reader_init(r, READER_TYPE_ZLIB);
    r->reader = zreader;
    r->fn_destruct = _zlib_reader_destruct;
    r->fn_read_bytes = _zlib_reader_read_bytes;
    r->fn_eof = _zlib_reader_eof;
    return 0;
}

reader *zlib_reader_create(reader *reader_base)
{
    VESK_REQUIRE(reader_base != nullptr, "reader_base != ((void *)0)");
    return create_object<reader>([=](reader *r) { return zlib_reader_init(r, reader_base); });
}

uint32_t zlib_reader_get_last_savepoint(const reader *r)
{
    VESK_REQUIRE(r != nullptr, "reader != ((void *)0)");
    VESK_REQUIRE(r->version == 1, "reader->version == ((char) 1)");
    VESK_REQUIRE(r->type == READER_TYPE_ZLIB, "reader->type == READER_TYPE_ZLIB");
    return _live(r->reader)->last_savepoint;
}
