// Reads across a sequence of complete zlib streams (see zlib_writer.cpp) as if it were one, and
// remembers where the last complete one ended. A damaged stream kills the reader.
//
// Records are read field by field, a few bytes a call, and a call of inflate() alone takes about
// 500 instructions, as many as 15 bytes of telemetry (counted with callgrind, zlib 1.2.13). So
// small reads are served from a block that is inflated in one call, from input that is there
// already. What zlib says behind the block waits until the caller has taken its last byte:
// savepoints, errors and the end, and what the source is asked, come in the same read as if zlib
// had been asked for those bytes alone.
#include <algorithm>
#include <string.h>
#include <zlib.h>

#include <vesk/error.h>
#include <vesk/zlib_reader.h>

#include "io/reader_internal.hpp"
#include "io/zlib_format.hpp"
#include "io/zlib_memory.hpp"
#include "support/object.hpp"
#include "support/precondition.hpp"

// From here on a read goes straight into the caller's buffer: to inflate so many bytes of telemetry
// takes about 16 times as long as the call alone.
static constexpr uint32_t direct_read = 256;

struct zreader {
    zlib_held_bytes held; // what the caller has not taken yet
    uint8_t in[zlib_block_size];
    int initialised; // a zlib stream is open
    struct reader *reader;
    uint32_t consumed;       // compressed bytes that inflate took
    uint32_t last_savepoint; // `consumed` at the end of the last complete stream
    int err;                 // the zlib error that killed the stream
    z_stream zstrm;          // its avail_out tells whether the last call filled its output
    int block_result;        // what zlib said behind `held` and nobody has seen yet; else Z_OK
    int filled;              // the last read filled the buffer of the caller
    zlib_memory memory;
};

