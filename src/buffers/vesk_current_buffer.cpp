// A file of raw samples. After the kind and the header (see vesk_buffer.cpp) come tagged records:
//
//     size  field
//        4  type: 1 sensor names, 2 sensor values, 3 event
//           body, see vesk_cb_record.cpp
//
// The first record names sensors, and so does one before the values whenever the sensors change.
// Events that the recorder writes are bare bodies without the type: a reader takes their version
// and the high bytes of their type for an unknown record type and stops there.
#include <vesk/sensor_array.h>
#include <vesk/telemetry_matrix.h>
#include <vesk/vesk_current_buffer.h>

#include "buffers/buffer_file.hpp"
#include "buffers/storable.hpp"
#include "io/plain_open.hpp"

static void _require_live(const vesk_current_buffer *cbuf)
{
    VESK_REQUIRE(cbuf != nullptr, "cbuf != ((void *)0)");
    VESK_REQUIRE(cbuf->version == 1, "cbuf->version == ((char) 1)");
}

static vesk_current_buffer *_create(const char *filename, uint32_t max_data_records,
                                    create_file create)
{
    VESK_REQUIRE(filename != nullptr, "filename != ((void *)0)");
    VESK_REQUIRE(max_data_records > 0, "max_data_records > 0");
    auto *cbuf = create_buffer<vesk_current_buffer>(filename, max_data_records, create);
    if (cbuf != nullptr && write_file_header(cbuf) < 0) {
        vesk_current_buffer_close(&cbuf);
        qe_set_last_error(QE_ERROR_COMPRESSION);
    }
    return cbuf;
}

vesk_current_buffer *vesk_current_buffer_create(const char *filename, uint32_t max_data_records)
{
    return _create(filename, max_data_records, create_any_file);
}

vesk_current_buffer *_vesk_current_buffer_create_plain(const char *filename,
                                                       uint32_t max_data_records)
{
    return _create(filename, max_data_records, _vesk_overwrite_plain_file);
}

vesk_current_buffer *_vesk_current_buffer_open(const char *filename, reader *source, FILE *file)
{
    return open_buffer<vesk_current_buffer>(filename, source, file);
}

vesk_current_buffer *vesk_current_buffer_open_for_read_write(const char *filename)
{
    VESK_REQUIRE(filename != nullptr, "filename != ((void *)0)");
    return take_buffer_of_kind<vesk_current_buffer>(vesk_buffer_open_for_read_write(filename));
}

vesk_current_buffer *_vesk_current_buffer_open_plain(const char *filename, file_reading reading)
{
    return take_buffer_of_kind<vesk_current_buffer>(_vesk_buffer_open_plain(filename, reading));
}

// Reads all remaining records, so that the buffer knows its working set and its count. Returns 0 or
// a negative error.
static int _read_to_end(vesk_current_buffer *cbuf)
{
    vesk_cb_record rec;
    vesk_cb_record_init_null(&rec);
    int result = 0;
    while (result == 0) {
        // A file with too many records is refused when the first of them has been read.
        if (cbuf->num_data_records > cbuf->max_data_records) {
            result = QE_ERROR_MALFORMED;
            break;
        }
        result = vesk_current_buffer_read_record(cbuf, &rec);
        VESK_REQUIRE(result < 0 || rec.type == VESK_CB_RECORD_SENSOR_NAMES ||
                         rec.type == VESK_CB_RECORD_SENSOR_VALUES ||
                         rec.type == VESK_CB_RECORD_EVENT,
                     "rec.type == VESK_CB_RECORD_SENSOR_NAMES || rec.type == "
                     "VESK_CB_RECORD_SENSOR_VALUES || rec.type == VESK_CB_RECORD_EVENT");
    }
    vesk_cb_record_destruct(&rec);
    return result == QE_ERROR_END_OF_RECORDS ? 0 : result;
}

// Makes an open buffer ready to be appended to; null with the code in the cell.
static vesk_current_buffer *_prepare_to_append(vesk_current_buffer *cbuf)
{
    if (cbuf == nullptr) {
        return nullptr;
    }
    // A stream whose last read met the end of the file may be written to without being
    // repositioned.
    const int result = _read_to_end(cbuf);
    if (result < 0) {
        vesk_current_buffer_close(&cbuf);
        qe_set_last_error(result);
    }
    return cbuf;
}

vesk_current_buffer *vesk_current_buffer_open_for_append(const char *filename)
{
    VESK_REQUIRE(filename != nullptr, "filename != ((void *)0)");
    return _prepare_to_append(vesk_current_buffer_open_for_read_write(filename));
}

vesk_current_buffer *_vesk_current_buffer_open_plain_for_append(const char *filename,
                                                                file_reading reading)
{
    return _prepare_to_append(_vesk_current_buffer_open_plain(filename, reading));
}

