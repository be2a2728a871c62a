#include "recovery/records.hpp"

#include "support/object.hpp"

// --- measuring
// ------------------------------------------------------------------------------------

static void _measure_timestamp(byte_cursor *at)
{
    at->version(1);
    at->take(8);
}

static void _measure_names(byte_cursor *at)
{
    at->version(1);
    _measure_timestamp(at);
    at->version(1);
    const uint32_t n = at->count(1);
    for (uint32_t i = 0; i < n && at->ok(); ++i) {
        at->version(1);
        at->take(at->count(0));
    }
}

static void _measure_values(byte_cursor *at)
{
    at->version(1);
    _measure_timestamp(at);
    at->take(static_cast<std::size_t>(at->count(1)) * 4);
}

static void _measure_event(byte_cursor *at)
{
    at->version(1);
    at->u32();
    _measure_timestamp(at);
    at->take(at->count(0));
}

// A hist value is its version, its count and eight floats.
static constexpr std::size_t hist_value_size = 37;

static void _measure_interval(byte_cursor *at)
{
    const uint8_t version = at->byte();
    if (version != 1 && version != 2) {
        at->fail();
    }
    _measure_timestamp(at);
    _measure_timestamp(at);
    const uint32_t n = at->count(1);
    for (uint32_t i = 0; i < n && at->ok(); ++i) {
        at->version(1);
        at->take(hist_value_size - 1);
    }
    if (version == 2) {
        at->version(1);
        at->take(20);
    }
}

// A bare event begins with its version; every other record with a type, whose first byte is 0.
static bool _is_bare_event(const unsigned char *bytes)
{
    return bytes[0] == 1;
}

