// What both kinds of buffer file do alike, written once: making, opening, reading, appending to and
// closing a file. Where the kinds differ, buffer_kind says how.
#ifndef VESK_BUFFERS_BUFFER_FILE_HPP
#define VESK_BUFFERS_BUFFER_FILE_HPP

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <vesk/error.h>
#include <vesk/vesk_buffer.h>
#include <vesk/vesk_cb_record.h>
#include <vesk/vesk_current_buffer.h>
#include <vesk/vesk_hb_record.h>
#include <vesk/vesk_hist_buffer.h>

#include "buffers/buffer_internal.hpp"
#include "io/fields.hpp"
#include "support/object.hpp"
#include "support/owner.hpp"
#include "support/precondition.hpp"

// Both kinds of sensor-names record are one type, so working sets need no distinction.
using working_set_record = vesk_cb_record_sensor_names;

template <typename Buffer>
struct buffer_kind;

template <>
struct buffer_kind<vesk_current_buffer> {
    using record = vesk_cb_record;
    using values = vesk_cb_record_sensor_values;

    static constexpr uint32_t type = VESK_BUFFER_TYPE_CURRENT;
    static constexpr uint32_t names_type = VESK_CB_RECORD_SENSOR_NAMES;
    static constexpr uint32_t values_type = VESK_CB_RECORD_SENSOR_VALUES;
    static constexpr const char *at_end_text = "reader_eof (cbuf->reader)";

    static constexpr auto file = &vesk_current_buffer::file;
    static constexpr auto working_set = &vesk_current_buffer::sensor_working_set;

    static constexpr auto init_handle = vesk_buffer_init_current_buffer;
    static constexpr auto read_header = binary_serializer_read_vesk_current_buffer;
    static constexpr auto read_next_counted = vesk_current_buffer_read_record;
    static constexpr auto read_record = binary_serializer_read_vesk_cb_record;
    static constexpr auto write_record = binary_serializer_write_vesk_cb_record;
    static constexpr auto init_null_record = vesk_cb_record_init_null;
    static constexpr auto init_names_record = vesk_cb_record_init_sensor_names;
    static constexpr auto init_values_record = vesk_cb_record_init_sensor_values;
    static constexpr auto detach_record = vesk_cb_record_detach;
    static constexpr auto destruct_record = vesk_cb_record_destruct;
    static constexpr auto destruct_values = vesk_cb_record_sensor_values_destruct;
};

template <>
struct buffer_kind<vesk_hist_buffer> {
    using record = vesk_hb_record;
    using values = vesk_hb_record_sensor_values;

    static constexpr uint32_t type = VESK_BUFFER_TYPE_HIST;
    static constexpr uint32_t names_type = VESK_HB_RECORD_SENSOR_NAMES;
    static constexpr uint32_t values_type = VESK_HB_RECORD_SENSOR_VALUES;
    static constexpr const char *at_end_text = "reader_eof (hbuf->reader)";

    static constexpr auto file = &vesk_hist_buffer::fp;
    static constexpr auto working_set = &vesk_hist_buffer::hb_rec_sensors_last;

    static constexpr auto init_handle = vesk_buffer_init_hist_buffer;
    static constexpr auto read_header = binary_serializer_read_vesk_hist_buffer;
    static constexpr auto read_next_counted = vesk_hist_buffer_read_record;
    static constexpr auto read_record = binary_serializer_read_vesk_hb_record;
    static constexpr auto write_record = binary_serializer_write_vesk_hb_record;
    static constexpr auto init_null_record = vesk_hb_record_init_null;
    static constexpr auto init_names_record = vesk_hb_record_init_sensor_names;
    static constexpr auto init_values_record = vesk_hb_record_init_sensor_values;
    static constexpr auto detach_record = vesk_hb_record_detach;
    static constexpr auto destruct_record = vesk_hb_record_destruct;
    static constexpr auto destruct_values = vesk_hb_record_sensor_values_destruct;
};

// ---- Life of a buffer -------------------------------------------------------------------------

// Frees the buffer and all that it has.
template <typename Buffer>
void release_buffer(Buffer *buffer)
{
    using kind = buffer_kind<Buffer>;
    if (buffer->reader != nullptr) {
        reader_destroy(&buffer->reader);
    }
    // The writer ends its compressed stream, so it goes while the file is open.
    if (buffer->writer != nullptr) {
        writer_destroy(&buffer->writer);
    }
    if (buffer->*kind::file != nullptr) {
        (void)fclose(buffer->*kind::file);
    }
    if (buffer->*kind::working_set != nullptr) {
        vesk_cb_record_sensor_names_destroy(&(buffer->*kind::working_set));
    }
    free(buffer->filename);
    *buffer = Buffer();
    free(buffer);
}

