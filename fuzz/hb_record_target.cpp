// Records of a history buffer, straight from memory: each must be written again as it was read, an
// interval of the first version as one of the second without events.
#include <string>

#include <vesk/vesk_hb_record.h>

#include "common/memory_streams.hpp"
#include "harness.hpp"

// Nothing behind the length of a string, or behind the first count of events.
static constexpr const char *aborts[] = {"nread != 0"};

static constexpr int codes[] = {-6, -12, -43, -48, -49};

static std::string _as_written(std::string_view record)
{
    std::string written(record);
    if (written[3] == VESK_HB_RECORD_SENSOR_VALUES && written[4] == 1) {
        written[4] = 2;
        written += '\1' + std::string(20, '\0');
    }
    return written;
}

static void _use(vesk_hb_record *rec)
{
    if (rec->type != VESK_HB_RECORD_SENSOR_VALUES) {
        return;
    }
    vesk_hb_record_sensor_values *copy = vesk_hb_record_sensor_values_copy(rec->values, nullptr);
    const uint32_t n = vesk_hb_record_sensor_values_get_number_hist_values(copy);
    expect_equal(vesk_hb_record_sensor_values_get_number_hist_values(rec->values), n,
                 "a copy has as many summaries");
    for (uint32_t i = 1; i < n; ++i) {
        hist_value_merge_with(&vesk_hb_record_sensor_values_get_hist_values(copy)[0],
                              &vesk_hb_record_sensor_values_get_hist_values(copy)[i]);
    }
    vesk_hb_record_sensor_values_destroy(&copy);
}

static void _run(std::string_view input)
{
    memory_reader source{std::string(input)};
    memory_writer copy;
    std::string expected;
    guarded({.documented_aborts = aborts}, [&] {
        vesk_hb_record rec;
        vesk_hb_record_init_null(&rec);
        int nread = 0;
        while ((nread = binary_serializer_read_vesk_hb_record(&rec, source.get())) > 0) {
            const auto size = static_cast<std::size_t>(nread);
            expected += _as_written(input.substr(source.consumed() - size, size));
            expect(binary_serializer_write_vesk_hb_record(&rec, copy.get()) > 0,
                   "what was read can be written");
            _use(&rec);
        }
        expect_documented(nread, codes, "binary_serializer_read_vesk_hb_record");
        vesk_hb_record_destruct(&rec);
    });
    expect(copy.bytes() == expected, "a record is written as it was read");
}

const fuzz_target target = {"hb_record", input_form::bytes, 16384, _run};
