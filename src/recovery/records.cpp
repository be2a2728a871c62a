// Measures the stored records and builds objects from them. Bytes out of a file go in, which may
// hold anything; the length of the record and the record itself come out. Each stored form is
// walked by one function, which only steps over the bytes when it gets no target, so measuring and
// building cannot disagree.
#include "recovery/records.hpp"

#include <algorithm>
#include <cmath>
#include <string.h>

#include "io/fields.hpp"
#include "recovery/byte_cursor.hpp"
#include "support/object.hpp"

// --- the forms ---------------------------------------------------------------------------------
//
// Each function takes one form from the cursor, which tells whether it was there. With a record it
// also puts there what it took; without one it only steps over it. The result is 0, or
// QE_ERROR_NO_MEMORY (-22).

// The library never writes microseconds other than 0, and its readers refuse them.
static timestamp _take_timestamp(byte_cursor *at, scanned_record *record)
{
    timestamp t;
    timestamp_init_null(&t);
    at->version(1);
    t.tv.tv_sec = static_cast<int32_t>(at->u32());
    const uint32_t microseconds = at->u32();
    if (record != nullptr && microseconds != 0) {
        record->has_microseconds = true;
        record->error = QE_ERROR_MALFORMED;
    }
    return t;
}

// Makes a string of what was stored as one. Null without memory.
static char *_create_text(const unsigned char *bytes, uint32_t length, scanned_record *record)
{
    char *text = allocate<char>(length + std::size_t(1));
    if (text == nullptr) {
        return nullptr;
    }
    memcpy(text, bytes, length);
    text[length] = 0;
    if (length == 0 || strlen(text) < length) {
        record->has_bad_text = true;
        record->error = QE_ERROR_MALFORMED;
    }
    return text;
}

// Puts the sensors into `sensors` unless `record` is null.
static int _take_sensors(byte_cursor *at, scanned_record *record, sensor_array *sensors)
{
    at->version(1);
    const uint32_t n = at->count(1);
    int result = record == nullptr ? 0 : sensor_array_init_empty(sensors, n);
    if (result < 0) {
        return result;
    }
    for (uint32_t i = 0; i < n && at->ok() && result == 0; ++i) {
        at->version(1);
        const uint32_t length = at->count(0);
        const unsigned char *bytes = at->take(length);
        if (record == nullptr) {
            continue;
        }
        const owned_memory<char> name(_create_text(bytes, length, record));
        sensor *made = name ? sensor_create(name.get()) : nullptr;
        if (made == nullptr) {
            sensor_array_destruct(sensors);
            result = QE_ERROR_NO_MEMORY;
        } else {
            sensor_array_set(sensors, static_cast<int>(i), made);
        }
    }
    return result;
}

static int _take_names(byte_cursor *at, scanned_record *record)
{
    at->version(1);
    const timestamp time = _take_timestamp(at, record);
    if (record == nullptr) {
        return _take_sensors(at, nullptr, nullptr);
    }
    record->kind = VESK_SCAN_SENSOR_NAMES;
    record->names.reset(vesk_cb_record_sensor_names_create_null());
    if (!record->names) {
        return QE_ERROR_NO_MEMORY;
    }
    record->names->timestamp = time;
    record->names->sensors = create_object<sensor_array>(
        [&](sensor_array *sensors) { return _take_sensors(at, record, sensors); });
    return record->names->sensors == nullptr ? QE_ERROR_NO_MEMORY : 0;
}

static int _take_values(byte_cursor *at, scanned_record *record)
{
    at->version(1);
    const timestamp time = _take_timestamp(at, record);
    const uint32_t n = at->count(1);
    const std::size_t size = n * sizeof(float);
    byte_cursor values(at->take(size), size);
    if (record == nullptr) {
        return 0;
    }
    record->kind = VESK_SCAN_SENSOR_VALUES;
    record->values.reset(vesk_cb_record_sensor_values_create_null());
    if (!record->values) {
        return QE_ERROR_NO_MEMORY;
    }
    record->values->timestamp = time;
    record->values->values = allocate<float>(n);
    if (record->values->values == nullptr) {
        return QE_ERROR_NO_MEMORY;
    }
    record->values->n_sensors = n;
    for (uint32_t i = 0; i < n; ++i) {
        record->values->values[i] = values.f32();
    }
    return 0;
}

static int _take_event(byte_cursor *at, scanned_record *record)
{
    at->version(1);
    const uint32_t type = at->u32();
    const timestamp time = _take_timestamp(at, record);
    const uint32_t length = at->count(0);
    const unsigned char *text = at->take(length);
    if (record == nullptr) {
        return 0;
    }
    record->kind = VESK_SCAN_EVENT;
    record->event.reset(vesk_cb_record_event_create_null());
    if (!record->event) {
        return QE_ERROR_NO_MEMORY;
    }
    record->event->type = type;
    record->event->timestamp = time;
    record->event->text = _create_text(text, length, record);
    return record->event->text == nullptr ? QE_ERROR_NO_MEMORY : 0;
}

static hist_value _hist_value_of(uint32_t count, byte_cursor *at)
{
    hist_value hv;
    hist_value_init(&hv);
    hv.count = count;
    for (float *field : {&hv.min_value, &hv.max_value, &hv.first_value, &hv.last_value, &hv.sum,
                         &hv.sum_squares, &hv.sum_cubes, &hv.sum_fourth_powers}) {
        *field = at->f32();
    }
    return hv;
}

