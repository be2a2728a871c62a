// Telemetry matrices: a matrix of values with a sensor for each column and a timestamp for each
// row. The labels are arrays that may be shared with other matrices, so timestamps are replaced and
// never changed in place; sensors of columns are changed for all that share them.
#include <cstdint>

#include <vesk/error.h>
#include <vesk/matrix_compare.h>
#include <vesk/matrix_slices.h>
#include <vesk/telemetry_matrix.h>

#include "matrix/matrix_internal.hpp"
#include "matrix/telemetry_matrix_internal.hpp"
#include "support/object.hpp"
#include "support/owner.hpp"
#include "support/precondition.hpp"

// Sensors and timestamps are treated alike: as the labels of the columns and of the rows.
namespace
{
struct sensor_labels {
    using array = sensor_array;
    using entry = sensor;
    using owned_array = owned<sensor_array, sensor_array_destroy>;
    static constexpr auto create_empty = sensor_array_create_empty;
    static constexpr auto get_entries = sensor_array_get_sensors;
    static constexpr auto get_size = sensor_array_get_size;
    static constexpr auto copy_entry = sensor_copy;
};

struct timestamp_labels {
    using array = timestamp_array;
    using entry = timestamp;
    using owned_array = owned<timestamp_array, timestamp_array_destroy>;
    static constexpr auto create_empty = timestamp_array_create_empty;
    static constexpr auto get_entries = timestamp_array_get_timestamps;
    static constexpr auto get_size = timestamp_array_get_size;
    static constexpr auto copy_entry = timestamp_copy;
};
} // namespace

// Puts a copy of `from` into an entry that is empty. False without memory.
template <typename Labels>
static bool _labels_fill(typename Labels::entry **to, const typename Labels::entry *from)
{
    *to = Labels::copy_entry(from, nullptr);
    return *to != nullptr;
}

// The labels `indices`, in that order; null without memory.
template <typename Labels>
static typename Labels::array *_labels_slice(const typename Labels::array *labels,
                                             const uint32_t *indices, uint32_t n)
{
    typename Labels::owned_array slice(Labels::create_empty(n));
    if (!slice) {
        return nullptr;
    }
    for (uint32_t k = 0; k < n; ++k) {
        if (!_labels_fill<Labels>(&Labels::get_entries(slice.get())[k],
                                  Labels::get_entries(labels)[indices[k]])) {
            return nullptr;
        }
    }
    return slice.release();
}

// Gives `*labels` the size `n`, with empty entries behind the old ones. Returns 0, or the last
// error with `*labels` as it was.
template <typename Labels>
static int _labels_resize(typename Labels::array **labels, uint32_t n)
{
    const uint32_t old_size = Labels::get_size(*labels);
    if (old_size == n) {
        return 0;
    }
    typename Labels::owned_array resized(Labels::create_empty(n));
    if (!resized) {
        return qe_get_last_error();
    }
    for (uint32_t k = 0; k < n && k < old_size; ++k) {
        const typename Labels::entry *old = Labels::get_entries(*labels)[k];
        if (old != nullptr && !_labels_fill<Labels>(&Labels::get_entries(resized.get())[k], old)) {
            return qe_get_last_error();
        }
    }
    typename Labels::owned_array replaced(*labels);
    *labels = resized.release();
    return 0;
}

// Replaces `*labels` by `copy`, a fresh copy that is null without memory.
template <typename Labels>
static int _labels_replace(typename Labels::array **labels, typename Labels::array *copy)
{
    if (copy == nullptr) {
        return qe_get_last_error();
    }
    typename Labels::owned_array replaced(*labels);
    *labels = copy;
    return 0;
}

static telemetry_matrix *_telemetry_matrix_create(matrix *m, sensor_array *sensors,
                                                  timestamp_array *timestamps)
{
    VESK_REQUIRE(m != nullptr, "m != ((void *)0)");
    VESK_REQUIRE(sensors != nullptr, "sensors != ((void *)0)");
    VESK_REQUIRE(timestamps != nullptr, "timestamps != ((void *)0)");
    VESK_REQUIRE(matrix_get_number_columns(m) == sensor_array_get_size(sensors),
                 "matrix_get_number_columns (m) == sensor_array_get_size (sensors)");
    VESK_REQUIRE(matrix_get_number_rows(m) == timestamp_array_get_size(timestamps),
                 "matrix_get_number_rows (m) == timestamp_array_get_size (timestamps)");
    auto *tmatrix = allocate<telemetry_matrix>();
    if (tmatrix != nullptr) {
        *tmatrix = {1, m, sensors, timestamps, 1};
    }
    return tmatrix;
}

