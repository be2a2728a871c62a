// A record of a current buffer: a 4-byte type and the form of its payload.
//
//   type    payload
//   1       the sensors that the following values belong to   (vesk_cb_record_sensor_names)
//   2       one sample: a value for each sensor                (vesk_cb_record_sensor_values)
//   3       an event                                           (vesk_cb_record_event)

#include <vesk/vesk_cb_record.h>

#include "buffers/tagged_record.hpp"
#include "support/precondition.hpp"

static constexpr payload_operations<vesk_cb_record_sensor_names> names_operations = {
    vesk_cb_record_sensor_names_create_null, vesk_cb_record_sensor_names_destruct,
    vesk_cb_record_sensor_names_init_null, binary_serializer_read_vesk_cb_record_sensor_names,
    vesk_cb_record_sensor_names_destroy};

// Values are read over the held ones, so that a loop over the samples of a buffer keeps one array.
static constexpr payload_operations<vesk_cb_record_sensor_values> values_operations = {
    vesk_cb_record_sensor_values_create_null, nullptr, nullptr,
    binary_serializer_read_vesk_cb_record_sensor_values, vesk_cb_record_sensor_values_destroy};

static constexpr payload_operations<vesk_cb_record_event> event_operations = {
    vesk_cb_record_event_create_null, vesk_cb_record_event_destruct, vesk_cb_record_event_init_null,
    binary_serializer_read_vesk_cb_record_event, vesk_cb_record_event_destroy};

int vesk_cb_record_init_null(vesk_cb_record *rec)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    return tagged_record_init(rec, 0, nullptr);
}

int vesk_cb_record_init_sensor_names(vesk_cb_record *rec, vesk_cb_record_sensor_names *names)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    VESK_REQUIRE(names != nullptr, "names != ((void *)0)");
    return tagged_record_init(rec, VESK_CB_RECORD_SENSOR_NAMES, names);
}

int vesk_cb_record_init_sensor_values(vesk_cb_record *rec, vesk_cb_record_sensor_values *values)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    VESK_REQUIRE(values != nullptr, "values != ((void *)0)");
    return tagged_record_init(rec, VESK_CB_RECORD_SENSOR_VALUES, values);
}

int vesk_cb_record_init_event(vesk_cb_record *rec, vesk_cb_record_event *event)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    VESK_REQUIRE(event != nullptr, "event != ((void *)0)");
    return tagged_record_init(rec, VESK_CB_RECORD_EVENT, event);
}

void vesk_cb_record_destruct(vesk_cb_record *rec)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    if (rec->data != nullptr && rec->owns_data != 0) {
        switch (rec->type) {
        case VESK_CB_RECORD_SENSOR_NAMES:
            vesk_cb_record_sensor_names_destroy(&rec->names);
            break;
        case VESK_CB_RECORD_SENSOR_VALUES:
            vesk_cb_record_sensor_values_destroy(&rec->values);
            break;
        case VESK_CB_RECORD_EVENT:
            vesk_cb_record_event_destroy(&rec->event);
            break;
        default:
            VESK_REQUIRE(false, "0");
        }
    }
    tagged_record_init(rec, 0, nullptr);
}

void vesk_cb_record_detach(vesk_cb_record *rec)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    VESK_REQUIRE(rec->type > 0, "rec->type > 0");
    VESK_REQUIRE(rec->data != nullptr, "rec->data != ((void *)0)");
    rec->owns_data = 0;
}

int binary_serializer_write_vesk_cb_record(const vesk_cb_record *rec, writer *target)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    VESK_REQUIRE(target != nullptr, "writer != ((void *)0)");
    switch (rec->type) {
    case VESK_CB_RECORD_SENSOR_NAMES:
        VESK_REQUIRE(rec->names != nullptr, "rec->names != ((void *)0)");
        return tagged_record_write<vesk_cb_record_sensor_names>(
            rec->type, rec->names, binary_serializer_write_vesk_cb_record_sensor_names, target);
    case VESK_CB_RECORD_SENSOR_VALUES:
        VESK_REQUIRE(rec->values != nullptr, "rec->values != ((void *)0)");
        return tagged_record_write<vesk_cb_record_sensor_values>(
            rec->type, rec->values, binary_serializer_write_vesk_cb_record_sensor_values, target);
    case VESK_CB_RECORD_EVENT:
        VESK_REQUIRE(rec->event != nullptr, "rec->event != ((void *)0)");
        return tagged_record_write<vesk_cb_record_event>(
            rec->type, rec->event, binary_serializer_write_vesk_cb_record_event, target);
    default:
        VESK_REQUIRE(false, "0");
        return 0;
    }
}

int binary_serializer_read_vesk_cb_record(vesk_cb_record *rec, reader *source)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    VESK_REQUIRE(source != nullptr, "reader != ((void *)0)");
    uint32_t type = 0;
    const int nread = tagged_record_read_type(&type, source);
    if (nread <= 0) {
        return nread;
    }
    // An unknown record must leave the content of `rec` as it was, so the type is checked first.
    if (type < VESK_CB_RECORD_SENSOR_NAMES || type > VESK_CB_RECORD_EVENT) {
        return QE_ERROR_MALFORMED;
    }
    if (tagged_record_holds_other(rec, type)) {
        vesk_cb_record_destruct(rec);
    }
    switch (type) {
    case VESK_CB_RECORD_SENSOR_NAMES:
        return tagged_record_read_payload(rec, type, names_operations, source);
    case VESK_CB_RECORD_SENSOR_VALUES:
        return tagged_record_read_payload(rec, type, values_operations, source);
    default:
        return tagged_record_read_payload(rec, type, event_operations, source);
    }
}
