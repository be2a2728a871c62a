// Halving the resolution of a full history: the intervals are merged by pairs, in file order. A
// pair may have a sensor-names record between its two intervals; they then have sensors of their
// own, and the merged interval has the union.
#include <vesk/hist_value.h>
#include <vesk/hist_value_list.h>
#include <vesk/sensor_array.h>
#include <vesk/vesk_hb_record.h>
#include <vesk/vesk_hist_buffer_compress.h>

#include "buffers/buffer_file.hpp"
#include "buffers/summary_steps.hpp"

// Destroys `*names` if it is a copy, and forgets it in any case.
static void _release_names(const merging *state, vesk_hb_record_sensor_names **names)
{
    if (*names != nullptr && *names != state->hbuf_in->hb_rec_sensors_last) {
        vesk_hb_record_sensor_names_destroy(names);
    }
    *names = nullptr;
}

// Makes the names in `rec` the working set of the input. The first interval of a pair that is
// already read keeps its sensors. Returns 0 or a negative error.
static int _take_names(merging *state, vesk_hb_record_sensor_names **names1, vesk_hb_record *rec,
                       bool inside_pair)
{
    vesk_hist_buffer *hbuf_in = state->hbuf_in;
    VESK_REQUIRE(*names1 == hbuf_in->hb_rec_sensors_last,
                 "*names1 == state->hbuf_in->hb_rec_sensors_last");
    if (inside_pair) {
        *names1 = vesk_hb_record_sensor_names_copy(*names1, nullptr);
        if (*names1 == nullptr) {
            return qe_get_last_error();
        }
    }
    take_working_set(hbuf_in, rec);
    vesk_hb_record_destruct(rec);
    if (!inside_pair) {
        *names1 = hbuf_in->hb_rec_sensors_last;
    }
    return 0;
}

// Reads up to and with the next interval into `rec`. Returns 0 or a negative error, after which
// `rec` is empty.
static int _read_interval(merging *state, vesk_hb_record_sensor_names **names1, vesk_hb_record *rec,
                          bool inside_pair)
{
    vesk_hist_buffer *hbuf_in = state->hbuf_in;
    int result = 0;
    while (result == 0) {
        if (hbuf_in->num_data_records > hbuf_in->max_data_records) {
            result = QE_ERROR_MALFORMED;
            break;
        }
        // The count and the working set are kept here: the old set may still be needed.
        result = _vesk_hist_buffer_read_next(hbuf_in, rec);
        if (result < 0) {
            break;
        }
        if (rec->type == VESK_HB_RECORD_SENSOR_VALUES) {
            ++hbuf_in->num_data_records;
            return 0;
        }
        VESK_REQUIRE(rec->type == VESK_HB_RECORD_SENSOR_NAMES, "0");
        result = _take_names(state, names1, rec, inside_pair);
    }
    vesk_hb_record_destruct(rec);
    return result;
}

static int _vesk_get_next_intervals_to_compress(merging *state,
                                                vesk_hb_record_sensor_names **names1,
                                                vesk_hb_record *values1, vesk_hb_record *values2)
{
    VESK_REQUIRE(*names1 == nullptr, "*names1 == ((void *)0)");
    *names1 = vesk_hist_buffer_get_sensor_working_set(state->hbuf_in);
    VESK_REQUIRE(*names1 != nullptr, "*names1 != ((void *)0)");
    int result = _read_interval(state, names1, values1, false);
    if (result == 0) {
        result = _read_interval(state, names1, values2, true);
        if (result < 0) {
            vesk_hb_record_destruct(values1);
        }
    }
    if (result < 0) {
        _release_names(state, names1);
    }
    return result;
}

static void _vesk_cleanup_adjacent_intervals(merging *state, vesk_hb_record_sensor_names *names1,
                                             vesk_hb_record *values1, vesk_hb_record *values2)
{
    VESK_REQUIRE(values1->type == VESK_HB_RECORD_SENSOR_VALUES,
                 "values1->type == VESK_HB_RECORD_SENSOR_VALUES");
    VESK_REQUIRE(values2->type == VESK_HB_RECORD_SENSOR_VALUES,
                 "values2->type == VESK_HB_RECORD_SENSOR_VALUES");
    vesk_hb_record_destruct(values1);
    vesk_hb_record_destruct(values2);
    _release_names(state, &names1);
}

// Folds one interval into the list. The first of a pair must find every summary fresh, which
// forbids a sensor to occur twice. Returns 0 or a negative error.
static int _fold(merging *state, const vesk_hb_record_sensor_names *names,
                 const vesk_hb_record_sensor_values *values, bool first)
{
    const sensor_array *sensors = vesk_hb_record_sensor_names_get_sensors(names);
    const uint32_t n = sensor_array_get_size(sensors);
    if (n != vesk_hb_record_sensor_values_get_number_hist_values(values)) {
        return QE_ERROR_MALFORMED;
    }
    sensor *const *sensor_list = sensor_array_get_sensors(sensors);
    const hist_value *hvalues = vesk_hb_record_sensor_values_get_hist_values(values);
    for (uint32_t i = 0; i < n; ++i) {
        hist_value *hvalue = hist_value_list_add_if_not_present(&state->list, sensor_list[i]);
        if (hvalue == nullptr) {
            return qe_get_last_error();
        }
        if (first && hvalue->count != 0 && state->odd == odd_content::gives_code) {
            return QE_ERROR_MALFORMED;
        }
        VESK_REQUIRE(!first || hvalue->count == 0, "hvalue->count == 0");
        hist_value_merge_with(hvalue, &hvalues[i]);
    }
    return 0;
}

