// Summarising a file of raw samples: every so many consecutive vectors become one interval of the
// history.
#include <vesk/error.h>
#include <vesk/sensor_array.h>
#include <vesk/vesk_cb_record.h>
#include <vesk/vesk_current_buffer.h>
#include <vesk/vesk_current_buffer_compress.h>

#include "buffers/buffer_internal.hpp"
#include "buffers/summary_steps.hpp"
#include "support/precondition.hpp"

static int _vesk_write_current_interval(compression *state)
{
    VESK_REQUIRE(state->hbuf != nullptr, "state->hbuf != ((void *)0)");
    VESK_REQUIRE(!timestamp_is_null(&state->start), "!timestamp_is_null (&state->start)");
    VESK_REQUIRE(!timestamp_is_null(&state->end), "!timestamp_is_null (&state->end)");
    return vesk_hist_buffer_write_interval(state->hbuf, &state->start, &state->end,
                                           state->statistics.list(), &state->events);
}

// `end` keeps its value until the next sample replaces it.
static void _begin_interval(compression *state)
{
    state->statistics.clear();
    state->samples_in_interval = 0;
    timestamp_init_null(&state->start);
    vesk_hb_record_events_init_null(&state->events);
}

static int _vesk_update_current_interval(compression *state, vesk_cb_record_sensor_values *values)
{
    ++state->samples_in_interval;
    const timestamp *taken = vesk_cb_record_sensor_values_get_timestamp(values);
    timestamp_copy(taken, &state->end);
    if (state->samples_in_interval == 1) {
        timestamp_copy(taken, &state->start);
    }

    const float *readings = vesk_cb_record_sensor_values_get_values(values);
    const uint32_t n_readings = vesk_cb_record_sensor_values_get_number_values(values);
    const vesk_cb_record_sensor_names *names =
        vesk_current_buffer_get_sensor_working_set(state->cbuf);
    VESK_REQUIRE(readings != nullptr, "values != ((void *)0)");
    VESK_REQUIRE(n_readings > 0, "n_values > 0");
    VESK_REQUIRE(names != nullptr, "names != ((void *)0)");
    const sensor_array *sensors = vesk_cb_record_sensor_names_get_sensors(names);
    VESK_REQUIRE(sensor_array_get_size(sensors) > 0, "n_sensors > 0");
    if (n_readings != sensor_array_get_size(sensors)) {
        return QE_ERROR_MALFORMED;
    }

    int result = state->statistics.fold(sensors, readings);
    if (result < 0 || state->samples_in_interval < state->samples_per_hb_interval) {
        return result;
    }
    result = _vesk_write_current_interval(state);
    if (result == 0) {
        _begin_interval(state);
    }
    return result;
}

static int _vesk_update_event_stats(compression *state, const vesk_cb_record_event *event)
{
    vesk_hb_record_events *events = &state->events;
    switch (vesk_cb_record_event_get_type(event)) {
    case 1:
        ++events->n_type1_events;
        break;
    case 2:
        ++events->n_type2_events;
        break;
    case 3:
        ++events->n_type3_events;
        break;
    case 4:
        ++events->n_type4_events;
        break;
    case 5:
        ++events->n_type5_events;
        break;
    default:
        VESK_REQUIRE(false, "0");
    }
    return 0;
}

static int _vesk_handle_cb_record(compression *state, vesk_cb_record *rec)
{
    switch (rec->type) {
    case VESK_CB_RECORD_SENSOR_NAMES:
        // Reading it made it the working set of the buffer.
        state->statistics.sensors_change();
        return 0;
    case VESK_CB_RECORD_SENSOR_VALUES:
        return _vesk_update_current_interval(state, rec->values);
    case VESK_CB_RECORD_EVENT:
        return _vesk_update_event_stats(state, rec->event);
    default:
        VESK_REQUIRE(false, "0");
        return 0;
    }
}

// Whether handling it would abort.
static bool _is_odd(const vesk_cb_record *rec)
{
    constexpr uint32_t kinds_of_events = 5;
    if (rec->type == VESK_CB_RECORD_SENSOR_VALUES) {
        vesk_cb_record_sensor_values *values = rec->values;
        return values->values == nullptr ||
               vesk_cb_record_sensor_values_get_number_values(values) == 0 ||
               timestamp_is_null(vesk_cb_record_sensor_values_get_timestamp(values)) != 0;
    }
    if (rec->type == VESK_CB_RECORD_EVENT) {
        const uint32_t type = vesk_cb_record_event_get_type(rec->event);
        return type < 1 || type > kinds_of_events;
    }
    return rec->type != VESK_CB_RECORD_SENSOR_NAMES;
}

