// Stored form of a matrix, big-endian, without padding:
//
//  offset  size  field
//       0     1  version, 1
//       1     4  type: 1 regular, 2 transposed, 3 telemetry
//       5        body of that type
//
// Body of a regular matrix:
//
//       0     1  version, 1 again
//       1     4  nrows, 1..10000
//       5     4  ncols, 1..10000
//       9        nrows x ncols doubles, row by row
//
// Body of a transposed matrix; its shape follows from that of its source:
//
//       0     1  version, 1
//       1        the source, in the form of a matrix
//
// Body of a telemetry matrix:
//
//       0     1  version, 1
//       1        the values, in the form of a matrix
//                the sensors, in the form of an array of sensors
//                the timestamps, in the form of an array of timestamps
//
// Stored form of an optional matrix:
//
//       0     1  1 when there is a matrix, 0 when there is none
//       1        the matrix, if any
#include <cstdint>

#include <vesk/binary_serializer.h>
#include <vesk/error.h>

#include "io/fields.hpp"
#include "matrix/telemetry_matrix_internal.hpp"
#include "matrix/transposed_matrix_internal.hpp"
#include "support/owner.hpp"
#include "support/precondition.hpp"

static void _write_regular_body(const matrix *m, field_writer &fields)
{
    VESK_REQUIRE(m->values != nullptr, "m->values != ((void *)0)");
    fields.byte(static_cast<uint8_t>(m->version));
    // Checked here and not before the header: a refused matrix leaves six bytes behind.
    if (m->nrows > max_stored_count || m->ncols > max_stored_count) {
        fields.fail(QE_ERROR_LIMIT);
    }
    fields.u32(m->nrows).u32(m->ncols);
    for (uint32_t i = 0; i < m->nrows && !fields.failed(); ++i) {
        fields.f64s(m->ncols, [row = m->values[i]](uint32_t j) { return bits_of(row[j]); });
    }
}

static void _write_transposed_body(const matrix *m, field_writer &fields)
{
    VESK_REQUIRE(m->matrix != nullptr, "m->matrix != ((void *)0)");
    const auto *tmatrix = static_cast<const transposed_matrix *>(m->matrix);
    VESK_REQUIRE(tmatrix->version == 1, "tmatrix->version == ((char) 1)");
    fields.byte(static_cast<uint8_t>(tmatrix->version))
        .form(binary_serializer_write_matrix, tmatrix->matrix);
}

static void _write_telemetry_body(const matrix *m, field_writer &fields)
{
    VESK_REQUIRE(m->matrix != nullptr, "m->matrix != ((void *)0)");
    const auto *tmatrix = static_cast<const telemetry_matrix *>(m->matrix);
    VESK_REQUIRE(tmatrix->version == 1, "tmatrix->version == ((char) 1)");
    fields.byte(static_cast<uint8_t>(tmatrix->version))
        .form(binary_serializer_write_matrix, tmatrix->matrix)
        .form(binary_serializer_write_sensor_array, tmatrix->sensors)
        .form(binary_serializer_write_timestamp_array, tmatrix->timestamps);
}

int binary_serializer_write_matrix(const matrix *m, writer *w)
{
    VESK_REQUIRE(m != nullptr, "m != ((void *)0)");
    VESK_REQUIRE(m->version == 1, "m->version == 1");
    VESK_REQUIRE(m->type > 0, "m->type > 0");
    VESK_REQUIRE(w != nullptr, "writer != ((void *)0)");
    field_writer fields(w);
    fields.byte(static_cast<uint8_t>(m->version)).u32(m->type);
    switch (m->type) {
    case MATRIX_TYPE_REGULAR:
        _write_regular_body(m, fields);
        break;
    case MATRIX_TYPE_TRANSPOSED:
        _write_transposed_body(m, fields);
        break;
    case MATRIX_TYPE_TELEMETRY:
        _write_telemetry_body(m, fields);
        break;
    default:
        VESK_REQUIRE(false, "0");
    }
    return fields.result();
}

int binary_serializer_write_optional_matrix(const matrix *m, writer *w)
{
    VESK_REQUIRE(w != nullptr, "writer != ((void *)0)");
    field_writer fields(w);
    fields.byte(m != nullptr ? 1 : 0);
    if (m != nullptr) {
        fields.form(binary_serializer_write_matrix, m);
    }
    return fields.result();
}

// Takes the result of an init, which leaves a matrix dead when it fails, while a reader leaves one
// that can be destroyed.
static bool _is_initialised(matrix *m, int result, field_reader &fields)
{
    if (result < 0) {
        matrix_init_null(m);
        fields.fail(result);
    }
    return result >= 0;
}

