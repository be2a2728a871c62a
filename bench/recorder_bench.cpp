// The recorder beside its floor: the bare zlib and stdio calls on the same bytes. A benchmark named
// X/... is the library, X_floor/... what the same bytes cost without it, X_reset_floor/... the same
// with one stream that is reset instead of ended, which asks nothing of the heap. bench/ratios.py
// divides one by the other. All are run interleaved, so that the noise of the machine meets them
// alike.
#include <benchmark/benchmark.h>
#include <stdio.h>
#include <string>
#include <vector>
#include <zlib.h>

#include <vesk/vesk.h>
#include <vesk/vesk_cb_record.h>
#include <vesk/vesk_current_buffer.h>
#include <vesk/vesk_hist_buffer.h>

#include "common/temporary_directory.hpp"
#include "recorder_work.hpp"

namespace
{

void write_vector(benchmark::State &state)
{
    const temporary_directory folder;
    const auto vectors = make_vectors(static_cast<uint32_t>(state.range(0)), n_vectors);
    vesk *recorder = vesk_create(folder.file("box").c_str(), 1U << 30, 2);
    vesk_write_telemetry_vector(recorder, vectors[0].get());
    std::size_t i = 0;
    for (auto _ : state) {
        if (vesk_write_telemetry_vector(recorder, vectors[++i % n_vectors].get()) != 0) {
            state.SkipWithError("the write failed");
            break;
        }
    }
    vesk_close(&recorder);
}

void write_vector_floor(benchmark::State &state)
{
    const temporary_directory folder;
    std::vector<std::string> records;
    for (const auto &vector : make_vectors(static_cast<uint32_t>(state.range(0)), n_vectors)) {
        records.push_back(serialized(vector.get()));
    }
    FILE *file = fopen(folder.file("floor").c_str(), "w");
    std::size_t i = 0;
    for (auto _ : state) {
        write_stream(file, records[++i % n_vectors]);
    }
    fclose(file);
}

void write_vector_reset_floor(benchmark::State &state)
{
    const temporary_directory folder;
    std::vector<std::string> records;
    for (const auto &vector : make_vectors(static_cast<uint32_t>(state.range(0)), n_vectors)) {
        records.push_back(serialized(vector.get()));
    }
    FILE *file = fopen(folder.file("floor").c_str(), "w");
    z_stream stream = {};
    deflateInit(&stream, Z_DEFAULT_COMPRESSION);
    std::size_t i = 0;
    for (auto _ : state) {
        finish_stream(stream, file, records[++i % n_vectors]);
        deflateReset(&stream);
    }
    deflateEnd(&stream);
    fclose(file);
}

constexpr uint32_t n_samples = 120;
constexpr uint32_t n_intervals = 12;

// The sizes of a box whose rotation is measured.
struct box_shape {
    uint32_t samples;
    uint32_t intervals;
};
constexpr box_shape small_box = {n_samples, n_intervals};
constexpr box_shape short_intervals = {1000, 100};
constexpr box_shape long_intervals = {1000, 10};

// A box whose open buffer is full, with a full history: the next vector rotates it.
void fill(vesk *recorder, const std::vector<vector_ptr> &vectors, uint32_t count)
{
    for (uint32_t i = 0; i < count; ++i) {
        vesk_write_telemetry_vector(recorder, vectors[i % n_vectors].get());
    }
}

void rotate(benchmark::State &state, const box_shape &shape)
{
    const temporary_directory folder;
    const auto vectors = make_vectors(static_cast<uint32_t>(state.range(0)), n_vectors);
    vesk *recorder = vesk_create(folder.file("box").c_str(), shape.samples, shape.intervals);
    fill(recorder, vectors, 4 * shape.samples);
    for (auto _ : state) {
        if (vesk_write_telemetry_vector(recorder, vectors[0].get()) != 0) {
            state.SkipWithError("the rotation failed");
            break;
        }
        state.PauseTiming();
        fill(recorder, vectors, shape.samples - 1);
        state.ResumeTiming();
    }
    vesk_close(&recorder);
}

void rotate_floor(benchmark::State &state, const box_shape &shape)
{
    const temporary_directory folder;
    const auto vectors = make_vectors(static_cast<uint32_t>(state.range(0)), n_vectors);
    vesk *recorder = vesk_create(folder.file("box").c_str(), shape.samples, shape.intervals);
    fill(recorder, vectors, 4 * shape.samples + 1);
    vesk_close(&recorder);
    // The rotation has just made 6.hbuf of 4.hbuf and 3.cbuf; it would now read 6 and 5.
    const std::string history = folder.file("box.6.hbuf.z");
    const std::string samples = folder.file("box.5.cbuf.z");
    const auto streams = read_streams(history);
    const std::string first_sample = serialized(vectors[0].get());
    for (auto _ : state) {
        inflate_file(history);
        inflate_file(samples);
        FILE *file = fopen(folder.file("floor.hbuf").c_str(), "w");
        for (const auto &content : streams) {
            write_stream(file, content);
        }
        fclose(file);
        file = fopen(folder.file("floor.cbuf").c_str(), "w");
        write_stream(file, first_sample);
        fclose(file);
        unlink(folder.file("floor.hbuf").c_str());
        unlink(folder.file("floor.cbuf").c_str());
    }
}

void rotation(benchmark::State &state)
{
    rotate(state, small_box);
}

void rotation_floor(benchmark::State &state)
{
    rotate_floor(state, small_box);
}

void rotation_100_by_10(benchmark::State &state)
{
    rotate(state, short_intervals);
}

void rotation_100_by_10_floor(benchmark::State &state)
{
    rotate_floor(state, short_intervals);
}

void rotation_10_by_100(benchmark::State &state)
{
    rotate(state, long_intervals);
}

void rotation_10_by_100_floor(benchmark::State &state)
{
    rotate_floor(state, long_intervals);
}

void reopen(benchmark::State &state)
{
    const temporary_directory folder;
    const auto vectors = make_vectors(static_cast<uint32_t>(state.range(0)), n_vectors);
    const std::string base = folder.file("box");
    vesk *recorder = vesk_create(base.c_str(), n_samples, n_intervals);
    fill(recorder, vectors, n_samples - 1);
    vesk_close(&recorder);
    for (auto _ : state) {
        recorder = vesk_open(base.c_str());
        vesk_close(&recorder);
    }
}

void reopen_floor(benchmark::State &state)
{
    const temporary_directory folder;
    const auto vectors = make_vectors(static_cast<uint32_t>(state.range(0)), n_vectors);
    vesk *recorder = vesk_create(folder.file("box").c_str(), n_samples, n_intervals);
    fill(recorder, vectors, n_samples - 1);
    vesk_close(&recorder);
    for (auto _ : state) {
        inflate_file(folder.file("box.1.cbuf.z"));
    }
}

void read_back(benchmark::State &state)
{
    const temporary_directory folder;
    const auto vectors = make_vectors(static_cast<uint32_t>(state.range(0)), n_vectors);
    const std::string path = folder.file("box.cbuf");
    vesk_current_buffer *buffer = vesk_current_buffer_create(path.c_str(), n_samples);
    for (uint32_t i = 0; i < n_samples; ++i) {
        vesk_current_buffer_write_telemetry_vector(buffer, vectors[i % n_vectors].get());
    }
    vesk_current_buffer_close(&buffer);
    for (auto _ : state) {
        buffer = vesk_current_buffer_open_for_read_write(path.c_str());
        vesk_cb_record record;
        vesk_cb_record_init_null(&record);
        double sum = 0.0;
        while (vesk_current_buffer_read_record(buffer, &record) == 0) {
            if (record.type == VESK_CB_RECORD_SENSOR_VALUES) {
                sum += static_cast<double>(record.values->values[0]);
            }
        }
        benchmark::DoNotOptimize(sum);
        vesk_cb_record_destruct(&record);
        vesk_current_buffer_close(&buffer);
    }
}

void read_back_floor(benchmark::State &state)
{
    const temporary_directory folder;
    const auto vectors = make_vectors(static_cast<uint32_t>(state.range(0)), n_vectors);
    const std::string path = folder.file("box.cbuf");
    vesk_current_buffer *buffer = vesk_current_buffer_create(path.c_str(), n_samples);
    for (uint32_t i = 0; i < n_samples; ++i) {
        vesk_current_buffer_write_telemetry_vector(buffer, vectors[i % n_vectors].get());
    }
    vesk_current_buffer_close(&buffer);
    for (auto _ : state) {
        inflate_file(path);
    }
}

#define VESK_BENCHMARK(name)                                                                       \
    BENCHMARK(name)->RangeMultiplier(10)->Range(10, 10000)->Unit(benchmark::kMicrosecond);         \
    BENCHMARK(name##_floor)->RangeMultiplier(10)->Range(10, 10000)->Unit(benchmark::kMicrosecond)

VESK_BENCHMARK(write_vector);
BENCHMARK(write_vector_reset_floor)
    ->RangeMultiplier(10)
    ->Range(10, 10000)
    ->Unit(benchmark::kMicrosecond);
VESK_BENCHMARK(rotation);
// A rotation of 10,000 sensors takes more than a second, and filling the box ten times that: it is
// left to bench_rotation_pause.
#define VESK_BENCHMARK_ROTATION(name)                                                              \
    BENCHMARK(name)->RangeMultiplier(10)->Range(10, 1000)->Unit(benchmark::kMillisecond);          \
    BENCHMARK(name##_floor)->RangeMultiplier(10)->Range(10, 1000)->Unit(benchmark::kMillisecond)
VESK_BENCHMARK_ROTATION(rotation_100_by_10);
VESK_BENCHMARK_ROTATION(rotation_10_by_100);
VESK_BENCHMARK(reopen);
VESK_BENCHMARK(read_back);

} // namespace
