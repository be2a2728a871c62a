// What the benchmarks of the recorder have in common: telemetry to record, and the bare calls of
// zlib and stdio on the same bytes, which no recorder can go below.
#ifndef VESK_BENCH_RECORDER_WORK_HPP
#define VESK_BENCH_RECORDER_WORK_HPP

#include <cmath>
#include <memory>
#include <random>
#include <stdio.h>
#include <string.h>
#include <string>
#include <vector>
#include <zlib.h>

#include <vesk/matrix.h>
#include <vesk/sensor_array.h>
#include <vesk/telemetry_matrix.h>
#include <vesk/timestamp.h>
#include <vesk/vesk_cb_record.h>

#include "common/memory_streams.hpp"

inline constexpr int bench_block = 2048;

struct destroy_matrix {
    void operator()(matrix *m) const { matrix_destroy(&m); }
};
using vector_ptr = std::unique_ptr<matrix, destroy_matrix>;

// Telemetry as machines give it: every sensor walks, and one in four stands still.
inline std::vector<vector_ptr> make_vectors(uint32_t n_sensors, uint32_t count)
{
    std::vector<std::string> names;
    std::vector<const char *> pointers;
    for (uint32_t i = 0; i < n_sensors; ++i) {
        names.push_back("::machine.sensor" + std::to_string(i));
    }
    for (const auto &name : names) {
        pointers.push_back(name.c_str());
    }
    sensor_array *sensors = sensor_array_create_from_names(pointers.data(), n_sensors);
    std::mt19937 random(1);
    std::normal_distribution<double> step(0.0, 0.25);
    std::vector<double> values(n_sensors, 50.0);
    std::vector<vector_ptr> vectors;
    for (uint32_t t = 0; t < count; ++t) {
        matrix *row = matrix_create(1, n_sensors);
        for (uint32_t i = 0; i < n_sensors; ++i) {
            if (i % 4 != 0) {
                values[i] += std::round(step(random) * 100.0) / 100.0;
            }
            matrix_set(row, 0, i, values[i]);
        }
        const timeval time = {1700000000 + static_cast<time_t>(t), 0};
        timestamp stamp;
        timestamp_init_from_timeval(&stamp, &time);
        vectors.emplace_back(
            telemetry_matrix_create_vector(row, sensor_array_copy(sensors), &stamp));
    }
    sensor_array_destroy(&sensors);
    return vectors;
}

// What the library hands to zlib for one sample.
inline std::string serialized(const matrix *vector)
{
    vesk_cb_record_sensor_values values;
    vesk_cb_record_sensor_values_init(&values, vector);
    vesk_cb_record record;
    vesk_cb_record_init_sensor_values(&record, &values);
    memory_writer out;
    binary_serializer_write_vesk_cb_record(&record, out.get());
    vesk_cb_record_sensor_values_destruct(&values);
    return out.bytes();
}

// Compresses `content` to the end of the open stream, in blocks, each written and flushed.
inline void finish_stream(z_stream &stream, FILE *file, const std::string &content)
{
    Bytef out[bench_block];
    std::size_t position = 0;
    while (position < content.size()) {
        const std::size_t n = std::min<std::size_t>(bench_block, content.size() - position);
        stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(content.data() + position));
        stream.avail_in = static_cast<uInt>(n);
        position += n;
        const int flush = position == content.size() ? Z_FINISH : Z_NO_FLUSH;
        do {
            stream.next_out = out;
            stream.avail_out = sizeof out;
            deflate(&stream, flush);
            if (stream.avail_out < sizeof out) {
                fwrite(out, 1, sizeof out - stream.avail_out, file);
                fflush(file);
            }
        } while (stream.avail_out == 0);
    }
}

// One complete zlib stream of `content`.
inline void write_stream(FILE *file, const std::string &content)
{
    z_stream stream = {};
    deflateInit(&stream, Z_DEFAULT_COMPRESSION);
    finish_stream(stream, file, content);
    deflateEnd(&stream);
}

// Inflates every stream of a file, block by block. take(begins, content, n) gets what came;
// `begins` is true for the first block of a stream.
template <typename Take>
void inflate_streams(const std::string &path, Take take)
{
    FILE *file = fopen(path.c_str(), "r");
    Bytef in[bench_block];
    Bytef out[bench_block];
    z_stream stream = {};
    bool open = false;
    for (;;) {
        if (stream.avail_in == 0) {
            stream.next_in = in;
            stream.avail_in = static_cast<uInt>(fread(in, 1, sizeof in, file));
            if (stream.avail_in == 0) {
                break;
            }
        }
        const bool begins = !open;
        if (begins) {
            inflateInit(&stream);
            open = true;
        }
        stream.next_out = out;
        stream.avail_out = sizeof out;
        const int result = inflate(&stream, Z_NO_FLUSH);
        take(begins, out, sizeof out - stream.avail_out);
        if (result == Z_STREAM_END) {
            inflateEnd(&stream);
            open = false;
        }
    }
    fclose(file);
}

// The content of every zlib stream of a file, one string a stream.
inline std::vector<std::string> read_streams(const std::string &path)
{
    std::vector<std::string> streams;
    inflate_streams(path, [&](bool begins, const Bytef *content, std::size_t n) {
        if (begins) {
            streams.emplace_back();
        }
        streams.back().append(reinterpret_cast<const char *>(content), n);
    });
    return streams;
}

// Inflates every stream of a file and drops the content.
inline void inflate_file(const std::string &path)
{
    inflate_streams(path, [](bool, const Bytef *, std::size_t) {});
}

inline constexpr uint32_t n_vectors = 64;

#endif
