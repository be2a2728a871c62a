// One sample in a current buffer:
//
//   version      1 byte, 1
//   timestamp    9 bytes
//   n_sensors    4 bytes, 1..10000
//   values       n_sensors floats of 4 bytes, in the order of the sensors

#include <stdlib.h>

#include <vesk/matrix_compare.h>
#include <vesk/sensor_value.h>
#include <vesk/vesk_cb_record_sensor_values.h>

#include "buffers/vector_precondition.hpp"
#include "io/fields.hpp"
#include "support/object.hpp"
#include "support/precondition.hpp"

// A record reads from the vector that it was made of or from its own array, never from both.
static bool _has_one_source(const vesk_cb_record_sensor_values *rec)
{
    return (rec->values == nullptr) != (rec->vector == nullptr);
}

namespace
{

// The values of a record as single-precision floats, wherever they come from. The row of a vector
// with direct access is read in place; vectors without it are read through matrix_get(), which
// checks them.
class sample
{
public:
    explicit sample(const vesk_cb_record_sensor_values *rec)
        : values_(rec->values), vector_(rec->vector),
          row_(vector_ != nullptr && vector_->values != nullptr && rec->n_sensors <= vector_->ncols
                   ? vector_->values[0]
                   : nullptr)
    {
    }

    // Calls visit(get), where get(i) is value number i; a value of the record's own array is not
    // copied on the way, so that it keeps its bits.
    template <typename Visit>
    auto with_getter(Visit visit) const
    {
        if (values_ != nullptr) {
            return visit([this](uint32_t i) -> const float & { return values_[i]; });
        }
        if (row_ != nullptr) {
            return visit([this](uint32_t i) { return static_cast<float>(row_[i]); });
        }
        return visit([this](uint32_t i) { return static_cast<float>(matrix_get(vector_, 0, i)); });
    }

    float operator[](uint32_t i) const
    {
        return with_getter([i](auto get) { return get(i); });
    }

private:
    const float *values_;
    const matrix *vector_;
    const double *row_;
};

} // namespace

int vesk_cb_record_sensor_values_init(vesk_cb_record_sensor_values *rec, const matrix *vector)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    VESK_REQUIRE(vector != nullptr, "vector != ((void *)0)");
    const timestamp *first = vector_timestamp(vector);
    rec->version = 1;
    timestamp_copy(first, &rec->timestamp);
    rec->n_sensors = telemetry_matrix_get_number_sensors(vector);
    VESK_REQUIRE(rec->n_sensors > 0, "rec->n_sensors > 0");
    rec->vector = vector;
    rec->values = nullptr;
    return 0;
}

vesk_cb_record_sensor_values *vesk_cb_record_sensor_values_create(const matrix *vector)
{
    return create_object<vesk_cb_record_sensor_values>([&](vesk_cb_record_sensor_values *rec) {
        return vesk_cb_record_sensor_values_init(rec, vector);
    });
}

int vesk_cb_record_sensor_values_init_null(vesk_cb_record_sensor_values *rec)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    rec->version = 1;
    timestamp_init_null(&rec->timestamp);
    rec->values = nullptr;
    rec->n_sensors = 0;
    rec->vector = nullptr;
    return 0;
}

vesk_cb_record_sensor_values *vesk_cb_record_sensor_values_create_null(void)
{
    return create_object<vesk_cb_record_sensor_values>(vesk_cb_record_sensor_values_init_null);
}

void vesk_cb_record_sensor_values_destruct(vesk_cb_record_sensor_values *rec)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    VESK_REQUIRE(rec->version == 1, "rec->version == ((char) 1)");
    if (rec->values != nullptr) {
        VESK_REQUIRE(rec->vector == nullptr, "rec->vector == ((void *)0)");
        free(rec->values);
        rec->values = nullptr;
    }
    rec->version = 0;
    timestamp_destruct(&rec->timestamp);
    rec->n_sensors = 0;
    rec->vector = nullptr;
}

void vesk_cb_record_sensor_values_destroy(vesk_cb_record_sensor_values **rec)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    VESK_REQUIRE(*rec != nullptr, "*rec != ((void *)0)");
    destroy_object(rec, vesk_cb_record_sensor_values_destruct);
}

uint32_t vesk_cb_record_sensor_values_get_number_values(const vesk_cb_record_sensor_values *rec)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    VESK_REQUIRE(rec->version == 1, "rec->version == ((char) 1)");
    return rec->n_sensors;
}

timestamp *vesk_cb_record_sensor_values_get_timestamp(vesk_cb_record_sensor_values *rec)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    VESK_REQUIRE(rec->version == 1, "rec->version == ((char) 1)");
    return &rec->timestamp;
}

