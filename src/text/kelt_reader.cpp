// The text form of telemetry:
//
//   20070101:00:00:00,::SENSOR0,::SENSOR1     a header: a time, which is ignored, then the names
//   20070101:00:00:00,1.000,2.000             data: a time, then a value for each sensor
//
// The first line is a header; a later one replaces the sensors.
#include <cstdint>
#include <cstdio>
#include <cstring>

#include <vesk/error.h>
#include <vesk/kelt_reader.h>
#include <vesk/sensor_value.h>
#include <vesk/telemetry_matrix.h>
#include <vesk/timestamp.h>

#include "support/object.hpp"
#include "support/owner.hpp"
#include "support/precondition.hpp"

static constexpr char separators[] = ",\n\r";

// What fgets() reads at a time, with its terminator.
static constexpr int line_size = 65536;

// The length of a timestamp and the comma behind it.
static constexpr int time_field_length = 18;

// The words of which one makes a line of text a header. Names without any of them begin with "::".
static constexpr const char *header_words[] = {
    "SSC",  "ssc",  "SB",   "sb",  "Temp", "temp", "PS",    "ps",    "VDC",    "vdc",    "N0",
    "n0",   "CORE", "core", "CPU", "cpu",  "DISK", "disk",  "READ",  "read",   "WRITE",  "write",
    "IDLE", "idle", "V_",   "v_",  "T_",   "t_",   "POWER", "power", "PACKET", "packet",
};

// What data is made of: digits and ',' '-' '.' '/' ':'.
static bool _is_data_character(char c)
{
    return c >= ',' && c <= ':';
}

static bool _is_line_end(char c)
{
    return c == '\0' || c == '\n';
}

static int _kelt_reader_is_header(const char *line)
{
    if (_is_line_end(line[0])) {
        return 0;
    }
    const char *p = line;
    while (_is_data_character(*p)) {
        ++p;
    }
    if (_is_line_end(*p)) {
        return 0;
    }
    VESK_REQUIRE(p - line >= time_field_length, "p >= line + 18");
    for (const char *word : header_words) {
        if (strstr(p, word) != nullptr) {
            return 1;
        }
    }
    // Colons are characters of data, so those before a name have been skipped.
    return strncmp(p - 2, "::", 2) == 0 ? 1 : 0;
}

// The number of fields that strtok_r() will find. Runs of separators count as one.
static uint32_t _count_fields(const char *line)
{
    uint32_t n = 0;
    const char *p = line + strspn(line, separators);
    while (*p != '\0') {
        ++n;
        p += strcspn(p, separators);
        p += strspn(p, separators);
    }
    return n;
}

// The sensors that a header names; null with the code in the last-error cell.
static sensor_array *_create_header_sensors(char *line)
{
    const uint32_t nfields = _count_fields(line);
    if (nfields < 2) {
        qe_set_last_error(QE_ERROR_MALFORMED);
        return nullptr;
    }
    owned<sensor_array, sensor_array_destroy> sensors(sensor_array_create_empty(nfields - 1));
    if (!sensors) {
        return nullptr;
    }
    char *rest = nullptr;
    strtok_r(line, separators, &rest);
    for (uint32_t j = 0; j < nfields - 1; ++j) {
        sensor *s = sensor_create(strtok_r(nullptr, separators, &rest));
        if (s == nullptr) {
            return nullptr;
        }
        sensor_array_set(sensors.get(), static_cast<int>(j), s);
    }
    return sensors.release();
}

// A vector of zeros for the sensors of a header; null with the code in the last-error cell.
static matrix *_create_vector(char *line)
{
    owned<sensor_array, sensor_array_destroy> sensors(_create_header_sensors(line));
    if (!sensors) {
        return nullptr;
    }
    owned<matrix, matrix_destroy> values(matrix_create(1, sensor_array_get_size(sensors.get())));
    if (!values) {
        return nullptr;
    }
    timestamp none;
    timestamp_init_null(&none);
    matrix *vector = telemetry_matrix_create_vector(values.get(), sensors.get(), &none);
    if (vector != nullptr) {
        values.release();
        sensors.release();
    }
    return vector;
}

// Makes the vector for a header. After a failure there is none, rather than one that would give
// values to the wrong sensors.
static int _kelt_reader_init_vector(kelt_reader *kelt, char *line)
{
    matrix *vector = _create_vector(line);
    if (kelt->vector != nullptr) {
        matrix_destroy(&kelt->vector);
    }
    kelt->vector = vector;
    return vector != nullptr ? 0 : qe_get_last_error();
}