// Takes over `vals` only when it succeeds.
static telemetry_matrix *_telemetry_matrix_clone_with_values(const telemetry_matrix *tmatrix,
                                                             matrix *vals)
{
    sensor_labels::owned_array sensors(sensor_array_copy(tmatrix->sensors));
    timestamp_labels::owned_array timestamps(timestamp_array_copy(tmatrix->timestamps));
    if (!sensors || !timestamps) {
        return nullptr;
    }
    telemetry_matrix *clone = _telemetry_matrix_create(vals, sensors.get(), timestamps.get());
    if (clone != nullptr) {
        sensors.release();
        timestamps.release();
    }
    return clone;
}

static void _telemetry_matrix_destroy(void **object)
{
    auto *tmatrix = static_cast<telemetry_matrix *>(*object);
    if (tmatrix == nullptr || tmatrix->version != 1) {
        return;
    }
    if (tmatrix->sensors != nullptr) {
        sensor_array_destroy(&tmatrix->sensors);
    }
    if (tmatrix->timestamps != nullptr) {
        timestamp_array_destroy(&tmatrix->timestamps);
    }
    if (tmatrix->matrix != nullptr && tmatrix->owns_matrix == 1) {
        matrix_destroy(&tmatrix->matrix);
    }
    tmatrix->version = 0;
    free(tmatrix);
    *object = nullptr;
}

// The object of a slot, with its values.
#define TELEMETRY_REQUIRE_VALUES(tmatrix)                                                          \
    VESK_REQUIRE((tmatrix) != nullptr, "tmatrix != ((void *)0)");                                  \
    VESK_REQUIRE((tmatrix)->version == 1, "tmatrix->version == ((char) 1)");                       \
    VESK_REQUIRE((tmatrix)->matrix != nullptr, "tmatrix->matrix != ((void *)0)")

// The object of a slot, with its values and labels.
#define TELEMETRY_REQUIRE_COMPLETE(tmatrix)                                                        \
    TELEMETRY_REQUIRE_VALUES(tmatrix);                                                             \
    VESK_REQUIRE((tmatrix)->sensors != nullptr, "tmatrix->sensors != ((void *)0)");                \
    VESK_REQUIRE((tmatrix)->timestamps != nullptr, "tmatrix->timestamps != ((void *)0)")

static double _telemetry_matrix_get(void *object, uint32_t i, uint32_t j)
{
    const auto *tmatrix = static_cast<const telemetry_matrix *>(object);
    TELEMETRY_REQUIRE_VALUES(tmatrix);
    return matrix_get(tmatrix->matrix, i, j);
}

static void _telemetry_matrix_set(void *object, uint32_t i, uint32_t j, double value)
{
    const auto *tmatrix = static_cast<const telemetry_matrix *>(object);
    TELEMETRY_REQUIRE_VALUES(tmatrix);
    matrix_set(tmatrix->matrix, i, j, value);
}

// As _telemetry_matrix_clone_with_values(), with values that nobody else holds; null without them.
static telemetry_matrix *_telemetry_matrix_clone_with_new_values(const telemetry_matrix *tmatrix,
                                                                 matrix *vals)
{
    owned<matrix, matrix_destroy> values(vals);
    if (!values) {
        return nullptr;
    }
    telemetry_matrix *clone = _telemetry_matrix_clone_with_values(tmatrix, vals);
    if (clone != nullptr) {
        values.release();
    }
    return clone;
}

static void *_telemetry_matrix_create_like(void *object)
{
    const auto *tmatrix = static_cast<const telemetry_matrix *>(object);
    TELEMETRY_REQUIRE_COMPLETE(tmatrix);
    return _telemetry_matrix_clone_with_new_values(tmatrix, matrix_create_like(tmatrix->matrix));
}

static void *_telemetry_matrix_copy(void *object)
{
    const auto *tmatrix = static_cast<const telemetry_matrix *>(object);
    TELEMETRY_REQUIRE_COMPLETE(tmatrix);
    return _telemetry_matrix_clone_with_new_values(tmatrix, matrix_copy(tmatrix->matrix));
}