std::size_t _vesk_measure_record(uint32_t buffer_kind, const unsigned char *bytes, std::size_t n)
{
    byte_cursor at(bytes, n);
    if (n == 0) {
        return 0;
    }
    const bool current = buffer_kind == VESK_BUFFER_TYPE_CURRENT;
    if (current && _is_bare_event(bytes)) {
        _measure_event(&at);
        return at.ok() ? at.position() : 0;
    }
    switch (at.u32()) {
    case VESK_CB_RECORD_SENSOR_NAMES:
        _measure_names(&at);
        break;
    case VESK_CB_RECORD_SENSOR_VALUES:
        current ? _measure_values(&at) : _measure_interval(&at);
        break;
    case VESK_CB_RECORD_EVENT:
        current ? _measure_event(&at) : at.fail();
        break;
    default:
        at.fail();
    }
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

// --- making
// ---------------------------------------------------------------------------------------

// Time beyond the second is nothing that the library wrote, and nothing that it reads.
static int _build_timestamp(byte_cursor *at, timestamp *t)
{
    at->version(1);
    t->tv.tv_sec = static_cast<int32_t>(at->u32());
    const uint32_t microseconds = at->u32();
    t->tv.tv_usec = 0;
    return microseconds == 0 ? 0 : QE_ERROR_MALFORMED;
}

// A string; null without memory. One that the library refuses to read sets `error`.
static char *_build_string(byte_cursor *at, int *error)
{
    const uint32_t length = at->u32();
    const unsigned char *bytes = at->take(length);
    char *text = allocate<char>(length + std::size_t(1));
    if (text == nullptr) {
        return nullptr;
    }
    memcpy(text, bytes, length);
    text[length] = 0;
    if (length == 0 || strlen(text) < length) {
        *error = QE_ERROR_MALFORMED;
    }
    return text;
}

static int _build_sensors(byte_cursor *at, sensor_array *sensors, int *error)
{
    at->version(1);
    const uint32_t n = at->u32();
    const int result = sensor_array_init_empty(sensors, n);
    if (result < 0) {
        return result;
    }
    for (uint32_t i = 0; i < n; ++i) {
        at->version(1);
        const owned_memory<char> name(_build_string(at, error));
        sensor *made = name ? sensor_create(name.get()) : nullptr;
        if (made == nullptr) {
            sensor_array_destruct(sensors);
            return QE_ERROR_NO_MEMORY;
        }
        sensor_array_set(sensors, static_cast<int>(i), made);
    }
    return 0;
}

static int _build_names(byte_cursor *at, scanned_record *record)
{
    record->kind = VESK_SCAN_SENSOR_NAMES;
    record->names.reset(vesk_cb_record_sensor_names_create_null());
    if (!record->names) {
        return QE_ERROR_NO_MEMORY;
    }
    at->version(1);
    record->error = _build_timestamp(at, &record->names->timestamp);
    record->names->sensors = create_object<sensor_array>(
        [&](sensor_array *sensors) { return _build_sensors(at, sensors, &record->error); });
    return record->names->sensors == nullptr ? QE_ERROR_NO_MEMORY : 0;
}

static int _build_values(byte_cursor *at, scanned_record *record)
{
    record->kind = VESK_SCAN_SENSOR_VALUES;
    record->values.reset(vesk_cb_record_sensor_values_create_null());
    if (!record->values) {
        return QE_ERROR_NO_MEMORY;
    }
    at->version(1);
    record->error = _build_timestamp(at, &record->values->timestamp);
    const uint32_t n = at->u32();
    record->values->values = allocate<float>(n);
    if (record->values->values == nullptr) {
        return QE_ERROR_NO_MEMORY;
    }
    record->values->n_sensors = n;
    for (uint32_t i = 0; i < n; ++i) {
        record->values->values[i] = at->f32();
    }
    return 0;
}

static int _build_event(byte_cursor *at, vesk_scan_kind kind, scanned_record *record)
{
    record->kind = kind;
    record->event.reset(vesk_cb_record_event_create_null());
    if (!record->event) {
        return QE_ERROR_NO_MEMORY;
    }
    at->version(1);
    record->event->type = at->u32();
    record->error = _build_timestamp(at, &record->event->timestamp);
    record->event->text = _build_string(at, &record->error);
    if (kind == VESK_SCAN_BARE_EVENT) {
        record->error = QE_ERROR_MALFORMED;
    }
    return record->event->text == nullptr ? QE_ERROR_NO_MEMORY : 0;
}

static void _build_hist_value(byte_cursor *at, hist_value *hv)
{
    hist_value_init(hv);
    at->version(1);
    hv->count = at->u32();
    for (float *field : {&hv->min_value, &hv->max_value, &hv->first_value, &hv->last_value,
                         &hv->sum, &hv->sum_squares, &hv->sum_cubes, &hv->sum_fourth_powers}) {
        *field = at->f32();
    }
}

static int _build_interval(byte_cursor *at, scanned_record *record)
{
    record->kind = VESK_SCAN_INTERVAL;
    record->interval.reset(vesk_hb_record_sensor_values_create_null());
    if (!record->interval) {
        return QE_ERROR_NO_MEMORY;
    }
    vesk_hb_record_sensor_values *interval = record->interval.get();
    const uint8_t version = at->byte();
    const int start = _build_timestamp(at, &interval->start);
    const int end = _build_timestamp(at, &interval->end);
    record->error = start < 0 ? start : end;
    const uint32_t n = at->u32();
    interval->hvalues = allocate<hist_value>(n);
    if (interval->hvalues == nullptr) {
        return QE_ERROR_NO_MEMORY;
    }
    interval->n_sensors = n;
    for (uint32_t i = 0; i < n; ++i) {
        _build_hist_value(at, &interval->hvalues[i]);
    }
    if (version == 2) {
        vesk_hb_record_events *events = &interval->events;
        at->version(1);
        for (uint32_t *counter :
             {&events->n_type1_events, &events->n_type4_events, &events->n_type2_events,
              &events->n_type3_events, &events->n_type5_events}) {
            *counter = at->u32();
        }
    }
    return 0;
}

int _vesk_build_record(uint32_t buffer_kind, const unsigned char *bytes, std::size_t n,
                       scanned_record *record)
{
    byte_cursor at(bytes, n);
    const bool current = buffer_kind == VESK_BUFFER_TYPE_CURRENT;
    if (current && _is_bare_event(bytes)) {
        return _build_event(&at, VESK_SCAN_BARE_EVENT, record);
    }
    switch (at.u32()) {
    case VESK_CB_RECORD_SENSOR_NAMES:
        return _build_names(&at, record);
    case VESK_CB_RECORD_SENSOR_VALUES:
        return current ? _build_values(&at, record) : _build_interval(&at, record);
    default:
        return _build_event(&at, VESK_SCAN_EVENT, record);
    }
}
