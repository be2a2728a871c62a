// Every buffer file begins, inside its first compressed stream, with
//
//     offset  size  field
//          0     4  kind: 1 current buffer, 2 history buffer
//          4     1  version of the header, 1
//          5     4  capacity in sensor-values records
//          9        records of that kind
//
// Integers are big-endian. Each flush ends one zlib stream and the next write begins another, so a
// file is a sequence of complete zlib streams, one for each write that was acknowledged.
#include <fcntl.h>

#include <vesk/raw_reader.h>
#include <vesk/raw_writer.h>
#include <vesk/vesk_buffer.h>
#include <vesk/zlib_reader.h>
#include <vesk/zlib_writer.h>

#include "buffers/buffer_file.hpp"
#include "io/file_bytes.hpp"
#include "io/memory_reader.hpp"
#include "io/plain_open.hpp"
#include "io/reporting_reader.hpp"

// Destroying a stream leaves the file open: the buffer closes it.
static constexpr uint32_t keep_open = 1;

// A compressed stream over `base`, which it owns; destroys `base` without memory.
static reader *_create_reader_over(reader *base)
{
    owned<reader, reader_destroy> raw(base);
    if (!raw) {
        return nullptr;
    }
    reader *compressed = zlib_reader_create(raw.get());
    if (compressed != nullptr) {
        (void)raw.release();
    }
    return compressed;
}

reader *_vesk_buffer_create_reader(FILE *fp)
{
    return _create_reader_over(raw_reader_create(fp, keep_open));
}

writer *_vesk_buffer_create_writer(FILE *fp)
{
    owned<writer, writer_destroy> raw(raw_writer_create(fp, keep_open));
    if (!raw) {
        return nullptr;
    }
    writer *compressed = zlib_writer_create(raw.get());
    if (compressed != nullptr) {
        (void)raw.release();
    }
    return compressed;
}

static int _init(vesk_buffer *buf, uint32_t type, void *data)
{
    VESK_REQUIRE(buf != nullptr, "buf != ((void *)0)");
    buf->type = type;
    buf->data = data;
    buf->owns_data = 0;
    return 0;
}

int vesk_buffer_init_null(vesk_buffer *buf)
{
    return _init(buf, 0, nullptr);
}

int vesk_buffer_init_current_buffer(vesk_buffer *buf, vesk_current_buffer *cbuf)
{
    VESK_REQUIRE(buf != nullptr, "buf != ((void *)0)");
    VESK_REQUIRE(cbuf != nullptr, "cbuf != ((void *)0)");
    return _init(buf, VESK_BUFFER_TYPE_CURRENT, cbuf);
}

int vesk_buffer_init_hist_buffer(vesk_buffer *buf, vesk_hist_buffer *hbuf)
{
    VESK_REQUIRE(buf != nullptr, "buf != ((void *)0)");
    VESK_REQUIRE(hbuf != nullptr, "hbuf != ((void *)0)");
    return _init(buf, VESK_BUFFER_TYPE_HIST, hbuf);
}

void vesk_buffer_destruct(vesk_buffer *buf)
{
    VESK_REQUIRE(buf != nullptr, "buf != ((void *)0)");
    if (buf->owns_data != 0) {
        switch (buf->type) {
        case VESK_BUFFER_TYPE_CURRENT:
            vesk_current_buffer_close(&buf->cbuf);
            break;
        case VESK_BUFFER_TYPE_HIST:
            vesk_hist_buffer_close(&buf->hbuf);
            break;
        default:
            VESK_REQUIRE(false, "0");
        }
    }
    (void)_init(buf, 0, nullptr);
}

void vesk_buffer_destroy(vesk_buffer **buf)
{
    VESK_REQUIRE(buf != nullptr, "buf != ((void *)0)");
    VESK_REQUIRE(*buf != nullptr, "*buf != ((void *)0)");
    destroy_object(buf, vesk_buffer_destruct);
}