// A record over parts of its own; any of them may be null for want of memory.
static telemetry_matrix *_telemetry_matrix_create_slice(matrix *values, sensor_array *sensor_slice,
                                                        timestamp_array *timestamp_slice)
{
    owned<matrix, matrix_destroy> owned_values(values);
    sensor_labels::owned_array owned_sensors(sensor_slice);
    timestamp_labels::owned_array owned_timestamps(timestamp_slice);
    if (!owned_values || !owned_sensors || !owned_timestamps) {
        return nullptr;
    }
    telemetry_matrix *slice = _telemetry_matrix_create(values, sensor_slice, timestamp_slice);
    if (slice != nullptr) {
        owned_values.release();
        owned_sensors.release();
        owned_timestamps.release();
    }
    return slice;
}

static void *_telemetry_matrix_get_columns(void *object, const uint32_t *indices, uint32_t n)
{
    const auto *tmatrix = static_cast<const telemetry_matrix *>(object);
    TELEMETRY_REQUIRE_COMPLETE(tmatrix);
    VESK_REQUIRE(indices != nullptr, "indices != ((void *)0)");
    VESK_REQUIRE(n > 0, "n > 0");
    for (uint32_t i = 0; i < n; ++i) {
        VESK_REQUIRE(indices[i] < matrix_get_number_columns(tmatrix->matrix),
                     "indices[i] < matrix_get_number_columns (tmatrix->matrix)");
    }
    return _telemetry_matrix_create_slice(
        matrix_get_columns(tmatrix->matrix, indices, n),
        _labels_slice<sensor_labels>(tmatrix->sensors, indices, n),
        timestamp_array_copy(tmatrix->timestamps));
}

static void *_telemetry_matrix_get_rows(void *object, const uint32_t *indices, uint32_t n)
{
    const auto *tmatrix = static_cast<const telemetry_matrix *>(object);
    TELEMETRY_REQUIRE_COMPLETE(tmatrix);
    VESK_REQUIRE(indices != nullptr, "indices != ((void *)0)");
    VESK_REQUIRE(n > 0, "n > 0");
    for (uint32_t i = 0; i < n; ++i) {
        VESK_REQUIRE(indices[i] < matrix_get_number_rows(tmatrix->matrix),
                     "indices[i] < matrix_get_number_rows (tmatrix->matrix)");
    }
    return _telemetry_matrix_create_slice(
        matrix_get_rows(tmatrix->matrix, indices, n), sensor_array_copy(tmatrix->sensors),
        _labels_slice<timestamp_labels>(tmatrix->timestamps, indices, n));
}

static int _telemetry_matrix_resize(void *object, uint32_t nrows, uint32_t ncols)
{
    auto *tmatrix = static_cast<telemetry_matrix *>(object);
    TELEMETRY_REQUIRE_COMPLETE(tmatrix);
    VESK_REQUIRE(nrows > 0, "nrows > 0");
    VESK_REQUIRE(ncols > 0, "ncols > 0");
    if (matrix_get_number_rows(tmatrix->matrix) == nrows &&
        matrix_get_number_columns(tmatrix->matrix) == ncols) {
        return 0;
    }
    int result = matrix_resize(tmatrix->matrix, nrows, ncols);
    if (result < 0) {
        return result;
    }
    result = _labels_resize<sensor_labels>(&tmatrix->sensors, ncols);
    if (result < 0) {
        return result;
    }
    return _labels_resize<timestamp_labels>(&tmatrix->timestamps, nrows);
}

static int _telemetry_matrix_set_columns(void *object, const matrix *vals, const uint32_t *indices)
{
    auto *tmatrix = static_cast<telemetry_matrix *>(object);
    TELEMETRY_REQUIRE_COMPLETE(tmatrix);
    if (matrix_get_type(vals) != MATRIX_TYPE_TELEMETRY) {
        return 0;
    }
    const uint32_t n = matrix_get_number_columns(vals);
    for (uint32_t i = 0; i < n; ++i) {
        VESK_REQUIRE(indices[i] < matrix_get_number_columns(tmatrix->matrix),
                     "indices[i] < matrix_get_number_columns (tmatrix->matrix)");
        sensor *copy =
            sensor_copy(sensor_array_get_sensors(telemetry_matrix_get_sensors(vals))[i], nullptr);
        if (copy == nullptr) {
            return qe_get_last_error();
        }
        // Into the list that every matrix with these sensors shares.
        const int result = sensor_array_set(tmatrix->sensors, static_cast<int>(indices[i]), copy);
        if (result < 0) {
            sensor_destroy(&copy);
            return result;
        }
    }
    if (matrix_get_number_rows(tmatrix->matrix) != matrix_get_number_rows(vals)) {
        return 0;
    }
    return _labels_replace<timestamp_labels>(
        &tmatrix->timestamps, timestamp_array_copy(telemetry_matrix_get_timestamps(vals)));
}

