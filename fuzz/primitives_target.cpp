// The small stored forms: strings, timestamps, sensors, arrays of both, summaries, event counters,
// and the text form of timestamps. The first byte chooses; what is read must be written again as it
// was.
#include <cstdlib>
#include <string>

#include <vesk/binary_serializer_common.h>
#include <vesk/error.h>
#include <vesk/hist_value.h>
#include <vesk/sensor_array.h>
#include <vesk/timestamp_array.h>
#include <vesk/vesk_hb_record_events.h>

#include "common/memory_streams.hpp"
#include "harness.hpp"

static constexpr const char *aborts[] = {
    "nread != 0", // nothing behind the length of a string or behind the first count of events
};
static constexpr int codes[] = {-6, -12, -43, -48, -49};

// Reads one form and writes it to `copy`. Returns the result of the read.
using round_trip = int (*)(reader *, writer *);

static int _string(reader *source, writer *copy)
{
    int nread = 0;
    char *text = binary_serializer_read_string(source, &nread);
    if (text == nullptr) {
        return qe_get_last_error();
    }
    binary_serializer_write_string(text, copy);
    free(text);
    return nread;
}

// A form that is read into an object on the stack.
template <typename T>
static int _object(int (*init)(T *), int (*read)(T *, reader *), int (*write)(const T *, writer *),
                   void (*destruct)(T *), reader *source, writer *copy)
{
    T object;
    init(&object);
    const int nread = read(&object, source);
    if (nread > 0) {
        expect_equal(nread, write(&object, copy), "a form is written in as many bytes as read");
    }
    destruct(&object);
    return nread;
}

static int _sensor(reader *source, writer *copy)
{
    sensor *s = nullptr;
    const int nread = binary_serializer_read_sensor(&s, source);
    if (nread > 0) {
        binary_serializer_write_sensor(s, copy);
        sensor_destroy(&s);
    }
    return nread;
}

static constexpr round_trip round_trips[] = {
    _string,
    _sensor,
    [](reader *source, writer *copy) {
        return _object(timestamp_init_null, binary_serializer_read_timestamp,
                       binary_serializer_write_timestamp, timestamp_destruct, source, copy);
    },
    [](reader *source, writer *copy) {
        return _object(timestamp_array_init_null, binary_serializer_read_timestamp_array,
                       binary_serializer_write_timestamp_array, timestamp_array_destruct, source,
                       copy);
    },
    [](reader *source, writer *copy) {
        return _object(sensor_array_init_null, binary_serializer_read_sensor_array,
                       binary_serializer_write_sensor_array, sensor_array_destruct, source, copy);
    },
    [](reader *source, writer *copy) {
        return _object(hist_value_init, binary_serializer_read_hist_value,
                       binary_serializer_write_hist_value, hist_value_destruct, source, copy);
    },
    [](reader *source, writer *copy) {
        return _object(vesk_hb_record_events_init_null,
                       binary_serializer_read_vesk_hb_record_events,
                       binary_serializer_write_vesk_hb_record_events,
                       vesk_hb_record_events_destruct, source, copy);
    },
};

static void _read_form(round_trip form, std::string_view stored)
{
    memory_reader source{std::string(stored)};
    memory_writer copy;
    guarded({.documented_aborts = aborts}, [&] {
        expect_documented(form(source.get(), copy.get()), codes, "the reader of a form");
    });
    expect(stored.starts_with(copy.bytes()), "a form is written as it was read");
}

// A text that is a time is printed as a text that is the same time.
static void _parse_time(std::string_view input)
{
    const std::string text(input.substr(0, input.find('\0')));
    guarded({}, [&] {
        timestamp t;
        const int result = timestamp_init_from_string(&t, text.c_str());
        if (result != 0) {
            expect_equal(-11, result, "the one code for a text that is no time");
            return;
        }
        char printed[18];
        timestamp again;
        expect_equal(0, timestamp_init_from_string(&again, timestamp_to_string(&t, printed, 18)),
                     "what is printed is a time");
        expect(timestamp_is_equal(&t, &again) != 0, "what is printed is the same time");
    });
}

static void _run(std::string_view input)
{
    if (input.empty()) {
        return;
    }
    const auto choice = static_cast<uint8_t>(input[0]) % (std::size(round_trips) + 1);
    if (choice < std::size(round_trips)) {
        _read_form(round_trips[choice], input.substr(1));
    } else {
        _parse_time(input.substr(1));
    }
}

const fuzz_target target = {"primitives", input_form::bytes, 16384, _run};