// Frees a buffer that could not be finished; the file and the reader stay with their owner.
template <typename Buffer>
void discard_buffer(Buffer *buffer)
{
    buffer->reader = nullptr;
    buffer->*buffer_kind<Buffer>::file = nullptr;
    release_buffer(buffer);
}

template <typename Buffer>
using unfinished_buffer = owner<Buffer, discard_buffer<Buffer>>;

// A buffer with its name and nothing else.
template <typename Buffer>
Buffer *allocate_buffer(const char *filename)
{
    return create_object<Buffer>([&](Buffer *buffer) {
        *buffer = Buffer();
        buffer->version = 1;
        buffer->filename = strdup(filename);
        return buffer->filename == nullptr ? QE_ERROR_NO_MEMORY : 0;
    });
}

inline owned_file create_any_file(const char *filename)
{
    return owned_file(fopen(filename, "w"));
}

// An empty buffer over a new file. The name is copied before the file is opened: running out of
// memory must not truncate a file that was there.
template <typename Buffer>
Buffer *create_buffer(const char *filename, uint32_t max_data_records, create_file create)
{
    unfinished_buffer<Buffer> buffer(allocate_buffer<Buffer>(filename));
    if (!buffer) {
        return nullptr;
    }
    buffer->max_data_records = max_data_records;
    owned_file file = create(filename);
    if (!file) {
        qe_set_last_error(QE_ERROR_OPEN);
        return nullptr;
    }
    buffer->writer = _vesk_buffer_create_writer(file.get());
    if (buffer->writer == nullptr) {
        return nullptr;
    }
    (*buffer).*buffer_kind<Buffer>::file = file.release();
    return buffer.release();
}

// Puts the kind and the header at the start of a new file.
template <typename Buffer>
int write_file_header(Buffer *buffer)
{
    vesk_buffer handle;
    buffer_kind<Buffer>::init_handle(&handle, buffer);
    const int written = binary_serializer_write_vesk_buffer(&handle, buffer->writer);
    vesk_buffer_destruct(&handle);
    return written;
}

// The first record of a file must name the sensors of what follows; a file without records is fine.
template <typename Buffer>
int read_first_record(Buffer *buffer)
{
    using kind = buffer_kind<Buffer>;
    typename kind::record rec;
    kind::init_null_record(&rec);
    int result = kind::read_next_counted(buffer, &rec);
    if (result == 0 && rec.type != kind::names_type) {
        result = QE_ERROR_UNKNOWN_KIND;
    }
    kind::destruct_record(&rec);
    return result == QE_ERROR_END_OF_RECORDS ? 0 : result;
}

// A buffer over an existing file whose kind was already read from `source`. On failure `source` and
// `file` stay the caller's.
template <typename Buffer>
Buffer *open_buffer(const char *filename, reader *source, FILE *file)
{
    using kind = buffer_kind<Buffer>;
    unfinished_buffer<Buffer> buffer(allocate_buffer<Buffer>(filename));
    if (!buffer) {
        return nullptr;
    }
    buffer->reader = source;
    (*buffer).*kind::file = file;
    buffer->writer = _vesk_buffer_create_writer(file);
    if (buffer->writer == nullptr) {
        return nullptr;
    }
    if (kind::read_header(buffer.get(), source) <= 0) {
        qe_set_last_error(QE_ERROR_IO);
        return nullptr;
    }
    const int result = read_first_record(buffer.get());
    if (result < 0) {
        qe_set_last_error(result);
        return nullptr;
    }
    return buffer.release();
}

// The buffer of `opened`, which may be null and must be of the kind of Buffer.
template <typename Buffer>
Buffer *take_buffer_of_kind(vesk_buffer *opened)
{
    owned<vesk_buffer, vesk_buffer_destroy> handle(opened);
    if (!handle) {
        return nullptr;
    }
    if (handle->type != buffer_kind<Buffer>::type) {
        qe_set_last_error(QE_ERROR_WRONG_KIND);
        return nullptr;
    }
    vesk_buffer_detach(handle.get());
    return static_cast<Buffer *>(handle->data);
}