// A copy of the timestamps with those of `vals` at `indices`; null without memory. Timestamps never
// change in a list that may be shared, so there is always a new one.
static timestamp_array *_telemetry_matrix_merge_timestamps(const telemetry_matrix *tmatrix,
                                                           const matrix *vals,
                                                           const uint32_t *indices)
{
    const uint32_t size = timestamp_array_get_size(tmatrix->timestamps);
    timestamp_labels::owned_array merged(timestamp_array_create_empty(size));
    if (!merged) {
        return nullptr;
    }
    timestamp **entries = timestamp_array_get_timestamps(merged.get());
    timestamp **old = timestamp_array_get_timestamps(tmatrix->timestamps);
    timestamp **given = timestamp_array_get_timestamps(telemetry_matrix_get_timestamps(vals));
    const uint32_t n = matrix_get_number_rows(vals);
    for (uint32_t i = 0; i < n; ++i) {
        VESK_REQUIRE(indices[i] < matrix_get_number_rows(tmatrix->matrix),
                     "indices[i] < matrix_get_number_rows (tmatrix->matrix)");
        timestamp **entry = &entries[indices[i]];
        if (*entry != nullptr) {
            timestamp_destroy(entry);
        }
        if (!_labels_fill<timestamp_labels>(entry, given[i])) {
            return nullptr;
        }
    }
    for (uint32_t i = 0; i < size; ++i) {
        if (entries[i] == nullptr && old[i] != nullptr &&
            !_labels_fill<timestamp_labels>(&entries[i], old[i])) {
            return nullptr;
        }
    }
    return merged.release();
}

static int _telemetry_matrix_set_rows(void *object, const matrix *vals, const uint32_t *indices)
{
    auto *tmatrix = static_cast<telemetry_matrix *>(object);
    TELEMETRY_REQUIRE_COMPLETE(tmatrix);
    if (matrix_get_type(vals) != MATRIX_TYPE_TELEMETRY) {
        return 0;
    }
    const int result = _labels_replace<timestamp_labels>(
        &tmatrix->timestamps, _telemetry_matrix_merge_timestamps(tmatrix, vals, indices));
    if (result < 0 ||
        matrix_get_number_columns(tmatrix->matrix) != matrix_get_number_columns(vals)) {
        return result;
    }
    return _labels_replace<sensor_labels>(&tmatrix->sensors,
                                          sensor_array_copy(telemetry_matrix_get_sensors(vals)));
}

static void _matrix_init_telemetry_metadata(matrix *m)
{
    m->fn_destroy = _telemetry_matrix_destroy;
    m->fn_get = _telemetry_matrix_get;
    m->fn_set = _telemetry_matrix_set;
    m->fn_create_like = _telemetry_matrix_create_like;
    m->fn_get_col_slice = _telemetry_matrix_get_columns;
    m->fn_get_row_slice = _telemetry_matrix_get_rows;
    m->fn_copy = _telemetry_matrix_copy;
    m->fn_resize = _telemetry_matrix_resize;
    m->fn_set_rows = _telemetry_matrix_set_rows;
    m->fn_set_columns = _telemetry_matrix_set_columns;
}

// Makes `m` the matrix of the record. When the values cannot be borrowed, the header is reset and
// the record stays the caller's.
static int _telemetry_matrix_install(matrix *m, telemetry_matrix *tmatrix, uint32_t nrows,
                                     uint32_t ncols)
{
    _matrix_init(m, MATRIX_TYPE_TELEMETRY, nrows, ncols);
    m->matrix = tmatrix;
    _matrix_init_telemetry_metadata(m);
    if (matrix_enable_direct_access(m) == nullptr) {
        m->matrix = nullptr;
        _matrix_destruct(m);
        return qe_get_last_error();
    }
    return 0;
}

