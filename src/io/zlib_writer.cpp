// A compressed file is a sequence of complete zlib streams, one per flush, with nothing between
// them:
//
//   size    field
//   2       header 78 9C: deflate, 32 KB window, default level
//   varies  deflate data
//   4       Adler-32 of the uncompressed bytes, big-endian
//
// The end of each stream is a savepoint: up to there the file decodes without what follows.
#include <cstring>
#include <zlib.h>

#include <vesk/error.h>
#include <vesk/zlib_writer.h>

#include "io/writer_internal.hpp"
#include "io/zlib_format.hpp"
#include "io/zlib_memory.hpp"
#include "support/object.hpp"
#include "support/precondition.hpp"

struct zwriter {
    char version;
    uint8_t in[zlib_block_size];
    uint32_t i_in; // bytes used in `in`
    struct writer *writer;
    int initialised; // a zlib stream is open
    int err;         // the zlib error that killed the stream
    z_stream zstrm;
    zlib_memory memory;
};

static zwriter *_live(void *implementation)
{
    auto *zwriter = static_cast<struct zwriter *>(implementation);
    VESK_REQUIRE(zwriter != nullptr, "zwriter != ((void *)0)");
    VESK_REQUIRE(zwriter->version == 1, "zwriter->version == ((char) 1)");
    VESK_REQUIRE(zwriter->writer != nullptr, "zwriter->writer != ((void *)0)");
    VESK_REQUIRE(zwriter->i_in <= sizeof zwriter->in, "zwriter->i_in <= sizeof (zwriter->in)");
    return zwriter;
}

static int _die(struct zwriter *zwriter, int zlib_error)
{
    zwriter->err = zlib_error;
    return QE_ERROR_COMPRESSION;
}

static int _open_stream(struct zwriter *zwriter)
{
    zlib_memory_attach(&zwriter->memory, &zwriter->zstrm);
    const int result = deflateInit_(&zwriter->zstrm, Z_DEFAULT_COMPRESSION, zlib_interface_version,
                                    zlib_stream_size);
    if (result != Z_OK) {
        // A dead writer cannot be destroyed any more, so it must keep as little memory as possible.
        zlib_memory_release(&zwriter->memory);
        return _die(zwriter, result);
    }
    zwriter->initialised = 1;
    return 0;
}

static void _close_stream(struct zwriter *zwriter)
{
    if (zwriter->initialised != 0) {
        deflateEnd(&zwriter->zstrm);
        zwriter->initialised = 0;
    }
}

// Compresses what is buffered. Returns the bytes that the underlying writer reported.
static int _zlib_writer_compress(struct zwriter *zwriter, int flush)
{
    VESK_REQUIRE(zwriter->err == 0, "zwriter->err == 0");
    VESK_REQUIRE(flush == Z_NO_FLUSH || flush == Z_FINISH, "flush == 0 || flush == 4");
    if (zwriter->i_in == 0) {
        return 0;
    }
    if (zwriter->initialised == 0) {
        const int result = _open_stream(zwriter);
        if (result < 0) {
            return result;
        }
    }
    z_stream *zstrm = &zwriter->zstrm;
    zstrm->next_in = zwriter->in;
    zstrm->avail_in = zwriter->i_in;
    int total = 0;
    do {
        uint8_t out[zlib_block_size];
        zstrm->next_out = out;
        zstrm->avail_out = sizeof out;
        if (deflate(zstrm, flush) == Z_STREAM_ERROR) {
            return _die(zwriter, Z_STREAM_ERROR);
        }
        const auto produced = static_cast<uint32_t>(sizeof out - zstrm->avail_out);
        const int written = writer_write_bytes(zwriter->writer, out, produced);
        if (written < 0) {
            // The stream is torn, the writer is not dead: the next write opens a new stream.
            _close_stream(zwriter);
            return written;
        }
        total += written;
    } while (zstrm->avail_out == 0);
    VESK_REQUIRE(zstrm->avail_in == 0, "zwriter->zstrm.avail_in == 0");
    return total;
}

int _zlib_writer_write_bytes(void *implementation, const void *buffer, uint32_t n)
{
    struct zwriter *zwriter = _live(implementation);
    VESK_REQUIRE(buffer != nullptr, "buffer != ((void *)0)");
    const auto *bytes = static_cast<const uint8_t *>(buffer);
    uint32_t nbytes = n;
    int total = 0;
    // A full block stays buffered until more follows, so that a flush always finds something.
    while (nbytes > sizeof zwriter->in - zwriter->i_in) {
        const auto n_fragment_bytes = static_cast<uint32_t>(sizeof zwriter->in - zwriter->i_in);
        VESK_REQUIRE(n_fragment_bytes < nbytes, "n_fragment_bytes < nbytes");
        memcpy(zwriter->in + zwriter->i_in, bytes, n_fragment_bytes);
        zwriter->i_in = sizeof zwriter->in;
        bytes += n_fragment_bytes;
        nbytes -= n_fragment_bytes;
        const int written = _zlib_writer_compress(zwriter, Z_NO_FLUSH);
        zwriter->i_in = 0;
        if (written < 0) {
            return written;
        }
        total += written;
    }
    memcpy(zwriter->in + zwriter->i_in, bytes, nbytes);
    zwriter->i_in += nbytes;
    return total;
}

static int _zlib_writer_flush(void *implementation)
{
    struct zwriter *zwriter = _live(implementation);
    const bool empty = zwriter->i_in == 0;
    const int result = _zlib_writer_compress(zwriter, Z_FINISH);
    // Without input the stream is not finished, and ending it would lose what zlib still holds.
    if (!empty) {
        _close_stream(zwriter);
        zwriter->i_in = 0;
    }
    return result;
}

void _zlib_writer_abandon(writer *w)
{
    struct zwriter *zwriter = _live(w->writer);
    _close_stream(zwriter);
    zwriter->i_in = 0;
    zwriter->err = 0;
}

static int _zlib_writer_destruct(void *implementation)
{
    struct zwriter *zwriter = _live(implementation);
    const int result = _zlib_writer_flush(zwriter);
    writer_destroy(&zwriter->writer);
    zlib_memory_release(&zwriter->memory);
    *zwriter = {};
    return result;
}

int zlib_writer_init(writer *w, writer *writer_base)
{
    VESK_REQUIRE(w != nullptr, "w != ((void *)0)");
    VESK_REQUIRE(writer_base != nullptr, "writer_base != ((void *)0)");
    auto *zwriter = allocate_zeroed<struct zwriter>(1);
    if (zwriter == nullptr) {
        return QE_ERROR_NO_MEMORY;
    }
    zwriter->version = 1;
    zwriter->writer = writer_base;
    _writer_init(w, WRITER_TYPE_ZLIB);
    w->writer = zwriter;
    w->fn_destruct = _zlib_writer_destruct;
    w->fn_write_bytes = _zlib_writer_write_bytes;
    w->fn_flush = _zlib_writer_flush;
    return 0;
}

writer *zlib_writer_create(writer *writer_base)
{
    VESK_REQUIRE(writer_base != nullptr, "writer_base != ((void *)0)");
    return create_object<writer>([=](writer *w) { return zlib_writer_init(w, writer_base); });
}
