// One path of the recorder, walked a few times for valgrind to count its instructions, which repeat
// where times do not. Only what runs inside of counted_part() is counted.
//
// usage: bench_recorder_paths write|read|reopen|rotate SENSORS [floor]
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>

#include <vesk/vesk.h>
#include <vesk/vesk_current_buffer.h>

#include "common/temporary_directory.hpp"
#include "recorder_work.hpp"

extern "C" [[gnu::noinline]] void counted_part(const std::function<void()> &part)
{
    part();
    asm volatile("" ::: "memory"); // no jump out of the function instead of a call
}

namespace
{

constexpr uint32_t n_samples = 120;
constexpr uint32_t n_intervals = 12;

using vectors = std::vector<vector_ptr>;

void require(bool good)
{
    if (!good) {
        (void)fprintf(stderr, "the recorder failed\n");
        exit(1);
    }
}

void write(vesk *recorder, const vectors &samples, uint32_t n)
{
    for (uint32_t i = 0; i < n; ++i) {
        require(vesk_write_telemetry_vector(recorder, samples[i % n_vectors].get()) == 0);
    }
}

void write_path(const std::string &folder, const vectors &samples, bool floor)
{
    if (floor) {
        std::vector<std::string> records;
        for (const vector_ptr &vector : samples) {
            records.push_back(serialized(vector.get()));
        }
        FILE *file = fopen((folder + "/floor").c_str(), "w");
        counted_part([&] {
            for (const std::string &record : records) {
                write_stream(file, record);
            }
        });
        (void)fclose(file);
        return;
    }
    vesk *recorder = vesk_create((folder + "/box").c_str(), 4096, 2);
    write(recorder, samples, 1);
    counted_part([&] { write(recorder, samples, n_vectors); });
    vesk_close(&recorder);
}

void read_whole(const std::string &path)
{
    vesk_current_buffer *buffer = vesk_current_buffer_open_for_read_write(path.c_str());
    vesk_cb_record record;
    vesk_cb_record_init_null(&record);
    while (vesk_current_buffer_read_record(buffer, &record) == 0) {
    }
    vesk_cb_record_destruct(&record);
    vesk_current_buffer_close(&buffer);
}

void read_path(const std::string &folder, const vectors &samples, bool floor)
{
    const std::string path = folder + "/box.cbuf";
    vesk_current_buffer *buffer = vesk_current_buffer_create(path.c_str(), n_samples);
    for (uint32_t i = 0; i < n_samples; ++i) {
        require(vesk_current_buffer_write_telemetry_vector(buffer, samples[i % n_vectors].get()) ==
                0);
    }
    vesk_current_buffer_close(&buffer);
    counted_part([&] { floor ? inflate_file(path) : read_whole(path); });
}

void reopen_path(const std::string &folder, const vectors &samples, bool floor)
{
    const std::string base = folder + "/box";
    vesk *recorder = vesk_create(base.c_str(), n_samples, n_intervals);
    write(recorder, samples, n_samples - 1);
    vesk_close(&recorder);
    counted_part([&] {
        if (floor) {
            inflate_file(base + ".1.cbuf.z");
        } else {
            recorder = vesk_open(base.c_str());
            vesk_close(&recorder);
        }
    });
}

// A full history and a full buffer become the next history.
void rotate_path(const std::string &folder, const vectors &samples, bool floor)
{
    const std::string base = folder + "/box";
    vesk *recorder = vesk_create(base.c_str(), n_samples, n_intervals);
    write(recorder, samples, 4 * n_samples);
    if (!floor) {
        counted_part([&] { write(recorder, samples, 1); });
        vesk_close(&recorder);
        return;
    }
    write(recorder, samples, 1);
    vesk_close(&recorder);
    const auto streams = read_streams(base + ".6.hbuf.z");
    const std::string first_sample = serialized(samples[0].get());
    counted_part([&] {
        inflate_file(base + ".6.hbuf.z");
        inflate_file(base + ".5.cbuf.z");
        for (const char *name : {"/floor.hbuf", "/floor.cbuf"}) {
            FILE *file = fopen((folder + name).c_str(), "w");
            if (std::string(name) == "/floor.cbuf") {
                write_stream(file, first_sample);
            } else {
                for (const std::string &content : streams) {
                    write_stream(file, content);
                }
            }
            (void)fclose(file);
        }
    });
}

} // namespace

int main(int argc, char **argv)
{
    const std::string path = argc > 1 ? argv[1] : "";
    const uint32_t sensors = argc > 2 ? static_cast<uint32_t>(strtoul(argv[2], nullptr, 10)) : 0;
    const bool floor = argc > 3 && std::string(argv[3]) == "floor";
    if (sensors == 0) {
        (void)fprintf(stderr, "usage: %s write|read|reopen|rotate SENSORS [floor]\n", argv[0]);
        return 2;
    }
    const temporary_directory folder;
    const vectors samples = make_vectors(sensors, n_vectors);
    if (path == "write") {
        write_path(folder.path(), samples, floor);
    } else if (path == "read") {
        read_path(folder.path(), samples, floor);
    } else if (path == "reopen") {
        reopen_path(folder.path(), samples, floor);
    } else if (path == "rotate") {
        rotate_path(folder.path(), samples, floor);
    } else {
        (void)fprintf(stderr, "%s: no such path\n", path.c_str());
        return 2;
    }
    return 0;
}
