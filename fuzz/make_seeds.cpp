// Makes the first inputs of the fuzz targets from what the library itself writes: make_seeds
// FOLDER.
#include <cstdio>
#include <filesystem>
#include <functional>
#include <map>
#include <string>

#include <vesk/binary_serializer.h>
#include <vesk/binary_serializer_common.h>
#include <vesk/hist_value.h>
#include <vesk/kelt_serializer.h>
#include <vesk/kelt_writer.h>
#include <vesk/vesk_buffer.h>
#include <vesk/vesk_hb_record_events.h>

#include "common/buffer_files.hpp"
#include "common/matrices.hpp"
#include "common/memory_streams.hpp"
#include "common/temporary_directory.hpp"
#include "common/zlib_streams.hpp"
#include "file_set.hpp"
#include "golden/recorded_life.hpp"

using files = std::map<std::string, std::string>;

static std::filesystem::path seeds;

static void _put(const std::string &target, const std::string &name, const std::string &content)
{
    std::filesystem::create_directories(seeds / target);
    write_file(seeds / target / name, content);
}

// The files of the box after every chapter of the recorded life.
static std::map<std::string, files> _record_life()
{
    std::map<std::string, files> life;
    vesk *box = vesk_create(life_base_name, life_num_cb_samples, life_num_hb_intervals);
    for (const life_chapter &chapter : life_chapters()) {
        (void)live_chapter(box, chapter);
        for (const auto &entry : std::filesystem::directory_iterator(".")) {
            life[chapter.name][entry.path().filename()] = read_file(entry.path());
        }
    }
    vesk_close(&box);
    return life;
}

static std::string _content(const std::string &file)
{
    std::string content;
    for (const std::string &part : zlib_contents(file)) {
        content += part;
    }
    return content;
}

// Kind, version and capacity.
static constexpr std::size_t header_size = 9;

static void _put_buffer(const std::string &name, const std::string &file)
{
    const bool is_history = _content(file)[3] == VESK_BUFFER_TYPE_HIST;
    _put(is_history ? "hist_buffer" : "current_buffer", name, file);
    _put(is_history ? "hb_record" : "cb_record", name, _content(file).substr(header_size));
    _put("scan", name, file);
}

static void _put_buffers(const std::map<std::string, files> &life)
{
    _put_buffer("few", life.at("2-c00").at("r.1.cbuf.z"));
    _put_buffer("other_sensors", life.at("4-ccc").at("r.2.cbuf.z"));
    _put_buffer("missing_values", life.at("4-ccc").at("r.3.cbuf.z"));
    _put_buffer("extremes", life.at("6-rotated").at("r.7.cbuf.z"));
    _put_buffer("first_history", life.at("5-hcc").at("r.4.hbuf.z"));
    _put_buffer("halved", life.at("6-rotated").at("r.6.hbuf.z"));
    _put_buffer("coarse", life.at("9-later").at("r.20.hbuf.z"));

    const std::string full = life.at("4-ccc").at("r.3.cbuf.z");
    const std::string history = life.at("5-hcc").at("r.4.hbuf.z");
    const std::string event = stored_event_body(4, 1704067300, "bare");
    _put_buffer("bare_event", life.at("2-c00").at("r.1.cbuf.z") + deflate_stream(event));
    _put_buffer("no_records", deflate_stream(stored_buffer_header(VESK_BUFFER_TYPE_CURRENT, 4)));
    _put_buffer("no_intervals", deflate_stream(stored_buffer_header(VESK_BUFFER_TYPE_HIST, 4)));
    _put_buffer("torn", full.substr(0, full.size() - 7));
    _put_buffer("torn_and_appended_to", full.substr(0, full.size() - 7) + deflate_stream(event));
    _put_buffer("zero_tail", full + std::string(16, '\0'));
    _put_buffer("torn_history", history.substr(0, history.size() - 20));

    _put("zlib_reader", "whole", std::string(2, '\0') + full);
    _put("zlib_reader", "in_pieces", "\3\5" + history);
    _put("zlib_reader", "torn", "\0\7" + full.substr(0, full.size() - 7));
}

static void _put_states(const std::map<std::string, files> &life)
{
    // The target has buffers of these names, of another recorder.
    for (const char *chapter : {"1-created", "3-cc0", "4-ccc", "5-hcc"}) {
        _put("state_file", chapter, life.at(chapter).at("r.state"));
    }
    const std::string state = life.at("5-hcc").at("r.state");
    _put("state_file", "torn", state.substr(0, state.size() - 3));
}

static void _put_boxes(const std::map<std::string, files> &life)
{
    const auto join = [](const files &box) {
        std::vector<file_set_member> members;
        for (uint8_t i = 0; i < file_set_names.size(); ++i) {
            const auto found = box.find(std::string(file_set_names[i]));
            if (found != box.end()) {
                members.push_back({i, found->second});
            }
        }
        return join_file_set(members);
    };
    for (const char *chapter : {"1-created", "2-c00", "3-cc0", "4-ccc", "5-hcc", "6-rotated"}) {
        _put("recover", chapter, join(life.at(chapter)));
    }
    files box = life.at("5-hcc");
    box["r.state"].resize(30);
    _put("recover", "torn_state", join(box));
    box.erase("r.state");
    _put("recover", "no_state", join(box));
    box = life.at("6-rotated");
    box["r.state.bak"] = box["r.state"];
    box["r.state"].clear();
    box["r.7.cbuf.z"].resize(box["r.7.cbuf.z"].size() - 5);
    _put("recover", "torn_with_backup", join(box));
    box = life.at("4-ccc");
    box["r.3.cbuf.z"] += deflate_stream(stored_event_body(2, 1704067300, "bare"));
    _put("recover", "bare_event", join(box));
}

