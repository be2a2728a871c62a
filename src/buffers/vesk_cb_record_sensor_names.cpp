// The sensors that the values behind this record belong to, in a current buffer and in a history
// buffer alike:
//
//   version      1 byte, 1
//   timestamp    9 bytes, of the first values
//   sensors      sensor array

#include <vesk/vesk_cb_record_sensor_names.h>

#include "buffers/vector_precondition.hpp"
#include "io/fields.hpp"
#include "support/object.hpp"
#include "support/owner.hpp"
#include "support/precondition.hpp"

int vesk_cb_record_sensor_names_init(vesk_cb_record_sensor_names *rec, const matrix *vector)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    VESK_REQUIRE(vector != nullptr, "vector != ((void *)0)");
    const timestamp *first = vector_timestamp(vector);
    rec->version = 1;
    timestamp_copy(first, &rec->timestamp);
    rec->sensors = sensor_array_copy(telemetry_matrix_get_sensors(vector));
    if (rec->sensors == nullptr) {
        timestamp_destruct(&rec->timestamp);
        rec->version = 0;
        return qe_get_last_error();
    }
    return 0;
}

vesk_cb_record_sensor_names *vesk_cb_record_sensor_names_create(const matrix *vector)
{
    return create_object<vesk_cb_record_sensor_names>([&](vesk_cb_record_sensor_names *rec) {
        return vesk_cb_record_sensor_names_init(rec, vector);
    });
}

int vesk_cb_record_sensor_names_init_null(vesk_cb_record_sensor_names *rec)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    rec->version = 1;
    timestamp_init_null(&rec->timestamp);
    rec->sensors = nullptr;
    return 0;
}

vesk_cb_record_sensor_names *vesk_cb_record_sensor_names_create_null(void)
{
    return create_object<vesk_cb_record_sensor_names>(vesk_cb_record_sensor_names_init_null);
}

void vesk_cb_record_sensor_names_destruct(vesk_cb_record_sensor_names *rec)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    VESK_REQUIRE(rec->version > 0, "rec->version > 0");
    rec->version = 0;
    timestamp_destruct(&rec->timestamp);
    if (rec->sensors != nullptr) {
        sensor_array_destroy(&rec->sensors);
    }
}

void vesk_cb_record_sensor_names_destroy(vesk_cb_record_sensor_names **rec)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    VESK_REQUIRE(*rec != nullptr, "*rec != ((void *)0)");
    destroy_object(rec, vesk_cb_record_sensor_names_destruct);
}

int vesk_cb_record_sensor_names_is_equal(const vesk_cb_record_sensor_names *rec1,
                                         const vesk_cb_record_sensor_names *rec2)
{
    VESK_REQUIRE(rec1 != nullptr, "rec1 != ((void *)0)");
    VESK_REQUIRE(rec2 != nullptr, "rec2 != ((void *)0)");
    VESK_REQUIRE(rec1->version > 0, "rec1->version > 0");
    VESK_REQUIRE(rec2->version > 0, "rec2->version > 0");
    return static_cast<int>(timestamp_is_equal(&rec1->timestamp, &rec2->timestamp) != 0 &&
                            vesk_cb_record_sensor_names_are_sensors_equal(rec1, rec2) != 0);
}

int vesk_cb_record_sensor_names_are_sensors_equal(const vesk_cb_record_sensor_names *rec1,
                                                  const vesk_cb_record_sensor_names *rec2)
{
    VESK_REQUIRE(rec1 != nullptr, "rec1 != ((void *)0)");
    VESK_REQUIRE(rec2 != nullptr, "rec2 != ((void *)0)");
    VESK_REQUIRE(rec1->version > 0, "rec1->version > 0");
    VESK_REQUIRE(rec2->version > 0, "rec2->version > 0");
    return sensor_array_is_equal(rec1->sensors, rec2->sensors);
}

vesk_cb_record_sensor_names *
vesk_cb_record_sensor_names_copy(const vesk_cb_record_sensor_names *rec,
                                 vesk_cb_record_sensor_names *dest)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    VESK_REQUIRE(rec->version > 0, "rec->version > 0");
    owned<sensor_array, sensor_array_destroy> sensors(sensor_array_copy(rec->sensors));
    if (!sensors) {
        return nullptr;
    }
    if (dest == nullptr) {
        dest = allocate<vesk_cb_record_sensor_names>();
        if (dest == nullptr) {
            return nullptr;
        }
    }
    dest->version = rec->version;
    timestamp_copy(&rec->timestamp, &dest->timestamp);
    dest->sensors = sensors.release();
    return dest;
}

uint32_t vesk_cb_record_sensor_names_get_number_sensors(const vesk_cb_record_sensor_names *rec)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    VESK_REQUIRE(rec->version > 0, "rec->version > 0");
    return sensor_array_get_size(rec->sensors);
}

sensor_array *vesk_cb_record_sensor_names_get_sensors(const vesk_cb_record_sensor_names *rec)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    VESK_REQUIRE(rec->version > 0, "rec->version > 0");
    return rec->sensors;
}

timestamp *vesk_cb_record_sensor_names_get_timestamp(vesk_cb_record_sensor_names *rec)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    VESK_REQUIRE(rec->version > 0, "rec->version > 0");
    return &rec->timestamp;
}

int binary_serializer_write_vesk_cb_record_sensor_names(const vesk_cb_record_sensor_names *rec,
                                                        writer *target)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    VESK_REQUIRE(target != nullptr, "writer != ((void *)0)");
    VESK_REQUIRE(rec->version == 1, "rec->version == 1");
    return field_writer(target)
        .byte(1)
        .form(binary_serializer_write_timestamp, &rec->timestamp)
        .form<sensor_array>(binary_serializer_write_sensor_array, rec->sensors)
        .result();
}

int binary_serializer_read_vesk_cb_record_sensor_names(vesk_cb_record_sensor_names *rec,
                                                       reader *source)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    VESK_REQUIRE(source != nullptr, "reader != ((void *)0)");
    VESK_REQUIRE(rec->version == 1, "rec->version == 1");
    field_reader fields(source);
    fields.version(1).form(binary_serializer_read_timestamp, &rec->timestamp);
    if (!fields.ok()) {
        return fields.result();
    }
    owned<sensor_array, sensor_array_destroy> sensors(sensor_array_create_null());
    if (!sensors) {
        return qe_get_last_error();
    }
    if (fields.form(binary_serializer_read_sensor_array, sensors.get()).ok()) {
        if (rec->sensors != nullptr) {
            sensor_array_destroy(&rec->sensors);
        }
        rec->sensors = sensors.release();
    }
    return fields.result();
}
