// One interval in a history buffer:
//
//   version      1 byte, 2; a form of version 1 ends before the events
//   start        9 bytes, timestamp of the first sample
//   end          9 bytes, timestamp of the last sample
//   n_sensors    4 bytes, 1..10000
//   hvalues      n_sensors hist values of 37 bytes, in the order of the sensors
//   events       21 bytes, the event counters

#include <algorithm>
#include <stdlib.h>

#include <vesk/vesk_hb_record_sensor_values.h>

#include "io/fields.hpp"
#include "model/hist_value_form.hpp"
#include "support/object.hpp"
#include "support/owner.hpp"
#include "support/precondition.hpp"

// The version that is written, and that of every live record whatever version it was read from.
static constexpr uint8_t current_version = 2;

static void _free_hist_values(vesk_hb_record_sensor_values *rec)
{
    for (uint32_t i = 0; i < rec->n_sensors; ++i) {
        hist_value_destruct(&rec->hvalues[i]);
    }
    free(rec->hvalues);
    rec->hvalues = nullptr;
    rec->n_sensors = 0;
}

int vesk_hb_record_sensor_values_init(vesk_hb_record_sensor_values *rec, const timestamp *start,
                                      const timestamp *end, const hist_value_list *hvlist,
                                      const vesk_hb_record_events *events)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    VESK_REQUIRE(start != nullptr, "start != ((void *)0)");
    VESK_REQUIRE(end != nullptr, "end != ((void *)0)");
    VESK_REQUIRE(hvlist != nullptr, "hvlist != ((void *)0)");
    rec->version = current_version;
    timestamp_copy(start, &rec->start);
    timestamp_copy(end, &rec->end);
    rec->n_sensors = hist_value_list_get_size(hvlist);
    VESK_REQUIRE(rec->n_sensors > 0, "rec->n_sensors > 0");
    if (events != nullptr) {
        vesk_hb_record_events_copy(events, &rec->events);
    } else {
        vesk_hb_record_events_init_null(&rec->events);
    }
    rec->hvalues = hist_value_list_get_hist_value_copies(hvlist);
    if (rec->hvalues == nullptr) {
        rec->n_sensors = 0;
        vesk_hb_record_sensor_values_destruct(rec);
        return qe_get_last_error();
    }
    return 0;
}

vesk_hb_record_sensor_values *
vesk_hb_record_sensor_values_create(const timestamp *start, const timestamp *end,
                                    const hist_value_list *hvlist,
                                    const vesk_hb_record_events *events)
{
    return create_object<vesk_hb_record_sensor_values>([&](vesk_hb_record_sensor_values *rec) {
        return vesk_hb_record_sensor_values_init(rec, start, end, hvlist, events);
    });
}

int vesk_hb_record_sensor_values_init_null(vesk_hb_record_sensor_values *rec)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    rec->version = current_version;
    timestamp_init_null(&rec->start);
    timestamp_init_null(&rec->end);
    rec->hvalues = nullptr;
    rec->n_sensors = 0;
    vesk_hb_record_events_init_null(&rec->events);
    return 0;
}

vesk_hb_record_sensor_values *vesk_hb_record_sensor_values_create_null(void)
{
    return create_object<vesk_hb_record_sensor_values>(vesk_hb_record_sensor_values_init_null);
}

void vesk_hb_record_sensor_values_destruct(vesk_hb_record_sensor_values *rec)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    VESK_REQUIRE(rec->version == current_version, "rec->version == ((char) 2)");
    rec->version = 0;
    timestamp_destruct(&rec->start);
    timestamp_destruct(&rec->end);
    _free_hist_values(rec);
    vesk_hb_record_events_destruct(&rec->events);
}

void vesk_hb_record_sensor_values_destroy(vesk_hb_record_sensor_values **rec)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    VESK_REQUIRE(*rec != nullptr, "*rec != ((void *)0)");
    destroy_object(rec, vesk_hb_record_sensor_values_destruct);
}

hist_value *vesk_hb_record_sensor_values_get_hist_values(const vesk_hb_record_sensor_values *rec)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    VESK_REQUIRE(rec->version == current_version, "rec->version == ((char) 2)");
    return rec->hvalues;
}

uint32_t
vesk_hb_record_sensor_values_get_number_hist_values(const vesk_hb_record_sensor_values *rec)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    VESK_REQUIRE(rec->version == current_version, "rec->version == ((char) 2)");
    return rec->n_sensors;
}

