// Telemetry as text, read line by line; what was read is written as text and read once more.
#include <string>

#include <vesk/error.h>
#include <vesk/kelt_reader.h>
#include <vesk/kelt_serializer.h>
#include <vesk/kelt_writer.h>

#include "common/memory_streams.hpp"
#include "harness.hpp"

static constexpr const char *file_name = "telemetry";

static constexpr const char *aborts[] = {
    "p >= line + 18",          // text before the end of where a time should be
    "nvalues == nsensors",     // fewer values than sensors
    "nbytes <= sizeof (line)", // a line to write that is longer than 32768 characters
};
static constexpr int opening_codes[] = {-6, -44};
static constexpr int reading_codes[] = {-6, -11};

// Returns the text that the vectors of the file make.
static std::string _read_and_write()
{
    memory_writer text;
    guarded({.documented_aborts = aborts}, [&] {
        qe_set_last_error(0);
        kelt_reader *source = kelt_reader_open(file_name);
        if (source == nullptr) {
            expect_documented(qe_get_last_error(), opening_codes, "kelt_reader_open");
            return;
        }
        writer *copy = kelt_writer_create(text.lend());
        while (matrix *vector = kelt_reader_get_next_telemetry_vector(source)) {
            expect(kelt_serializer_write_matrix(vector, copy) > 0, "what was read is written");
        }
        expect_documented(qe_get_last_error(), reading_codes,
                          "kelt_reader_get_next_telemetry_vector");
        writer_destroy(&copy);
        kelt_reader_close(&source);
    });
    return text.bytes();
}

static void _run(std::string_view input)
{
    put_file(file_name, input);
    const std::string text = _read_and_write();
    put_file(file_name, text);
    (void)_read_and_write();
}

const fuzz_target target = {"text_telemetry", input_form::bytes, 16384, _run};
