// A file of raw samples through all doors: read and appended to, beside a naive reader of the same
// bytes, and summarised.
#include <algorithm>
#include <string>

#include <vesk/error.h>
#include <vesk/vesk_buffer.h>
#include <vesk/vesk_current_buffer.h>
#include <vesk/vesk_current_buffer_compress.h>
#include <vesk/vesk_hist_buffer.h>

#include "common/model_buffer_reader.hpp"
#include "common/telemetry.hpp"
#include "common/temporary_directory.hpp"
#include "harness.hpp"

static constexpr const char *file_name = "buffer";
static constexpr const char *history_name = "history";

static constexpr const char *reading_aborts[] = {
    "nread != 0", // nothing behind the length of a string
};
static constexpr const char *summarising_aborts[] = {
    "nread != 0",
    "!timestamp_is_null (&state->start)", // a sample taken at second 0
    "!timestamp_is_null (&state->end)",
    "0",              // an event of another type than 1 to 5
    "list->seq != 0", // 65536 intervals
};
// One sample too many is read before that is noticed; it may not fit into the history (-2).
static constexpr int summarising_codes[] = {-2, -3, -4, -6, -12, -41, -48, -49};

// Reads the file to its end and closes it. Returns 0, a code or model_aborts.
static int _append_nothing(uint32_t *values, uint32_t *capacity)
{
    int answer = model_aborts;
    guarded({.documented_aborts = reading_aborts}, [&] {
        qe_set_last_error(0);
        vesk_current_buffer *cbuf = vesk_current_buffer_open_for_append(file_name);
        answer = cbuf != nullptr ? 0 : qe_get_last_error();
        if (cbuf != nullptr) {
            *values = cbuf->num_data_records;
            *capacity = cbuf->max_data_records;
            vesk_current_buffer_close(&cbuf);
        }
    });
    return answer;
}

// What was appended to a whole file is read with it.
static void _append(const std::string &input, uint32_t values, uint32_t capacity)
{
    const owned_matrix vector = make_vector(1000, {{"cpu", 1}, {"fan", 2}});
    const owned_event event = make_event(3, 1001, "text");
    const bool has_room = values < capacity;
    guarded({}, [&] {
        vesk_current_buffer *cbuf = vesk_current_buffer_open_for_append(file_name);
        expect_equal(has_room ? 0 : -2,
                     vesk_current_buffer_write_telemetry_vector(cbuf, vector.get()),
                     "a vector is taken while there is room");
        vesk_cb_record rec;
        vesk_cb_record_init_event(&rec, event.get());
        expect(binary_serializer_write_vesk_cb_record(&rec, cbuf->writer) >= 0,
               "an event is taken");
        vesk_current_buffer_close(&cbuf);
    });
    uint32_t values_then = 0;
    uint32_t capacity_then = 0;
    expect_equal(0, _append_nothing(&values_then, &capacity_then), "appending leaves it readable");
    expect_equal(values + (has_room ? 1 : 0), values_then, "the vector is there");
    expect(read_file(file_name).starts_with(input), "appending rewrites nothing");
}

static uint32_t _count_intervals()
{
    uint32_t intervals = 0;
    guarded({}, [&] {
        vesk_hist_buffer *hbuf = vesk_hist_buffer_open_for_read_write(history_name);
        expect(hbuf != nullptr, "the history that was made can be opened");
        vesk_hb_record rec;
        vesk_hb_record_init_null(&rec);
        int result = 0;
        while (result == 0) {
            result = vesk_hist_buffer_read_record(hbuf, &rec);
        }
        expect_equal(-43, result, "the history that was made can be read");
        intervals = hbuf->num_data_records;
        vesk_hb_record_destruct(&rec);
        vesk_hist_buffer_close(&hbuf);
    });
    return intervals;
}

static void _summarise(int readable, uint32_t values, uint32_t capacity, uint32_t step)
{
    int result = 0;
    const bool finished = guarded({.documented_aborts = summarising_aborts}, [&] {
        vesk_hist_buffer *hbuf = vesk_hist_buffer_create(history_name, 2 * (capacity / step));
        result = vesk_current_buffer_compress(file_name, hbuf, step);
        vesk_hist_buffer_close(&hbuf);
    });
    if (!finished) {
        return;
    }
    expect_documented(result, summarising_codes, "vesk_current_buffer_compress");
    expect(readable == 0 || result == readable || result == -2 || result == -6,
           "what cannot be read cannot be summarised");
    const uint32_t intervals = _count_intervals();
    if (result == 0) {
        expect_equal((values + step - 1) / step, intervals, "every sample is in an interval");
    }
}

static void _run(std::string_view input)
{
    const std::string file(input);
    put_file(file_name, input);
    model_buffer_reader model(file);
    const int expected = model.read_all(VESK_BUFFER_TYPE_CURRENT);
    uint32_t values = 0;
    uint32_t capacity = 2;
    const int answer = _append_nothing(&values, &capacity);
    expect_equal(expected, answer, "the library answers as the naive reader");
    if (answer == 0) {
        expect_equal(model.values(), values, "the library counts as the naive reader");
    }
    expect(read_file(file_name) == input, "reading changes nothing");
    for (const uint32_t step : {1U, 2U, capacity}) {
        if (capacity < UINT32_MAX / 2) {
            _summarise(answer, values, capacity, step);
        }
    }
    // Behind a torn end that reads like the end of the file, what is appended is lost.
    if (model.is_whole()) {
        _append(file, values, capacity);
    }
}

const fuzz_target target = {"current_buffer", input_form::zlib_streams, 8192, _run};
