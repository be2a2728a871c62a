// Records of a current buffer, straight from memory: each must be written again as it was read.
#include <string>

#include <vesk/vesk_cb_record.h>

#include "common/memory_streams.hpp"
#include "harness.hpp"

static constexpr const char *aborts[] = {"nread != 0"}; // nothing behind the length of a string

static constexpr int codes[] = {-6, -12, -43, -48, -49};

static void _run(std::string_view input)
{
    memory_reader source{std::string(input)};
    memory_writer copy;
    guarded({.documented_aborts = aborts}, [&] {
        vesk_cb_record rec;
        vesk_cb_record_init_null(&rec);
        int nread = 0;
        while ((nread = binary_serializer_read_vesk_cb_record(&rec, source.get())) > 0) {
            expect_equal(nread, binary_serializer_write_vesk_cb_record(&rec, copy.get()),
                         "a record is written in as many bytes as it was read from");
        }
        expect_documented(nread, codes, "binary_serializer_read_vesk_cb_record");
        vesk_cb_record_destruct(&rec);
    });
    expect(input.starts_with(copy.bytes()), "a record is written as it was read");
}

const fuzz_target target = {"cb_record", input_form::bytes, 16384, _run};
