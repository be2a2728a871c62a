// The text form of telemetry, which kelt_reader reads:
//
//   20070101:00:00:00,::SENSOR0,::SENSOR1     a header where the sensors change: a time, the names
//   20070101:00:00:00,1.000,2.000             a line per row: its time, a value per sensor
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>

#include <vesk/error.h>
#include <vesk/kelt_serializer.h>
#include <vesk/kelt_writer.h>
#include <vesk/timestamp.h>

#include "matrix/telemetry_matrix_internal.hpp"
#include "support/owner.hpp"
#include "support/precondition.hpp"

using owned_sensors = owned<sensor_array, sensor_array_destroy>;
using owned_timestamps = owned<timestamp_array, timestamp_array_destroy>;

// Longer names are cut off.
static constexpr uint32_t name_size = 256;

namespace
{

// One line of text, of at most 32,768 characters with its end.
class line_builder
{
public:
    explicit line_builder(const timestamp *t)
    {
        timestamp_to_string(t, text_, sizeof text_);
        length_ = time_length;
    }

    __attribute__((format(printf, 2, 3))) void append(const char *format, ...)
    {
        require_length();
        va_list arguments;
        va_start(arguments, format);
        const int length = vsnprintf(text_ + length_, sizeof text_ - length_, format, arguments);
        va_end(arguments);
        length_ += static_cast<std::size_t>(length);
    }

    int write(writer *w) const
    {
        require_length();
        return writer_write_bytes(w, text_, static_cast<uint32_t>(length_));
    }

private:
    static constexpr std::size_t max_length = 32768;
    static constexpr std::size_t time_length = 17;

    void require_length() const { VESK_REQUIRE(length_ <= max_length, "nbytes <= sizeof (line)"); }

    std::size_t length_;
    char text_[max_length + 1]; // with the terminator of vsnprintf()
};

} // namespace

static int _write_header(const telemetry_matrix *m, writer *w)
{
    line_builder line(timestamp_array_get_timestamps(m->timestamps)[0]);
    sensor **sensors = sensor_array_get_sensors(m->sensors);
    for (uint32_t j = 0; j < sensor_array_get_size(m->sensors); ++j) {
        char name[name_size];
        sensor_get_name(sensors[j], name, sizeof name);
        name[sizeof name - 1] = '\0';
        line.append(",%s", name);
    }
    line.append("\n");
    return line.write(w);
}

static int _write_row(const telemetry_matrix *m, uint32_t i, writer *w)
{
    line_builder line(timestamp_array_get_timestamps(m->timestamps)[i]);
    const uint32_t ncols = matrix_get_number_columns(m->matrix);
    for (uint32_t j = 0; j < ncols; ++j) {
        line.append(",%.3lf", matrix_get(m->matrix, i, j));
    }
    line.append("\n");
    return line.write(w);
}

static int _kelt_serializer_write_telemetry_matrix(telemetry_matrix *m, writer *w)
{
    VESK_REQUIRE(m != nullptr, "m != ((void *)0)");
    VESK_REQUIRE(m->version > 0, "m->version > 0");
    VESK_REQUIRE(m->sensors != nullptr, "m->sensors != ((void *)0)");
    VESK_REQUIRE(m->timestamps != nullptr, "m->timestamps != ((void *)0)");
    VESK_REQUIRE(m->matrix != nullptr, "m->matrix != ((void *)0)");
    VESK_REQUIRE(w->type == WRITER_TYPE_KELT, "writer->type == WRITER_TYPE_KELT");
    const int changed = kelt_writer_have_sensors_changed(w, m->sensors);
    if (changed < 0) {
        return changed;
    }
    // Without a header there is a write of no bytes, which the writer below sees as well.
    int total = changed != 0 ? _write_header(m, w) : writer_write_bytes(w, "", 0);
    if (total < 0) {
        return total;
    }
    const uint32_t nrows = matrix_get_number_rows(m->matrix);
    for (uint32_t i = 0; i < nrows; ++i) {
        const int written = _write_row(m, i, w);
        if (written < 0) {
            return written;
        }
        total += written;
    }
    return total;
}

// The sensors ::SENSOR0, ::SENSOR1 and so on; null without memory.
static sensor_array *_create_generic_sensors(uint32_t n)
{
    owned_sensors sensors(sensor_array_create_empty(n));
    if (!sensors) {
        return nullptr;
    }
    for (uint32_t j = 0; j < n; ++j) {
        char name[name_size];
        snprintf(name, sizeof name, "::SENSOR%u", j);
        sensor *s = sensor_create(name);
        if (s == nullptr) {
            return nullptr;
        }
        sensor_array_set(sensors.get(), static_cast<int>(j), s);
    }
    return sensors.release();
}

// A row per second from an arbitrary time on; null with the code in the last-error cell.
static timestamp_array *_create_generic_timestamps(uint32_t n)
{
    timestamp start;
    const int result = timestamp_init_from_string(&start, "20070101:00:00:00");
    if (result < 0) {
        qe_set_last_error(result);
        return nullptr;
    }
    return timestamp_array_create_dummy(&start, n);
}

// Writes a matrix that has no labels of its own.
static int _write_dressed(matrix *m, writer *w)
{
    owned_sensors sensors(_create_generic_sensors(matrix_get_number_columns(m)));
    if (!sensors) {
        return qe_get_last_error();
    }
    owned_timestamps timestamps(_create_generic_timestamps(matrix_get_number_rows(m)));
    if (!timestamps) {
        return qe_get_last_error();
    }
    const owned<matrix, matrix_destroy> dressed(
        telemetry_matrix_create(m, sensors.get(), timestamps.get()));
    if (!dressed) {
        return qe_get_last_error();
    }
    sensors.release();
    timestamps.release();
    telemetry_matrix_detach_original_matrix(dressed.get());
    return _kelt_serializer_write_telemetry_matrix(static_cast<telemetry_matrix *>(dressed->matrix),
                                                   w);
}

int kelt_serializer_write_matrix(matrix *m, writer *w)
{
    VESK_REQUIRE(m != nullptr, "m != ((void *)0)");
    VESK_REQUIRE(m->type > 0, "m->type > 0");
    VESK_REQUIRE(m->version == 1, "m->version == ((char) 1)");
    VESK_REQUIRE(w != nullptr, "writer != ((void *)0)");
    if (m->type == MATRIX_TYPE_TELEMETRY) {
        return _kelt_serializer_write_telemetry_matrix(static_cast<telemetry_matrix *>(m->matrix),
                                                       w);
    }
    VESK_REQUIRE(m->type == MATRIX_TYPE_REGULAR || m->type == MATRIX_TYPE_TRANSPOSED, "0");
    return _write_dressed(m, w);
}