static int _kelt_reader_init(kelt_reader *kelt, FILE *fp)
{
    *kelt = {fp, 0, nullptr};
    char line[line_size];
    if (fgets(line, sizeof line, fp) == nullptr) {
        return QE_ERROR_NOT_FULL;
    }
    if (!_kelt_reader_is_header(line)) {
        return QE_ERROR_MALFORMED;
    }
    return _kelt_reader_init_vector(kelt, line);
}

kelt_reader *kelt_reader_open_from_fp(FILE *fp)
{
    VESK_REQUIRE(fp != nullptr, "fp != ((void *)0)");
    return create_object<kelt_reader>(
        [fp](kelt_reader *kelt) { return _kelt_reader_init(kelt, fp); });
}

kelt_reader *kelt_reader_open(const char *path)
{
    VESK_REQUIRE(path != nullptr, "path != ((void *)0)");
    owned_file fp(fopen(path, "r"));
    if (!fp) {
        qe_set_last_error(QE_ERROR_OPEN);
        return nullptr;
    }
    kelt_reader *kelt = kelt_reader_open_from_fp(fp.get());
    if (kelt != nullptr) {
        fp.release();
        kelt->owns_fp = 1;
    }
    return kelt;
}

static void _kelt_reader_destruct(kelt_reader *kelt)
{
    if (kelt->owns_fp) {
        (void)fclose(kelt->fp);
    }
    if (kelt->vector != nullptr) {
        matrix_destroy(&kelt->vector);
    }
}

void kelt_reader_close(kelt_reader **kelt)
{
    VESK_REQUIRE(kelt != nullptr, "reader != ((void *)0)");
    VESK_REQUIRE(*kelt != nullptr, "*reader != ((void *)0)");
    destroy_object(kelt, _kelt_reader_destruct);
}

// Stores a line of data in the vector. Returns 0 or a negative code.
static int _read_data(kelt_reader *kelt, char *line)
{
    char *rest = nullptr;
    const char *time = strtok_r(line, separators, &rest);
    if (time == nullptr) {
        return QE_ERROR_MALFORMED;
    }
    timestamp t;
    int result = timestamp_init_from_string(&t, time);
    if (result < 0) {
        return result;
    }
    result = telemetry_matrix_update_vector_timestamp(kelt->vector, &t);
    if (result < 0) {
        return result;
    }
    const uint32_t nsensors = kelt_reader_get_number_sensors(kelt);
    uint32_t nvalues = 0;
    while (const char *value = strtok_r(nullptr, separators, &rest)) {
        if (nvalues == nsensors) {
            return QE_ERROR_MALFORMED;
        }
        matrix_set(kelt->vector, 0, nvalues++,
                   sensor_value_to_double(sensor_value_from_string(value)));
    }
    // Unlike too many values, too few are fatal.
    VESK_REQUIRE(nvalues == nsensors, "nvalues == nsensors");
    return 0;
}

matrix *kelt_reader_get_next_telemetry_vector(kelt_reader *kelt)
{
    VESK_REQUIRE(kelt != nullptr, "reader != ((void *)0)");
    VESK_REQUIRE(kelt->vector != nullptr, "kelt->vector != ((void *)0)");
    char line[line_size];
    int result = 0;
    while (result == 0) {
        if (fgets(line, sizeof line, kelt->fp) == nullptr) {
            VESK_REQUIRE(feof(kelt->fp), "feof (kelt->fp)");
            return nullptr;
        }
        if (_kelt_reader_is_header(line)) {
            result = _kelt_reader_init_vector(kelt, line);
        } else {
            result = _read_data(kelt, line);
            if (result == 0) {
                return kelt->vector;
            }
        }
    }
    qe_set_last_error(result);
    return nullptr;
}

uint32_t kelt_reader_get_number_sensors(const kelt_reader *kelt)
{
    VESK_REQUIRE(kelt != nullptr, "kelt != ((void *)0)");
    VESK_REQUIRE(kelt->vector != nullptr, "kelt->vector != ((void *)0)");
    return telemetry_matrix_get_number_sensors(kelt->vector);
}

sensor_array *kelt_reader_get_sensors(const kelt_reader *kelt)
{
    VESK_REQUIRE(kelt != nullptr, "kelt != ((void *)0)");
    VESK_REQUIRE(kelt->vector != nullptr, "kelt->vector != ((void *)0)");
    return telemetry_matrix_get_sensors(kelt->vector);
}