// Whether whole intervals come out and the history has room for them.
static bool _fits(const vesk_current_buffer *cbuf, const vesk_hist_buffer *hbuf,
                  uint32_t samples_per_hb_interval)
{
    const int room = vesk_hist_buffer_get_number_empty_intervals(hbuf);
    return cbuf->max_data_records % samples_per_hb_interval == 0 && room >= 0 &&
           static_cast<uint32_t>(room) >= cbuf->max_data_records / samples_per_hb_interval;
}

int _vesk_compression_init(compression *state, vesk_current_buffer *cbuf, vesk_hist_buffer *hbuf,
                           uint32_t samples_per_hb_interval, odd_content odd)
{
    state->cbuf = cbuf;
    state->hbuf = hbuf;
    state->odd = odd;
    vesk_cb_record_init_null(&state->rec);
    timestamp_init_null(&state->start);
    timestamp_init_null(&state->end);
    vesk_hb_record_events_init_null(&state->events);
    state->samples_in_interval = 0;
    state->samples_per_hb_interval = samples_per_hb_interval;
    return _fits(cbuf, hbuf, samples_per_hb_interval) ? 0 : QE_ERROR_MALFORMED;
}

void _vesk_compression_destruct(compression *state)
{
    vesk_cb_record_destruct(&state->rec);
    state->statistics.reset();
    vesk_hb_record_events_destruct(&state->events);
    timestamp_destruct(&state->start);
    timestamp_destruct(&state->end);
    vesk_current_buffer_close(&state->cbuf);
}

// Handles the next record. Returns 0 or a negative error, QE_ERROR_END_OF_RECORDS (-43) at the end.
static int _handle_next_record(compression *state)
{
    if (state->cbuf->num_data_records > state->cbuf->max_data_records) {
        return QE_ERROR_MALFORMED;
    }
    const int result = vesk_current_buffer_read_record(state->cbuf, &state->rec);
    if (result < 0) {
        return result;
    }
    if (state->odd == odd_content::gives_code && _is_odd(&state->rec)) {
        return QE_ERROR_MALFORMED;
    }
    return _vesk_handle_cb_record(state, &state->rec);
}

// Writes what an unfinished interval holds. A first sample that did not match its sensors leaves
// nothing to write.
static int _write_partial_interval(compression *state)
{
    if (state->samples_in_interval == 0 || state->statistics.is_empty()) {
        return 0;
    }
    return _vesk_write_current_interval(state);
}

int _vesk_compression_step(compression *state)
{
    const int result = _handle_next_record(state);
    if (result == 0) {
        return more_to_do;
    }
    const bool at_end = result == QE_ERROR_END_OF_RECORDS;
    // Behind a failure, what is written is of use only where it stays in sight.
    if (!at_end && state->odd == odd_content::gives_code) {
        return result;
    }
    const int written = _write_partial_interval(state);
    return at_end ? written : result;
}

int _vesk_current_buffer_compress(vesk_current_buffer *open, vesk_hist_buffer *hbuf,
                                  uint32_t samples_per_hb_interval)
{
    compression state;
    int result =
        _vesk_compression_init(&state, open, hbuf, samples_per_hb_interval, odd_content::aborts);
    if (result == 0) {
        do {
            result = _vesk_compression_step(&state);
        } while (result == more_to_do);
    }
    _vesk_compression_destruct(&state);
    return result;
}

int vesk_current_buffer_compress(const char *cbuf_filename, vesk_hist_buffer *hbuf,
                                 uint32_t samples_per_hb_interval)
{
    VESK_REQUIRE(cbuf_filename != nullptr, "cbuf_filename != ((void *)0)");
    VESK_REQUIRE(hbuf != nullptr, "hbuf != ((void *)0)");
    VESK_REQUIRE(samples_per_hb_interval > 0, "samples_per_hb_interval > 0");
    vesk_current_buffer *cbuf = vesk_current_buffer_open_for_read_write(cbuf_filename);
    return cbuf == nullptr ? qe_get_last_error()
                           : _vesk_current_buffer_compress(cbuf, hbuf, samples_per_hb_interval);
}