static bool _is_dimension(uint32_t n)
{
    return n > 0 && n <= max_stored_count;
}

static void _read_regular_body(matrix *m, field_reader &fields)
{
    uint32_t nrows = 0;
    uint32_t ncols = 0;
    if (!fields.version(1).u32(&nrows).u32(&ncols).ok()) {
        return;
    }
    if (!_is_dimension(nrows) || !_is_dimension(ncols)) {
        fields.fail(QE_ERROR_MALFORMED);
        return;
    }
    if (!_is_initialised(m, matrix_init(m, nrows, ncols), fields)) {
        return;
    }
    for (uint32_t i = 0; i < nrows && fields.ok(); ++i) {
        fields.f64s(m->values[i], ncols);
    }
}

using owned_matrix = owned<matrix, matrix_destroy>;
using owned_sensors = owned<sensor_array, sensor_array_destroy>;
using owned_timestamps = owned<timestamp_array, timestamp_array_destroy>;

// Reads a nested form into `object`, a null object that could perhaps not be made.
template <typename Owner, typename T>
static bool _read_part(const Owner &object, int (*read)(T *, reader *), field_reader &fields)
{
    if (!object) {
        fields.fail(qe_get_last_error());
        return false;
    }
    return fields.form(read, object.get()).ok();
}

static void _read_transposed_body(matrix *m, field_reader &fields)
{
    if (!fields.version(1).ok()) {
        return;
    }
    owned_matrix source(matrix_create_null());
    if (_read_part(source, binary_serializer_read_matrix, fields) &&
        _is_initialised(m, transposed_matrix_init(m, source.get()), fields)) {
        source.release();
    }
}

static void _read_telemetry_body(matrix *m, field_reader &fields)
{
    if (!fields.version(1).ok()) {
        return;
    }
    owned_matrix values(matrix_create_null());
    if (!_read_part(values, binary_serializer_read_matrix, fields)) {
        return;
    }
    owned_sensors sensors(sensor_array_create_null());
    if (!_read_part(sensors, binary_serializer_read_sensor_array, fields)) {
        return;
    }
    owned_timestamps timestamps(timestamp_array_create_null());
    if (!_read_part(timestamps, binary_serializer_read_timestamp_array, fields)) {
        return;
    }
    // Labels that do not fit would be a bad call to telemetry_matrix_init(), but they are bad
    // input.
    if (sensor_array_get_size(sensors.get()) != matrix_get_number_columns(values.get()) ||
        timestamp_array_get_size(timestamps.get()) != matrix_get_number_rows(values.get())) {
        fields.fail(QE_ERROR_MALFORMED);
        return;
    }
    if (_is_initialised(m, telemetry_matrix_init(m, values.get(), sensors.get(), timestamps.get()),
                        fields)) {
        values.release();
        sensors.release();
        timestamps.release();
    }
}

int binary_serializer_read_matrix(matrix *m, reader *r)
{
    VESK_REQUIRE(m != nullptr, "m != ((void *)0)");
    VESK_REQUIRE(m->version == 1, "m->version == 1");
    VESK_REQUIRE(r != nullptr, "reader != ((void *)0)");
    VESK_REQUIRE(m->matrix == nullptr, "m->matrix == ((void *)0)");
    field_reader fields(r);
    uint32_t type = 0;
    if (!fields.version(1).u32(&type).ok()) {
        return fields.result();
    }
    switch (type) {
    case MATRIX_TYPE_REGULAR:
        m->type = type;
        _read_regular_body(m, fields);
        break;
    case MATRIX_TYPE_TRANSPOSED:
        m->type = type;
        _read_transposed_body(m, fields);
        break;
    case MATRIX_TYPE_TELEMETRY:
        m->type = type;
        _read_telemetry_body(m, fields);
        break;
    default:
        fields.fail(QE_ERROR_MALFORMED);
    }
    return fields.result();
}

int binary_serializer_read_optional_matrix(matrix **m, reader *r)
{
    VESK_REQUIRE(m != nullptr, "m != ((void *)0)");
    VESK_REQUIRE(r != nullptr, "reader != ((void *)0)");
    *m = nullptr;
    field_reader fields(r);
    uint8_t is_present = 0;
    if (!fields.byte(&is_present).ok() || is_present == 0) {
        return fields.result();
    }
    if (is_present != 1) {
        return QE_ERROR_MALFORMED;
    }
    owned_matrix found(matrix_create_null());
    if (_read_part(found, binary_serializer_read_matrix, fields)) {
        *m = found.release();
    }
    return fields.result();
}