static zreader *_live(void *implementation)
{
    auto *zreader = static_cast<struct zreader *>(implementation);
    VESK_REQUIRE(zreader != nullptr, "zreader != ((void *)0)");
    VESK_REQUIRE(zreader->held.version == 1, "zreader->version == ((char) 1)");
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

// One step of zlib into `out`. Returns what zlib said; *produced is the number of bytes that came.
static int _inflate(struct zreader *zreader, uint8_t *out, uint32_t size, uint32_t *produced)
{
    z_stream *zstrm = &zreader->zstrm;
    const uInt available = zstrm->avail_in;
    zstrm->next_out = out;
    zstrm->avail_out = size;
    const int result = inflate(zstrm, Z_NO_FLUSH);
    zreader->consumed += available - zstrm->avail_in;
    *produced = size - zstrm->avail_out;
    return result;
}

// Draws the conclusions from what zlib said. Returns 0 or a negative code.
static int _settle(struct zreader *zreader, int result)
{
    switch (result) {
    case Z_DATA_ERROR:
    case Z_MEM_ERROR:
    case Z_NEED_DICT:
        _close_stream(zreader);
        return _die(zreader, result);
    case Z_STREAM_ERROR:
        return _die(zreader, result);
    case Z_STREAM_END:
        _close_stream(zreader);
        zreader->last_savepoint = zreader->consumed;
        return 0;
    default:
        return 0;
    }
}

static uint32_t _held(const struct zreader *zreader)
{
    return zreader->held.end - zreader->held.next;
}

// True if what zlib said behind some bytes shows in the read that takes the last of them. Only a
// match that begins before the content is seen no earlier than its first byte is wanted.
static bool _shows_with_last_byte(const struct zreader *zreader, int result)
{
    const char *message = zreader->zstrm.msg;
    return result != Z_DATA_ERROR || message == nullptr ||
           strcmp(message, "invalid distance too far back") != 0;
}

// As _settle(), behind bytes that a read has taken: *total counts those before the one that fails.
static int _settle_behind(struct zreader *zreader, int result, uint32_t *total)
{
    const int settled = _settle(zreader, result);
    if (settled < 0 && _shows_with_last_byte(zreader, result)) {
        *total -= 1;
    }
    return settled;
}

static int _settle_block(struct zreader *zreader, uint32_t *total)
{
    const int result = zreader->block_result;
    zreader->block_result = Z_OK;
    return _settle_behind(zreader, result, total);
}

// Inflates the next block. Nothing of it is kept when zlib has no memory: that would have failed
// the first byte, too.
static int _inflate_block(struct zreader *zreader)
{
    uint32_t produced = 0;
    const int result =
        _inflate(zreader, zreader->held.bytes, sizeof zreader->held.bytes, &produced);
    zreader->held.next = 0;
    zreader->held.end = produced;
    if (produced > 0 && (result == Z_STREAM_END || result == Z_DATA_ERROR)) {
        zreader->block_result = result;
        return 0;
    }
    const int settled = _settle(zreader, result);
    if (settled < 0) {
        zreader->held.end = 0;
    }
    return settled;
}

static int _inflate_directly(struct zreader *zreader, uint8_t *out, uint32_t size, uint32_t *total)
{
    uint32_t produced = 0;
    const int result = _inflate(zreader, out, size, &produced);
    *total += produced;
    zreader->filled = produced == size ? 1 : 0;
    return produced > 0 ? _settle_behind(zreader, result, total) : _settle(zreader, result);
}

// Hands out of the block what is wanted of it, and returns how much.
static uint32_t _take_held(struct zreader *zreader, uint8_t *out, uint32_t size)
{
    const uint32_t n = std::min(size, _held(zreader));
    memcpy(out, zreader->held.bytes + zreader->held.next, n);
    zreader->held.next += n;
    return n;
}

// Reads on where nothing is held: at most `size` bytes to `out`, or a block. *total grows by what
// came to `out`; behind a failure it counts what could be read without it. Returns what the source
// returned or a negative code; 0 at the end of the source.
static int _read_on(struct zreader *zreader, uint8_t *out, uint32_t size, uint32_t *total)
{
    if (zreader->block_result != Z_OK) {
        zreader->filled = 0;
        const int result = _settle_block(zreader, total);
        if (result < 0) {
            return result;
        }
    }
    if (zreader->initialised == 0 && _open_stream(zreader) < 0) {
        return QE_ERROR_IO;
    }
    zreader->filled = 0;
    const int fetched = _fetch_input(zreader);
    if (fetched <= 0) {
        return fetched;
    }
    const int result = size >= direct_read ? _inflate_directly(zreader, out, size, total)
                                           : _inflate_block(zreader);
    return result < 0 ? result : fetched;
}

int _zlib_reader_read_bytes(void *implementation, void *buffer, uint32_t n)
{
    struct zreader *zreader = _live(implementation);
    VESK_REQUIRE(zreader->err == 0, "zreader->err == 0");
    VESK_REQUIRE(buffer != nullptr, "buffer != ((void *)0)");
    auto *bytes = static_cast<uint8_t *>(buffer);
    uint32_t total = _take_held(zreader, bytes, n);
    if (_held(zreader) > 0) {
        return static_cast<int>(total);
    }
    while (total < n) {
        const int result = _read_on(zreader, bytes + total, n - total, &total);
        if (result < 0) {
            zreader->held.came = total;
            return result;
        }
        if (result == 0) {
            VESK_REQUIRE(reader_eof(zreader->reader), "reader_eof (zreader->reader)");
            return static_cast<int>(total);
        }
        total += _take_held(zreader, bytes + total, n - total);
    }
    if (n > 0) {
        zreader->filled = 1;
    }
    if (_held(zreader) == 0 && _shows_with_last_byte(zreader, zreader->block_result)) {
        const int result = _settle_block(zreader, &total);
        if (result < 0) {
            zreader->held.came = total;
            return result;
        }
    }
    return static_cast<int>(total);
}

static int _zlib_reader_eof(void *implementation)
{
    struct zreader *zreader = _live(implementation);
    if (zreader->zstrm.avail_in > 0 || zreader->filled != 0) {
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
    zreader->held.version = 1;
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