// ---- Header: version 1 (1 byte), capacity (4) -------------------------------------------------

template <typename Buffer>
int write_buffer_header(const Buffer *buffer, writer *target)
{
    return field_writer(target).byte(1).u32(buffer->max_data_records).result();
}

template <typename Buffer>
int read_buffer_header(Buffer *buffer, reader *source)
{
    field_reader fields(source);
    fields.version(1).u32(&buffer->max_data_records);
    // Merging halves a history buffer by pairs, so every stored capacity is even.
    if (fields.ok() && (buffer->max_data_records == 0 || buffer->max_data_records % 2 != 0)) {
        fields.fail(QE_ERROR_MALFORMED);
    }
    return fields.result();
}

// ---- Reading ----------------------------------------------------------------------------------

// Reads the next record without updating the working set and the count of the buffer: 0,
// QE_ERROR_END_OF_RECORDS (-43) at the end, or an error.
template <typename Buffer>
int read_next_record(Buffer *buffer, typename buffer_kind<Buffer>::record *rec)
{
    using kind = buffer_kind<Buffer>;
    const int nread = kind::read_record(rec, buffer->reader);
    if (nread == 0) {
        VESK_REQUIRE(reader_eof(buffer->reader), kind::at_end_text);
        return QE_ERROR_END_OF_RECORDS;
    }
    return nread < 0 ? nread : 0;
}

// Makes the names that were read into `rec` the working set. `rec` still shows them, but does not
// own them any more.
template <typename Buffer>
void take_working_set(Buffer *buffer, typename buffer_kind<Buffer>::record *rec)
{
    using kind = buffer_kind<Buffer>;
    if (buffer->*kind::working_set != nullptr) {
        vesk_cb_record_sensor_names_destroy(&(buffer->*kind::working_set));
    }
    buffer->*kind::working_set = rec->names;
    kind::detach_record(rec);
}

// As read_next_record(), and also updates the working set and the count of the buffer.
template <typename Buffer>
int read_counted_record(Buffer *buffer, typename buffer_kind<Buffer>::record *rec)
{
    using kind = buffer_kind<Buffer>;
    const int result = read_next_record(buffer, rec);
    if (result < 0) {
        return result;
    }
    if (rec->type == kind::names_type) {
        take_working_set(buffer, rec);
    } else if (rec->type == kind::values_type) {
        ++buffer->num_data_records;
    }
    return 0;
}

// ---- Appending --------------------------------------------------------------------------------

template <typename Buffer>
bool is_full(const Buffer *buffer)
{
    return buffer->num_data_records == buffer->max_data_records;
}

// What was written to is no longer read.
template <typename Buffer>
void drop_reader(Buffer *buffer)
{
    if (buffer->reader != nullptr) {
        reader_destroy(&buffer->reader);
    }
}

// Replaces the working set by the one that `create` makes and writes it. It stays the working set
// when the write fails.
template <typename Buffer, typename Create>
int append_names(Buffer *buffer, Create create)
{
    using kind = buffer_kind<Buffer>;
    working_set_record *&working_set = buffer->*kind::working_set;
    if (working_set != nullptr) {
        vesk_cb_record_sensor_names_destroy(&working_set);
    }
    working_set = create();
    if (working_set == nullptr) {
        return qe_get_last_error();
    }
    typename kind::record rec;
    kind::init_names_record(&rec, working_set);
    const int written = kind::write_record(&rec, buffer->writer);
    kind::destruct_record(&rec);
    return written < 0 ? written : 0;
}

// Writes the values that `init` makes and ends the compressed stream. Small records reach the file
// only then, so a failure there counts as a failure of the write.
template <typename Buffer, typename Init>
int append_values(Buffer *buffer, Init init)
{
    using kind = buffer_kind<Buffer>;
    typename kind::values values;
    int written = init(&values);
    if (written >= 0) {
        typename kind::record rec;
        kind::init_values_record(&rec, &values);
        written = kind::write_record(&rec, buffer->writer);
        kind::destruct_record(&rec);
        kind::destruct_values(&values);
    }
    const int flushed = writer_flush(buffer->writer);
    const int result = written < 0 ? written : flushed;
    if (result < 0) {
        return result;
    }
    ++buffer->num_data_records;
    drop_reader(buffer);
    return 0;
}

#endif