void vesk_buffer_detach(vesk_buffer *rec)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    VESK_REQUIRE(rec->type > 0, "rec->type > 0");
    VESK_REQUIRE(rec->data != nullptr, "rec->data != ((void *)0)");
    rec->owns_data = 0;
}

// Makes the object of the kind that the file declares. Returns 0; on failure `handle` stays null
// and `source` and `file` stay the caller's.
static int _open_by_kind(vesk_buffer *handle, const char *path, reader *source, FILE *file)
{
    uint32_t type = 0;
    const int nread = field_reader(source).u32(&type).result();
    if (nread <= 0) {
        return nread == 0 ? QE_ERROR_TRUNCATED : nread;
    }
    void *data = nullptr;
    switch (type) {
    case VESK_BUFFER_TYPE_CURRENT:
        data = _vesk_current_buffer_open(path, source, file);
        break;
    case VESK_BUFFER_TYPE_HIST:
        data = _vesk_hist_buffer_open(path, source, file);
        break;
    default:
        return QE_ERROR_UNKNOWN_KIND;
    }
    if (data == nullptr) {
        return qe_get_last_error();
    }
    (void)_init(handle, type, data);
    handle->owns_data = 1;
    return 0;
}

static owned_file _open_any_file(const char *path)
{
    return owned_file(fopen(path, "r+"));
}

static owned_file _open_plain_file(const char *path)
{
    return _vesk_open_plain_file(path, O_RDWR);
}

// What the buffer in `file` is read from; null with the code in the cell.
static reader *_create_source(FILE *file, file_reading reading)
{
    if (reading == file_reading::in_pieces) {
        return _vesk_buffer_create_reader(file);
    }
    if (reading == file_reading::reported) {
        return _create_reader_over(_reporting_reader_create(fileno(file)));
    }
    byte_list bytes;
    int result = _vesk_read_to_end(file, &bytes);
    // Where the file is appended to, the stream has to be told.
    if (result == 0 && fseeko(file, 0, SEEK_END) != 0) {
        result = QE_ERROR_IO;
    }
    if (result < 0) {
        qe_set_last_error(result);
        return nullptr;
    }
    return _create_reader_over(_memory_reader_create(&bytes));
}

static vesk_buffer *_open(const char *path, owned_file (*open_file)(const char *path),
                          file_reading reading)
{
    owned<vesk_buffer, vesk_buffer_destroy> handle(
        create_object<vesk_buffer>(vesk_buffer_init_null));
    if (!handle) {
        return nullptr;
    }
    owned_file file = open_file(path);
    if (!file) {
        qe_set_last_error(QE_ERROR_OPEN);
        return nullptr;
    }
    owned<reader, reader_destroy> source(_create_source(file.get(), reading));
    if (!source) {
        return nullptr;
    }
    const int result = _open_by_kind(handle.get(), path, source.get(), file.get());
    if (result < 0) {
        qe_set_last_error(result);
        return nullptr;
    }
    (void)source.release();
    (void)file.release();
    return handle.release();
}

vesk_buffer *vesk_buffer_open_for_read_write(const char *path)
{
    VESK_REQUIRE(path != nullptr, "path != ((void *)0)");
    return _open(path, _open_any_file, file_reading::in_pieces);
}

vesk_buffer *_vesk_buffer_open_plain(const char *path, file_reading reading)
{
    return _open(path, _open_plain_file, reading);
}

int binary_serializer_write_vesk_buffer(const vesk_buffer *buf, writer *target)
{
    VESK_REQUIRE(buf != nullptr, "buf != ((void *)0)");
    VESK_REQUIRE(target != nullptr, "writer != ((void *)0)");
    field_writer fields(target);
    fields.u32(buf->type);
    switch (buf->type) {
    case VESK_BUFFER_TYPE_CURRENT:
        return fields.form(binary_serializer_write_vesk_current_buffer, buf->cbuf).result();
    case VESK_BUFFER_TYPE_HIST:
        return fields.form(binary_serializer_write_vesk_hist_buffer, buf->hbuf).result();
    default:
        VESK_REQUIRE(false, "0");
        return fields.result();
    }
}