timestamp *vesk_hb_record_sensor_values_get_start_timestamp(vesk_hb_record_sensor_values *rec)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    VESK_REQUIRE(rec->version == current_version, "rec->version == ((char) 2)");
    return &rec->start;
}

timestamp *vesk_hb_record_sensor_values_get_end_timestamp(vesk_hb_record_sensor_values *rec)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    VESK_REQUIRE(rec->version == current_version, "rec->version == ((char) 2)");
    return &rec->end;
}

vesk_hb_record_events *vesk_hb_record_sensor_values_get_events(vesk_hb_record_sensor_values *rec)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    VESK_REQUIRE(rec->version == current_version, "rec->version == ((char) 2)");
    return &rec->events;
}

int vesk_hb_record_sensor_values_is_equal(const vesk_hb_record_sensor_values *rec1,
                                          const vesk_hb_record_sensor_values *rec2)
{
    VESK_REQUIRE(rec1 != nullptr, "rec1 != ((void *)0)");
    VESK_REQUIRE(rec2 != nullptr, "rec2 != ((void *)0)");
    VESK_REQUIRE(rec1->version == current_version, "rec1->version == ((char) 2)");
    VESK_REQUIRE(rec2->version == current_version, "rec2->version == ((char) 2)");
    VESK_REQUIRE(rec1->hvalues != nullptr, "rec1->hvalues != ((void *)0)");
    VESK_REQUIRE(rec2->hvalues != nullptr, "rec2->hvalues != ((void *)0)");
    VESK_REQUIRE(rec1->n_sensors > 0, "rec1->n_sensors > 0");
    VESK_REQUIRE(rec2->n_sensors > 0, "rec2->n_sensors > 0");
    if (rec1->n_sensors != rec2->n_sensors || timestamp_is_equal(&rec1->start, &rec2->start) == 0 ||
        timestamp_is_equal(&rec1->end, &rec2->end) == 0 ||
        vesk_hb_record_events_is_equal(&rec1->events, &rec2->events) == 0) {
        return 0;
    }
    for (uint32_t i = 0; i < rec1->n_sensors; ++i) {
        if (hist_value_is_equal(&rec1->hvalues[i], &rec2->hvalues[i]) == 0) {
            return 0;
        }
    }
    return 1;
}

// The array of `rec`, copied; null and QE_ERROR_NO_MEMORY (-22) in the cell without memory.
static hist_value *_copy_hist_values(const vesk_hb_record_sensor_values *rec)
{
    hist_value *hvalues = allocate_zeroed<hist_value>(rec->n_sensors);
    if (hvalues != nullptr) {
        for (uint32_t i = 0; i < rec->n_sensors; ++i) {
            hist_value_copy(&rec->hvalues[i], &hvalues[i]);
        }
    }
    return hvalues;
}

vesk_hb_record_sensor_values *vesk_hb_record_sensor_values_copy(vesk_hb_record_sensor_values *rec,
                                                                vesk_hb_record_sensor_values *dst)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    rec->version = current_version;
    const uint32_t n_sensors = rec->n_sensors;
    owned_memory<hist_value> hvalues(_copy_hist_values(rec));
    if (!hvalues) {
        return nullptr;
    }
    if (dst == nullptr) {
        // The events are filled only here: a copy leaves the events of `dst` to the caller.
        dst = vesk_hb_record_sensor_values_create_null();
        if (dst == nullptr) {
            return nullptr;
        }
    } else if (dst->hvalues != nullptr) {
        _free_hist_values(dst);
    }
    dst->version = current_version;
    timestamp_copy(&rec->start, &dst->start);
    timestamp_copy(&rec->end, &dst->end);
    dst->n_sensors = n_sensors;
    dst->hvalues = hvalues.release();
    return dst;
}

// To the library's own streams in blocks, as numbers go (see io/fields.hpp); to others field by
// field.
static void _write_hist_values(const vesk_hb_record_sensor_values *rec, writer *target,
                               field_writer *fields)
{
    if (!_writer_takes_blocks(target)) {
        for (uint32_t i = 0; i < rec->n_sensors && !fields->failed(); ++i) {
            fields->form<hist_value>(binary_serializer_write_hist_value, &rec->hvalues[i]);
        }
        return;
    }
    constexpr uint32_t most = field_block_size / hist_value_bytes;
    unsigned char block[most * hist_value_bytes];
    for (uint32_t done = 0; done < rec->n_sensors && !fields->failed();) {
        const uint32_t n = std::min(rec->n_sensors - done, most);
        for (uint32_t i = 0; i < n; ++i) {
            VESK_REQUIRE(rec->hvalues[done + i].version == hist_value_version,
                         "hv->version == ((char) 1)");
            hist_value_store(rec->hvalues[done + i], block + i * hist_value_bytes);
        }
        fields->bytes(block, n * hist_value_bytes);
        done += n;
    }
}