float *vesk_cb_record_sensor_values_get_values(vesk_cb_record_sensor_values *rec)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    VESK_REQUIRE(rec->version == 1, "rec->version == ((char) 1)");
    VESK_REQUIRE(_has_one_source(rec),
                 "(rec->values == ((void *)0)) ^ (rec->vector == ((void *)0))");
    if (rec->values == nullptr) {
        float *values = allocate<float>(rec->n_sensors);
        if (values == nullptr) {
            return nullptr;
        }
        sample(rec).with_getter([&](auto get) {
            for (uint32_t i = 0; i < rec->n_sensors; ++i) {
                values[i] = get(i);
            }
        });
        rec->values = values;
        rec->vector = nullptr;
    }
    return rec->values;
}

int vesk_cb_record_sensor_values_is_equal(const vesk_cb_record_sensor_values *rec1,
                                          const vesk_cb_record_sensor_values *rec2)
{
    VESK_REQUIRE(rec1 != nullptr, "rec1 != ((void *)0)");
    VESK_REQUIRE(rec2 != nullptr, "rec2 != ((void *)0)");
    VESK_REQUIRE(rec1->version == 1, "rec1->version == ((char) 1)");
    VESK_REQUIRE(rec2->version == 1, "rec2->version == ((char) 1)");
    VESK_REQUIRE(_has_one_source(rec1),
                 "(rec1->values == ((void *)0)) ^ (rec1->vector == ((void *)0))");
    VESK_REQUIRE(_has_one_source(rec2),
                 "(rec2->values == ((void *)0)) ^ (rec2->vector == ((void *)0))");
    if (timestamp_is_equal(&rec1->timestamp, &rec2->timestamp) == 0 ||
        rec1->n_sensors != rec2->n_sensors) {
        return 0;
    }
    if (rec1->vector != nullptr && rec2->vector != nullptr) {
        return matrix_is_equal(rec1->vector, rec2->vector);
    }
    const sample sample1(rec1);
    const sample sample2(rec2);
    for (uint32_t i = 0; i < rec1->n_sensors; ++i) {
        if (sensor_value_compare(sample1[i], sample2[i]) != 0) {
            return 0;
        }
    }
    return 1;
}

int binary_serializer_write_vesk_cb_record_sensor_values(const vesk_cb_record_sensor_values *rec,
                                                         writer *target)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    VESK_REQUIRE(target != nullptr, "writer != ((void *)0)");
    VESK_REQUIRE(rec->version == 1, "rec->version == ((char) 1)");
    VESK_REQUIRE(_has_one_source(rec),
                 "(rec->values == ((void *)0)) ^ (rec->vector == ((void *)0))");
    VESK_REQUIRE(rec->n_sensors > 0, "rec->n_sensors > 0");
    if (rec->n_sensors > max_stored_count) {
        return QE_ERROR_LIMIT;
    }
    field_writer fields(target);
    fields.byte(1).form(binary_serializer_write_timestamp, &rec->timestamp).u32(rec->n_sensors);
    sample(rec).with_getter([&](auto get) {
        fields.f32s(rec->n_sensors, [&](uint32_t i) { return bits_of(get(i)); });
    });
    return fields.result();
}

// Gives the record an array for `count` values; the one that it has when the count is the same.
static int _prepare_values(vesk_cb_record_sensor_values *rec, uint32_t count)
{
    if (rec->values != nullptr && rec->n_sensors != count) {
        free(rec->values);
        rec->values = nullptr;
        rec->n_sensors = 0;
    }
    if (rec->values == nullptr) {
        rec->values = allocate<float>(count);
        if (rec->values == nullptr) {
            return QE_ERROR_NO_MEMORY;
        }
    }
    rec->n_sensors = count;
    rec->vector = nullptr;
    return 0;
}

int binary_serializer_read_vesk_cb_record_sensor_values(vesk_cb_record_sensor_values *rec,
                                                        reader *source)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    VESK_REQUIRE(source != nullptr, "reader != ((void *)0)");
    VESK_REQUIRE(rec->version == 1, "rec->version == ((char) 1)");
    uint32_t count = 0;
    field_reader fields(source);
    fields.version(1).form(binary_serializer_read_timestamp, &rec->timestamp).u32(&count);
    if (!fields.ok()) {
        return fields.result();
    }
    if (count == 0 || count > max_stored_count) {
        return QE_ERROR_MALFORMED;
    }
    const int prepared = _prepare_values(rec, count);
    if (prepared < 0) {
        return prepared;
    }
    return fields.f32s(rec->values, count).result();
}