int telemetry_matrix_init(matrix *m, matrix *values, sensor_array *sensors,
                          timestamp_array *timestamps)
{
    VESK_REQUIRE(m != nullptr, "m != ((void *)0)");
    VESK_REQUIRE(values != nullptr, "matrix != ((void *)0)");
    VESK_REQUIRE(sensors != nullptr, "sensors != ((void *)0)");
    VESK_REQUIRE(timestamps != nullptr, "timestamps != ((void *)0)");
    _matrix_init(m, MATRIX_TYPE_TELEMETRY, matrix_get_number_rows(values),
                 matrix_get_number_columns(values));
    owned_memory<telemetry_matrix> tmatrix(_telemetry_matrix_create(values, sensors, timestamps));
    if (!tmatrix) {
        _matrix_destruct(m);
        return qe_get_last_error();
    }
    const int result = _telemetry_matrix_install(m, tmatrix.get(), m->nrows, m->ncols);
    if (result == 0) {
        tmatrix.release();
    }
    return result;
}

matrix *telemetry_matrix_create(matrix *values, sensor_array *sensors, timestamp_array *timestamps)
{
    return create_object<matrix>(
        [&](matrix *m) { return telemetry_matrix_init(m, values, sensors, timestamps); });
}

// The row labels of a vector taken at `time`; null without memory.
static timestamp_array *_telemetry_matrix_create_vector_timestamps(const timestamp *time)
{
    timestamp_labels::owned_array timestamps(timestamp_array_create_empty(1));
    if (!timestamps ||
        !_labels_fill<timestamp_labels>(timestamp_array_get_timestamps(timestamps.get()), time)) {
        return nullptr;
    }
    return timestamps.release();
}

int telemetry_matrix_init_vector(matrix *m, matrix *values, sensor_array *sensors,
                                 const timestamp *time)
{
    VESK_REQUIRE(m != nullptr, "m != ((void *)0)");
    VESK_REQUIRE(values != nullptr, "matrix != ((void *)0)");
    VESK_REQUIRE(sensors != nullptr, "sensors != ((void *)0)");
    VESK_REQUIRE(time != nullptr, "timestamp != ((void *)0)");
    VESK_REQUIRE(matrix_get_number_rows(values) == 1, "matrix_get_number_rows (matrix) == 1");
    timestamp_labels::owned_array timestamps(_telemetry_matrix_create_vector_timestamps(time));
    if (!timestamps) {
        return qe_get_last_error();
    }
    const int result = telemetry_matrix_init(m, values, sensors, timestamps.get());
    if (result == 0) {
        timestamps.release();
    }
    return result;
}

matrix *telemetry_matrix_create_vector(matrix *values, sensor_array *sensors, const timestamp *time)
{
    return create_object<matrix>(
        [&](matrix *m) { return telemetry_matrix_init_vector(m, values, sensors, time); });
}

#define MATRIX_REQUIRE_TELEMETRY(m)                                                                \
    VESK_REQUIRE((m) != nullptr, "m != ((void *)0)");                                              \
    VESK_REQUIRE((m)->type == MATRIX_TYPE_TELEMETRY, "m->type == MATRIX_TYPE_TELEMETRY")

uint32_t telemetry_matrix_get_number_sensors(const matrix *m)
{
    MATRIX_REQUIRE_TELEMETRY(m);
    const auto *tmatrix = static_cast<const telemetry_matrix *>(m->matrix);
    TELEMETRY_REQUIRE_VALUES(tmatrix);
    return matrix_get_number_columns(tmatrix->matrix);
}

uint32_t telemetry_matrix_get_number_timestamps(const matrix *m)
{
    MATRIX_REQUIRE_TELEMETRY(m);
    const auto *tmatrix = static_cast<const telemetry_matrix *>(m->matrix);
    TELEMETRY_REQUIRE_VALUES(tmatrix);
    return matrix_get_number_rows(tmatrix->matrix);
}

sensor_array *telemetry_matrix_get_sensors(const matrix *m)
{
    MATRIX_REQUIRE_TELEMETRY(m);
    const auto *tmatrix = static_cast<const telemetry_matrix *>(m->matrix);
    TELEMETRY_REQUIRE_VALUES(tmatrix);
    VESK_REQUIRE(tmatrix->sensors != nullptr, "tmatrix->sensors != ((void *)0)");
    return tmatrix->sensors;
}