int binary_serializer_write_vesk_hb_record_sensor_values(const vesk_hb_record_sensor_values *rec,
                                                         writer *target)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    VESK_REQUIRE(target != nullptr, "writer != ((void *)0)");
    VESK_REQUIRE(rec->version == current_version, "rec->version == 2");
    VESK_REQUIRE(rec->hvalues != nullptr, "rec->hvalues != ((void *)0)");
    VESK_REQUIRE(rec->n_sensors > 0, "rec->n_sensors > 0");
    if (rec->n_sensors > max_stored_count) {
        return QE_ERROR_LIMIT;
    }
    field_writer fields(target);
    fields.byte(current_version)
        .form(binary_serializer_write_timestamp, &rec->start)
        .form(binary_serializer_write_timestamp, &rec->end)
        .u32(rec->n_sensors);
    _write_hist_values(rec, target, &fields);
    return fields.form(binary_serializer_write_vesk_hb_record_events, &rec->events).result();
}

// Takes those of `count` hist values that a compressed stream of the library holds inflated
// already, and that are as they should be. Returns how many.
static uint32_t _read_held_values(hist_value *hvalues, uint32_t count, reader *source,
                                  field_reader *fields)
{
    uint32_t size = 0;
    const uint8_t *held = _zlib_reader_peek(source, &size);
    const uint32_t most = std::min(count, size / hist_value_bytes);
    uint32_t n = 0;
    while (n < most && hist_value_load(held + n * hist_value_bytes, &hvalues[n])) {
        ++n;
    }
    if (n > 0) {
        _zlib_reader_skip(source, n * hist_value_bytes);
        fields->held(static_cast<int>(n * hist_value_bytes));
    }
    return n;
}

// Reads `count` hist values into the array of the record, or into a new one when it has none of
// this length. After a failure the record counts those that were read.
static int _read_hist_values(vesk_hb_record_sensor_values *rec, uint32_t count, reader *source,
                             field_reader *fields)
{
    if (rec->hvalues != nullptr && rec->n_sensors != count) {
        _free_hist_values(rec);
    }
    const bool fresh = rec->hvalues == nullptr;
    if (fresh) {
        rec->hvalues = allocate_zeroed<hist_value>(count);
        if (rec->hvalues == nullptr) {
            return QE_ERROR_NO_MEMORY;
        }
    }
    for (uint32_t i = 0; fresh && i < count; ++i) {
        hist_value_init(&rec->hvalues[i]);
    }
    for (uint32_t i = 0; i < count;) {
        const uint32_t n = _read_held_values(&rec->hvalues[i], count - i, source, fields);
        i += n;
        if (n > 0) {
            continue;
        }
        if (!fields->form(binary_serializer_read_hist_value, &rec->hvalues[i]).ok()) {
            rec->n_sensors = i;
            return fields->result();
        }
        ++i;
    }
    rec->n_sensors = count;
    return 0;
}

int binary_serializer_read_vesk_hb_record_sensor_values(vesk_hb_record_sensor_values *rec,
                                                        reader *source)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    VESK_REQUIRE(source != nullptr, "reader != ((void *)0)");
    VESK_REQUIRE(rec->version == current_version, "rec->version == 2");
    uint8_t version = 0;
    uint32_t count = 0;
    field_reader fields(source);
    if (!fields.byte(&version).ok()) {
        return fields.result();
    }
    if (version == 0 || version > current_version) {
        return QE_ERROR_BAD_VERSION;
    }
    fields.form(binary_serializer_read_timestamp, &rec->start)
        .form(binary_serializer_read_timestamp, &rec->end)
        .u32(&count);
    if (!fields.ok()) {
        return fields.result();
    }
    if (count == 0 || count > max_stored_count) {
        return QE_ERROR_MALFORMED;
    }
    const int read = _read_hist_values(rec, count, source, &fields);
    if (read < 0) {
        return read;
    }
    vesk_hb_record_events_init_null(&rec->events);
    if (version > 1) {
        fields.form(binary_serializer_read_vesk_hb_record_events, &rec->events);
    }
    return fields.result();
}
