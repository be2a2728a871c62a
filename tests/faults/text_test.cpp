// Text telemetry, with what each function gives when a call fails.
#include <gtest/gtest.h>

#include <vesk/kelt_reader.h>
#include <vesk/kelt_serializer.h>
#include <vesk/kelt_writer.h>

#include "common/matrices.hpp"
#include "common/temporary_directory.hpp"
#include "faults/fault_loop.hpp"
#include "faults/streams.hpp"

namespace
{

using owned_kelt_reader = owned<kelt_reader, kelt_reader_close>;

const std::string header = "20070101:00:00:00,::SENSOR0,::SENSOR1\n";
const std::string data = "20070101:00:00:00,1.000,2.000\n";

owned_file open_text(const std::string &text)
{
    return owned_file(file_with(text));
}

// The next vector of a text whose first header was read.
outcome reads_vector(fault &f, const std::string &text)
{
    const owned_file fp = open_text(header + text);
    const owned_kelt_reader source(kelt_reader_open_from_fp(fp.get()));
    const matrix *vector = f([&] { return kelt_reader_get_next_telemetry_vector(source.get()); });
    return vector != nullptr ? fault::success() : fault::cell();
}

owned_writer text_writer()
{
    return owned_writer(kelt_writer_create(file_writer().release()));
}

outcome writes_text(fault &f, const owned_matrix &m)
{
    const owned_writer target = text_writer();
    const grid before = elements_of(m.get());
    const outcome found =
        f.returns([&] { return kelt_serializer_write_matrix(m.get(), target.get()); });
    EXPECT_EQ(before, elements_of(m.get()));
    return found;
}

const std::vector<std::string> sensors = {"a", "b"};

} // namespace

std::vector<fault_case> text_cases()
{
    return {
        {"kelt_reader_open", "",
         no_memory + expectations{{call_kind::open, {"-40"}}, {call_kind::read, {"-44"}}},
         [](fault &f) {
             write_file("text", header + data);
             return f.creates(kelt_reader_close, [] { return kelt_reader_open("text"); });
         }},
        {"kelt_reader_open_from_fp", "", no_memory + expectations{{call_kind::read, {"-44"}}},
         [](fault &f) {
             const owned_file fp = open_text(header + data);
             return f.creates(kelt_reader_close,
                              [&] { return kelt_reader_open_from_fp(fp.get()); });
         }},
        {"kelt_reader_close",
         "",
         {{call_kind::close, {"ok"}}},
         [](fault &f) {
             write_file("text", header + data);
             kelt_reader *source = kelt_reader_open("text");
             return f.does([&] { kelt_reader_close(&source); });
         }},
        {"kelt_reader_get_next_telemetry_vector", "",
         no_memory + expectations{{call_kind::read, {"feof (kelt->fp)"}}},
         [](fault &f) { return reads_vector(f, data); }},
        {"kelt_reader_get_next_telemetry_vector", "behind_a_header",
         no_memory + expectations{{call_kind::read, {"feof (kelt->fp)"}}},
         [](fault &f) { return reads_vector(f, header + data); }},
        {"kelt_serializer_write_matrix", "regular", no_memory + disk_full,
         [](fault &f) {
             return writes_text(f, make_matrix({{1, 2}, {3, 4}}));
         }},
        {"kelt_serializer_write_matrix", "view", no_memory + disk_full,
         [](fault &f) {
             return writes_text(f, make_view({{1, 2}, {3, 4}}));
         }},
        {"kelt_serializer_write_matrix", "telemetry", no_memory + disk_full,
         [](fault &f) {
             return writes_text(f, make_telemetry({{1, 2}, {3, 4}}, sensors, {1000, 1001}));
         }},
        {"kelt_writer_init", "", no_memory,
         [](fault &f) {
             owned_writer inner = file_writer();
             const outcome found = f.inits<writer>(
                 writer_destruct, [&](writer *w) { return kelt_writer_init(w, inner.get()); });
             if (found == "ok") {
                 (void)inner.release();
             }
             return found;
         }},
        {"kelt_writer_create", "", no_memory,
         [](fault &f) {
             owned_writer inner = file_writer();
             const outcome found =
                 f.creates(writer_destroy, [&] { return kelt_writer_create(inner.get()); });
             if (found == "ok") {
                 (void)inner.release();
             }
             return found;
         }},
        {"kelt_writer_have_sensors_changed", "", no_memory,
         [](fault &f) {
             const owned_writer target = text_writer();
             const owned_matrix m = make_telemetry({{1, 2}}, sensors, {1000});
             const sensor_array *named = telemetry_matrix_get_sensors(m.get());
             const outcome found =
                 f.returns([&] { return kelt_writer_have_sensors_changed(target.get(), named); });
             EXPECT_EQ(found == "ok" ? 0 : 1,
                       kelt_writer_have_sensors_changed(target.get(), named));
             return found;
         }},
    };
}