// Writes the merged pair to the output. Returns 0 or a negative error.
static int _write_merged_pair(merging *state)
{
    vesk_hb_record_sensor_values *values1 = state->values1.values;
    vesk_hb_record_sensor_values *values2 = state->values2.values;
    int result = _fold(state, state->names1, values1, true);
    if (result < 0) {
        return result;
    }
    // Without names in between, the working set still is that of the first interval.
    result = _fold(state, state->hbuf_in->hb_rec_sensors_last, values2, false);
    if (result < 0) {
        return result;
    }
    vesk_hb_record_events *events = vesk_hb_record_sensor_values_get_events(values1);
    vesk_hb_record_events_merge_with(events, vesk_hb_record_sensor_values_get_events(values2));
    return vesk_hist_buffer_write_interval(
        state->hbuf_out, vesk_hb_record_sensor_values_get_start_timestamp(values1),
        vesk_hb_record_sensor_values_get_end_timestamp(values2), &state->list, events);
}

// Reads one pair and writes it merged. Returns 0, QE_ERROR_END_OF_RECORDS (-43) when no pair is
// left, or an error.
static int _merge_next_pair(merging *state)
{
    int result = _vesk_get_next_intervals_to_compress(state, &state->names1, &state->values1,
                                                      &state->values2);
    if (result < 0) {
        return result;
    }
    result = _write_merged_pair(state);
    _vesk_cleanup_adjacent_intervals(state, state->names1, &state->values1, &state->values2);
    state->names1 = nullptr;
    if (result == 0) {
        state->intervals_consumed += 2;
        hist_value_list_clear(&state->list);
    }
    return result;
}

int _vesk_merging_init(merging *state, vesk_hist_buffer *hbuf_in, vesk_hist_buffer *hbuf_out,
                       odd_content odd)
{
    state->hbuf_in = hbuf_in;
    state->hbuf_out = hbuf_out;
    state->odd = odd;
    state->names1 = nullptr;
    vesk_hb_record_init_null(&state->values1);
    vesk_hb_record_init_null(&state->values2);
    hist_value_list_init(&state->list);
    state->intervals_consumed = 0;
    const uint32_t max_input_intervals = hbuf_in->max_data_records;
    VESK_REQUIRE(max_input_intervals > 0, "max_input_intervals > 0");
    const int room = vesk_hist_buffer_get_number_empty_intervals(hbuf_out);
    const bool fits = max_input_intervals % 2 == 0 && room >= 0 &&
                      static_cast<uint32_t>(room) >= max_input_intervals / 2;
    return fits ? 0 : QE_ERROR_MALFORMED;
}

void _vesk_merging_destruct(merging *state)
{
    hist_value_list_destruct(&state->list);
    vesk_hist_buffer_close(&state->hbuf_in);
}

int _vesk_merging_step(merging *state)
{
    const uint32_t max_input_intervals = state->hbuf_in->max_data_records;
    const int result = _merge_next_pair(state);
    if (result == QE_ERROR_END_OF_RECORDS) {
        return state->intervals_consumed == max_input_intervals
                   ? all_done
                   : static_cast<int>(QE_ERROR_NOT_FULL);
    }
    if (result < 0) {
        return result;
    }
    return state->intervals_consumed <= max_input_intervals ? more_to_do
                                                            : static_cast<int>(QE_ERROR_MALFORMED);
}

int _vesk_hist_buffer_compress(vesk_hist_buffer *open, vesk_hist_buffer *hbuf_out)
{
    merging state;
    int result = _vesk_merging_init(&state, open, hbuf_out, odd_content::aborts);
    if (result == 0) {
        do {
            result = _vesk_merging_step(&state);
        } while (result == more_to_do);
    }
    _vesk_merging_destruct(&state);
    return result;
}

int vesk_hist_buffer_compress(const char *hbuf_in_filename, vesk_hist_buffer *hbuf_out)
{
    VESK_REQUIRE(hbuf_in_filename != nullptr, "hbuf_in_filename != ((void *)0)");
    VESK_REQUIRE(hbuf_out != nullptr, "hbuf_out != ((void *)0)");
    vesk_hist_buffer *hbuf_in = vesk_hist_buffer_open_for_read_write(hbuf_in_filename);
    return hbuf_in == nullptr ? qe_get_last_error() : _vesk_hist_buffer_compress(hbuf_in, hbuf_out);
}