// `write` puts a form into a writer. The selector is that of the target.
static void _put_primitive(char selector, const std::string &name,
                           const std::function<void(writer *)> &write)
{
    memory_writer form;
    write(form.get());
    _put("primitives", name, selector + form.bytes());
}

static void _put_primitives()
{
    _put_primitive(0, "string", [](writer *w) { binary_serializer_write_string("text", w); });
    const char *names[] = {"cpu", "fan", "disk"};
    sensor *cpu = sensor_create(names[0]);
    _put_primitive(1, "sensor", [=](writer *w) { binary_serializer_write_sensor(cpu, w); });
    const timestamp t = make_timestamp(life_begin);
    _put_primitive(2, "timestamp", [&](writer *w) { binary_serializer_write_timestamp(&t, w); });
    timestamp_array *times = timestamp_array_create_dummy(&t, 3);
    _put_primitive(3, "timestamps",
                   [=](writer *w) { binary_serializer_write_timestamp_array(times, w); });
    sensor_array *sensors = sensor_array_create_from_names(names, 3);
    _put_primitive(4, "sensors",
                   [=](writer *w) { binary_serializer_write_sensor_array(sensors, w); });
    hist_value summary;
    hist_value_init(&summary);
    hist_value_update(&summary, 1.5F);
    _put_primitive(5, "summary",
                   [&](writer *w) { binary_serializer_write_hist_value(&summary, w); });
    vesk_hb_record_events events;
    vesk_hb_record_events_init_null(&events);
    events.n_type4_events = 7;
    _put_primitive(6, "events",
                   [&](writer *w) { binary_serializer_write_vesk_hb_record_events(&events, w); });
    _put("primitives", "time",
         "\7"
         "20240101:12:30:59");
    _put("primitives", "time_before_1970",
         "\7"
         "19691231:23:59:59");
    sensor_destroy(&cpu);
    sensor_array_destroy(&sensors);
    timestamp_array_destroy(&times);
}

static void _put_matrix(const std::string &name, const matrix *m)
{
    memory_writer form;
    binary_serializer_write_optional_matrix(m, form.get());
    _put("matrix", name, form.bytes());
}

static void _put_matrices()
{
    _put_matrix("absent", nullptr);
    _put_matrix("one", make_matrix({{1}}).get());
    _put_matrix("regular", make_matrix({{1, 2, 3}, {4, 5, 6}}).get());
    _put_matrix("view", make_view({{1, 2, 3}, {4, 5, 6}}).get());
    const owned_matrix telemetry = make_telemetry({{1, 2}, {3, 4}}, {"cpu", "fan"}, {1, 2});
    _put_matrix("telemetry", telemetry.get());
    matrix *view = transposed_matrix_create(matrix_copy(telemetry.get()));
    _put_matrix("view_of_telemetry", view);
    matrix *view_of_view = transposed_matrix_create(view);
    _put_matrix("view_of_view", view_of_view);
    matrix_destroy(&view_of_view);
}

static void _put_texts()
{
    memory_writer text;
    writer *kelt = kelt_writer_create(text.lend());
    for (const int i : {0, 1, 2, 5, 6}) {
        matrix *vector = life_vector(i).release();
        kelt_serializer_write_matrix(vector, kelt);
        matrix_destroy(&vector);
    }
    owned_matrix regular = make_matrix({{1, 2}, {3, 4}});
    kelt_serializer_write_matrix(regular.get(), kelt);
    writer_destroy(&kelt);
    _put("text_telemetry", "recorded", text.bytes());
    _put("text_telemetry", "generic",
         "20070101:00:00:00,::SENSOR0,::SENSOR1\n20070101:00:00:00,1.000,nan\n");
    _put("text_telemetry", "line_ends",
         "20070101:00:00:00,CPU,DISK\r\n20070101:00:00:01,1e3,-2.5\r\n"
         "20070101:00:00:02,N0\n20070101:00:00:03,7");
    _put("configuration", "values",
         "# comment\nsensors  temp1 temp2\n\nsensors\tfan\nkey # x  \n  indented value\n");
    _put("configuration", "key_alone", "a b\nkey\n");
}

int main(int argc, char **argv)
{
    if (argc != 2) {
        (void)fprintf(stderr, "usage: make_seeds FOLDER\n");
        return 2;
    }
    seeds = std::filesystem::absolute(argv[1]);
    (void)setenv("TZ", "UTC", 1);
    const temporary_directory working_directory;
    std::filesystem::current_path(working_directory.path());
    const std::map<std::string, files> life = _record_life();
    _put_buffers(life);
    _put_states(life);
    _put_boxes(life);
    _put_primitives();
    _put_matrices();
    _put_texts();
    return 0;
}