// The summaries go to `hvalues` unless that is null.
static void _take_hist_values(byte_cursor *at, uint32_t n, hist_value *hvalues)
{
    constexpr std::size_t size_of_floats = 8 * sizeof(float);
    for (uint32_t i = 0; i < n && at->ok(); ++i) {
        at->version(1);
        const uint32_t count = at->u32();
        byte_cursor floats(at->take(size_of_floats), size_of_floats);
        if (hvalues != nullptr) {
            hvalues[i] = _hist_value_of(count, &floats);
        }
    }
}

static vesk_hb_record_events _take_event_counts(byte_cursor *at)
{
    vesk_hb_record_events events;
    vesk_hb_record_events_init_null(&events);
    at->version(1);
    for (uint32_t *counter :
         {&events.n_type1_events, &events.n_type4_events, &events.n_type2_events,
          &events.n_type3_events, &events.n_type5_events}) {
        *counter = at->u32();
    }
    return events;
}

static int _take_interval(byte_cursor *at, scanned_record *record)
{
    constexpr uint8_t version_without_events = 1;
    constexpr uint8_t version_with_events = 2;
    const uint8_t version = at->byte();
    if (version != version_without_events && version != version_with_events) {
        at->fail();
    }
    const timestamp start = _take_timestamp(at, record);
    const timestamp end = _take_timestamp(at, record);
    const uint32_t n = at->count(1);
    hist_value *hvalues = nullptr;
    if (record != nullptr) {
        record->kind = VESK_SCAN_INTERVAL;
        record->interval.reset(vesk_hb_record_sensor_values_create_null());
        hvalues = record->interval ? allocate<hist_value>(n) : nullptr;
        if (hvalues == nullptr) {
            return QE_ERROR_NO_MEMORY;
        }
        record->interval->start = start;
        record->interval->end = end;
        record->interval->n_sensors = n;
        record->interval->hvalues = hvalues;
    }
    _take_hist_values(at, n, hvalues);
    if (version == version_with_events) {
        const vesk_hb_record_events events = _take_event_counts(at);
        if (record != nullptr) {
            record->interval->events = events;
        }
    }
    return 0;
}

// --- one record --------------------------------------------------------------------------------

// A bare event begins with its version; every other record with a type, whose first byte is 0.
static int _take_record(uint32_t buffer_kind, byte_cursor *at, bool is_bare_event,
                        scanned_record *record)
{
    const bool current = buffer_kind == VESK_BUFFER_TYPE_CURRENT;
    if (is_bare_event) {
        const int result = _take_event(at, record);
        if (record != nullptr) {
            record->kind = VESK_SCAN_BARE_EVENT;
            record->error = QE_ERROR_MALFORMED;
        }
        return result;
    }
    switch (at->u32()) {
    case VESK_CB_RECORD_SENSOR_NAMES:
        return _take_names(at, record);
    case VESK_CB_RECORD_SENSOR_VALUES:
        return current ? _take_values(at, record) : _take_interval(at, record);
    case VESK_CB_RECORD_EVENT:
        if (current) {
            return _take_event(at, record);
        }
        break;
    default:
        break;
    }
    at->fail();
    return 0;
}

static bool _is_bare_event(uint32_t buffer_kind, const unsigned char *bytes)
{
    return buffer_kind == VESK_BUFFER_TYPE_CURRENT && bytes[0] == 1;
}

std::size_t _vesk_measure_record(uint32_t buffer_kind, const unsigned char *bytes, std::size_t n)
{
    if (n == 0) {
        return 0;
    }
    byte_cursor at(bytes, n);
    (void)_take_record(buffer_kind, &at, _is_bare_event(buffer_kind, bytes), nullptr);
    return at.ok() ? at.position() : 0;
}

std::size_t _vesk_measure_records(uint32_t buffer_kind, const unsigned char *bytes, std::size_t n)
{
    std::size_t at = 0;
    while (at < n) {
        const std::size_t length = _vesk_measure_record(buffer_kind, bytes + at, n - at);
        if (length == 0) {
            break;
        }
        at += length;
    }
    return at;
}

bool _vesk_are_records(uint32_t buffer_kind, const unsigned char *bytes, std::size_t n)
{
    return _vesk_measure_records(buffer_kind, bytes, n) == n;
}

int _vesk_build_record(uint32_t buffer_kind, const unsigned char *bytes, std::size_t n,
                       scanned_record *record)
{
    byte_cursor at(bytes, n);
    return _take_record(buffer_kind, &at, _is_bare_event(buffer_kind, bytes), record);
}

bool _vesk_is_without_values(const vesk_cb_record_sensor_values &sample)
{
    return std::all_of(sample.values, sample.values + sample.n_sensors,
                       [](float value) { return std::isnan(value); });
}

bool _vesk_is_without_values(const vesk_hb_record_sensor_values &interval)
{
    return std::all_of(interval.hvalues, interval.hvalues + interval.n_sensors,
                       [](const hist_value &summary) { return summary.count == 0; });
}

bool _vesk_is_without_values(const scanned_record &record)
{
    return record.values     ? _vesk_is_without_values(*record.values)
           : record.interval ? _vesk_is_without_values(*record.interval)
                             : false;
}