static int _vesk_cb_have_sensors_changed(const vesk_current_buffer *cbuf, const matrix *vector)
{
    const sensor_array *sensors = telemetry_matrix_get_sensors(vector);
    if (cbuf->sensor_working_set == nullptr) {
        return 1;
    }
    const sensor_array *known = vesk_cb_record_sensor_names_get_sensors(cbuf->sensor_working_set);
    return sensor_array_is_equal(sensors, known) ? 0 : 1;
}

int vesk_current_buffer_write_telemetry_vector(vesk_current_buffer *cbuf, const matrix *vector)
{
    _require_live(cbuf);
    VESK_REQUIRE(cbuf->writer != nullptr, "cbuf->writer != ((void *)0)");
    VESK_REQUIRE(vector != nullptr, "vector != ((void *)0)");
    VESK_REQUIRE(matrix_get_number_rows(vector) == 1, "matrix_get_number_rows (vector) == 1");
    if (is_full(cbuf)) {
        return QE_ERROR_FULL;
    }
    if (_vesk_cb_have_sensors_changed(cbuf, vector) != 0) {
        const int result =
            append_names(cbuf, [&] { return vesk_cb_record_sensor_names_create(vector); });
        if (result < 0) {
            return result;
        }
    }
    return append_values(cbuf, [&](vesk_cb_record_sensor_values *values) {
        return vesk_cb_record_sensor_values_init(values, vector);
    });
}

int vesk_current_buffer_write_event(vesk_current_buffer *cbuf, const vesk_cb_record_event *event)
{
    _require_live(cbuf);
    VESK_REQUIRE(cbuf->writer != nullptr, "cbuf->writer != ((void *)0)");
    VESK_REQUIRE(event != nullptr, "event != ((void *)0)");
    drop_reader(cbuf);
    // The format stores the bare body here, without a record type.
    const int written = binary_serializer_write_vesk_cb_record_event(event, cbuf->writer);
    const int flushed = writer_flush(cbuf->writer);
    if (flushed < 0) {
        qe_set_last_error(flushed);
    }
    return written < 0 ? written : 0;
}

int vesk_current_buffer_write_tagged_event(vesk_current_buffer *cbuf,
                                           const vesk_cb_record_event *event)
{
    _require_live(cbuf);
    VESK_REQUIRE(cbuf->writer != nullptr, "cbuf->writer != ((void *)0)");
    VESK_REQUIRE(event != nullptr, "event != ((void *)0)");
    VESK_REQUIRE(event->version == 1, "event->version == ((char) 1)");
    const int storable = check_storable_event(*event);
    if (storable < 0) {
        return storable == QE_ERROR_LIMIT ? storable : QE_ERROR_MALFORMED;
    }
    // The names before a vector are known to be in the file only when the vector was written
    // successfully.
    if (cbuf->num_data_records == 0) {
        return QE_ERROR_UNKNOWN_KIND;
    }
    vesk_cb_record rec;
    // The record is only written, and a payload that is not its own is left alone.
    vesk_cb_record_init_event(&rec, const_cast<vesk_cb_record_event *>(event));
    const int written = binary_serializer_write_vesk_cb_record(&rec, cbuf->writer);
    vesk_cb_record_destruct(&rec);
    const int flushed = writer_flush(cbuf->writer);
    const int result = written < 0 ? written : flushed;
    if (result < 0) {
        return result;
    }
    drop_reader(cbuf);
    return 0;
}

int vesk_current_buffer_read_record(vesk_current_buffer *cbuf, vesk_cb_record *rec)
{
    _require_live(cbuf);
    VESK_REQUIRE(cbuf->reader != nullptr, "cbuf->reader != ((void *)0)");
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    return read_counted_record(cbuf, rec);
}

const char *vesk_current_buffer_get_filename(const vesk_current_buffer *cbuf)
{
    _require_live(cbuf);
    return cbuf->filename;
}

vesk_cb_record_sensor_names *
vesk_current_buffer_get_sensor_working_set(const vesk_current_buffer *cbuf)
{
    _require_live(cbuf);
    return cbuf->sensor_working_set;
}

void vesk_current_buffer_close(vesk_current_buffer **cbuf)
{
    VESK_REQUIRE(cbuf != nullptr, "cbuf != ((void *)0)");
    VESK_REQUIRE(*cbuf != nullptr, "*cbuf != ((void *)0)");
    VESK_REQUIRE((*cbuf)->filename != nullptr, "(*cbuf)->filename != ((void *)0)");
    VESK_REQUIRE((*cbuf)->writer != nullptr, "(*cbuf)->writer != ((void *)0)");
    release_buffer(*cbuf);
    *cbuf = nullptr;
}

int binary_serializer_write_vesk_current_buffer(const vesk_current_buffer *cbuf, writer *target)
{
    _require_live(cbuf);
    VESK_REQUIRE(target != nullptr, "writer != ((void *)0)");
    return write_buffer_header(cbuf, target);
}

int binary_serializer_read_vesk_current_buffer(vesk_current_buffer *cbuf, reader *source)
{
    _require_live(cbuf);
    VESK_REQUIRE(source != nullptr, "reader != ((void *)0)");
    return read_buffer_header(cbuf, source);
}
