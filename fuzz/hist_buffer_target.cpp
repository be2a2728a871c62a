// A file of intervals through all doors: read, beside a naive reader of the same bytes, appended
// to, and halved.
#include <string>

#include <vesk/error.h>
#include <vesk/vesk_buffer.h>
#include <vesk/vesk_hist_buffer.h>
#include <vesk/vesk_hist_buffer_compress.h>

#include "common/history.hpp"
#include "common/model_buffer_reader.hpp"
#include "common/telemetry.hpp"
#include "common/temporary_directory.hpp"
#include "harness.hpp"

static constexpr const char *file_name = "history";
static constexpr const char *halved_name = "halved";

static constexpr const char *reading_aborts[] = {
    "nread != 0", // nothing behind the length of a string or behind the first count of events
};
static constexpr const char *halving_aborts[] = {
    "nread != 0",
    "*names1 != ((void *)0)",                         // no record at all
    "*names1 == state->hbuf_in->hb_rec_sensors_last", // names twice inside a pair
    "hvalue->count == 0",                             // a sensor twice in a set
    "list->seq != 0",                                 // 65536 pairs
};
static constexpr int halving_codes[] = {-3, -4, -6, -12, -41, -44, -48, -49};

// Reads an open buffer to its end. Returns 0 or a code.
static int _read_to_end(vesk_hist_buffer *hbuf)
{
    vesk_hb_record rec;
    vesk_hb_record_init_null(&rec);
    int result = 0;
    while (result == 0) {
        result = vesk_hist_buffer_read_record(hbuf, &rec);
    }
    vesk_hb_record_destruct(&rec);
    return result == -43 ? 0 : result;
}

// Reads a file. Returns 0, a code or model_aborts.
static int _read(const char *name, uint32_t *intervals, uint32_t *capacity)
{
    int answer = model_aborts;
    guarded({.documented_aborts = reading_aborts}, [&] {
        qe_set_last_error(0);
        vesk_hist_buffer *hbuf = vesk_hist_buffer_open_for_read_write(name);
        if (hbuf == nullptr) {
            answer = qe_get_last_error();
            return;
        }
        *capacity = hbuf->max_data_records;
        const int result = _read_to_end(hbuf);
        *intervals = hbuf->num_data_records;
        vesk_hist_buffer_close(&hbuf);
        answer = result;
    });
    return answer;
}

static void _append(const std::string &input, uint32_t intervals, uint32_t capacity)
{
    if (intervals >= capacity) {
        return;
    }
    const owned_hist_list list = make_list({{"cpu", {1, 2}}, {"fan", {}}});
    const timestamp when = make_timestamp(1000);
    guarded({}, [&] {
        vesk_hist_buffer *hbuf = vesk_hist_buffer_open_for_read_write(file_name);
        expect_equal(0, _read_to_end(hbuf), "a file is read twice alike");
        expect_equal(0, vesk_hist_buffer_write_interval(hbuf, &when, &when, list.get(), nullptr),
                     "an interval is taken");
        vesk_hist_buffer_close(&hbuf);
    });
    uint32_t intervals_then = 0;
    uint32_t capacity_then = 0;
    expect_equal(0, _read(file_name, &intervals_then, &capacity_then),
                 "appending leaves it readable");
    expect_equal(intervals + 1, intervals_then, "the interval is there");
    expect(read_file(file_name).starts_with(input), "appending rewrites nothing");
}

static void _halve(int readable, uint32_t intervals, uint32_t capacity)
{
    int result = 0;
    const bool finished = guarded({.documented_aborts = halving_aborts}, [&] {
        vesk_hist_buffer *hbuf = vesk_hist_buffer_create(halved_name, capacity);
        result = vesk_hist_buffer_compress(file_name, hbuf);
        vesk_hist_buffer_close(&hbuf);
    });
    if (!finished) {
        return;
    }
    expect_documented(result, halving_codes, "vesk_hist_buffer_compress");
    expect(readable == 0 || result == readable || result == -6,
           "what cannot be read cannot be halved");
    uint32_t halved = 0;
    uint32_t halved_capacity = 0;
    expect_equal(0, _read(halved_name, &halved, &halved_capacity),
                 "the history that was made can be read");
    expect(result != 0 || (intervals == capacity && halved == intervals / 2),
           "a full history is halved");
}

static void _run(std::string_view input)
{
    const std::string file(input);
    put_file(file_name, input);
    model_buffer_reader model(file);
    const int expected = model.read_all(VESK_BUFFER_TYPE_HIST);
    uint32_t intervals = 0;
    uint32_t capacity = 2;
    const int answer = _read(file_name, &intervals, &capacity);
    expect_equal(expected, answer, "the library answers as the naive reader");
    if (answer == 0) {
        expect_equal(model.values(), intervals, "the library counts as the naive reader");
    }
    expect(read_file(file_name) == input, "reading changes nothing");
    _halve(answer, intervals, capacity);
    // Behind a torn end that reads like the end of the file, what is appended is lost.
    if (model.is_whole()) {
        _append(file, intervals, capacity);
    }
}

const fuzz_target target = {"hist_buffer", input_form::zlib_streams, 8192, _run};