timestamp_array *telemetry_matrix_get_timestamps(const matrix *m)
{
    MATRIX_REQUIRE_TELEMETRY(m);
    const auto *tmatrix = static_cast<const telemetry_matrix *>(m->matrix);
    TELEMETRY_REQUIRE_VALUES(tmatrix);
    VESK_REQUIRE(tmatrix->timestamps != nullptr, "tmatrix->timestamps != ((void *)0)");
    return tmatrix->timestamps;
}

int telemetry_matrix_is_equal(const matrix *m1, const matrix *m2)
{
    VESK_REQUIRE(m1 != nullptr, "m1 != ((void *)0)");
    VESK_REQUIRE(m2 != nullptr, "m2 != ((void *)0)");
    VESK_REQUIRE(matrix_get_type(m1) == MATRIX_TYPE_TELEMETRY,
                 "matrix_get_type (m1) == MATRIX_TYPE_TELEMETRY");
    VESK_REQUIRE(matrix_get_type(m2) == MATRIX_TYPE_TELEMETRY,
                 "matrix_get_type (m2) == MATRIX_TYPE_TELEMETRY");
    if (!matrix_is_equal(m1, m2)) {
        return 0;
    }
    const auto *tmatrix1 = static_cast<const telemetry_matrix *>(m1->matrix);
    const auto *tmatrix2 = static_cast<const telemetry_matrix *>(m2->matrix);
    VESK_REQUIRE(tmatrix1->sensors != nullptr, "sensors1 != ((void *)0)");
    VESK_REQUIRE(tmatrix2->sensors != nullptr, "sensors2 != ((void *)0)");
    if (!sensor_array_is_equal(tmatrix1->sensors, tmatrix2->sensors)) {
        return 0;
    }
    VESK_REQUIRE(tmatrix1->timestamps != nullptr, "timestamps1 != ((void *)0)");
    VESK_REQUIRE(tmatrix2->timestamps != nullptr, "timestamps2 != ((void *)0)");
    return timestamp_array_is_equal(tmatrix1->timestamps, tmatrix2->timestamps);
}

matrix *telemetry_matrix_clone_with_values(const matrix *m, matrix *vals)
{
    MATRIX_REQUIRE_TELEMETRY(m);
    VESK_REQUIRE(vals != nullptr, "vals != ((void *)0)");
    VESK_REQUIRE(matrix_is_equal_dimensions(m, vals), "matrix_is_equal_dimensions (m, vals)");
    auto *tmatrix = static_cast<telemetry_matrix *>(m->matrix);
    TELEMETRY_REQUIRE_COMPLETE(tmatrix);
    return create_object<matrix>([&](matrix *made) {
        telemetry_matrix *clone = _telemetry_matrix_clone_with_values(tmatrix, vals);
        if (clone == nullptr) {
            return qe_get_last_error();
        }
        const int result = _telemetry_matrix_install(made, clone, m->nrows, m->ncols);
        if (result < 0) {
            void *object = clone;
            clone->owns_matrix = 0;
            _telemetry_matrix_destroy(&object);
        }
        return result;
    });
}

void telemetry_matrix_detach_original_matrix(matrix *m)
{
    MATRIX_REQUIRE_TELEMETRY(m);
    auto *tmatrix = static_cast<telemetry_matrix *>(m->matrix);
    TELEMETRY_REQUIRE_VALUES(tmatrix);
    tmatrix->owns_matrix = 0;
}

int telemetry_matrix_update_vector_timestamp(matrix *m, const timestamp *time)
{
    VESK_REQUIRE(m != nullptr, "m != ((void *)0)");
    VESK_REQUIRE(m->version == 1, "m->version == ((char) 1)");
    VESK_REQUIRE(m->type == MATRIX_TYPE_TELEMETRY, "m->type == MATRIX_TYPE_TELEMETRY");
    VESK_REQUIRE(m->nrows == 1, "m->nrows == 1");
    auto *tmatrix = static_cast<telemetry_matrix *>(m->matrix);
    VESK_REQUIRE(tmatrix != nullptr, "tmatrix != ((void *)0)");
    VESK_REQUIRE(tmatrix->timestamps != nullptr, "tmatrix->timestamps != ((void *)0)");
    VESK_REQUIRE(time != nullptr, "timestamp != ((void *)0)");
    return _labels_replace<timestamp_labels>(&tmatrix->timestamps,
                                             _telemetry_matrix_create_vector_timestamps(time));
}
