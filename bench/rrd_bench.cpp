// The recorder beside librrd on the same readings, one sample a call: values a second. Both keep
// samples and summaries in files of a fixed size: a box of 3600 samples and 60 intervals, a
// round-robin database of 3600 rows and 60 averages, minima and maxima.
#include <benchmark/benchmark.h>
#include <rrd.h>
#include <string>
#include <unistd.h>
#include <vector>

#include <vesk/matrix_value.h>
#include <vesk/vesk.h>

#include "common/temporary_directory.hpp"
#include "recorder_work.hpp"

namespace
{

constexpr uint32_t samples_kept = 3600;
constexpr uint32_t intervals_kept = 60;

void write_values(benchmark::State &state)
{
    const temporary_directory folder;
    const auto vectors = make_vectors(static_cast<uint32_t>(state.range(0)), n_vectors);
    vesk *recorder = vesk_create(folder.file("box").c_str(), samples_kept, intervals_kept);
    std::size_t i = 0;
    for (auto _ : state) {
        if (vesk_write_telemetry_vector(recorder, vectors[++i % n_vectors].get()) != 0) {
            state.SkipWithError("the write failed");
            break;
        }
    }
    vesk_close(&recorder);
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

std::vector<std::string> database_of(uint32_t sensors)
{
    std::vector<std::string> words;
    for (uint32_t i = 0; i < sensors; ++i) {
        words.push_back("DS:s" + std::to_string(i) + ":GAUGE:2:U:U");
    }
    words.push_back("RRA:AVERAGE:0.5:1:" + std::to_string(samples_kept));
    for (const char *function : {"AVERAGE", "MIN", "MAX"}) {
        words.push_back(std::string("RRA:") + function +
                        ":0.5:" + std::to_string(samples_kept / intervals_kept) + ":" +
                        std::to_string(2 * intervals_kept));
    }
    return words;
}

// What rrd_update_r() takes, from the ':' behind the time on.
std::string text_of(const matrix *vector)
{
    std::string text;
    for (uint32_t i = 0; i < matrix_get_number_columns(vector); ++i) {
        char number[32];
        snprintf(number, sizeof number, ":%.2f", matrix_get(vector, 0, i));
        text += number;
    }
    return text;
}

void write_values_floor(benchmark::State &state)
{
    const temporary_directory folder;
    const std::string path = folder.file("floor.rrd");
    const auto sensors = static_cast<uint32_t>(state.range(0));
    const std::vector<std::string> words = database_of(sensors);
    std::vector<const char *> pointers;
    for (const std::string &word : words) {
        pointers.push_back(word.c_str());
    }
    constexpr time_t begin = 1700000000;
    if (rrd_create_r(path.c_str(), 1, begin, static_cast<int>(pointers.size()), pointers.data()) !=
        0) {
        state.SkipWithError(rrd_get_error());
        return;
    }
    std::vector<std::string> texts;
    for (const auto &vector : make_vectors(sensors, n_vectors)) {
        texts.push_back(text_of(vector.get()));
    }
    time_t now = begin;
    std::size_t i = 0;
    for (auto _ : state) {
        const std::string update = std::to_string(++now) + texts[++i % n_vectors];
        const char *argument = update.c_str();
        if (rrd_update_r(path.c_str(), nullptr, 1, &argument) != 0) {
            state.SkipWithError(rrd_get_error());
            break;
        }
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

BENCHMARK(write_values)->RangeMultiplier(10)->Range(10, 1000)->Unit(benchmark::kMicrosecond);
BENCHMARK(write_values_floor)->RangeMultiplier(10)->Range(10, 1000)->Unit(benchmark::kMicrosecond);

} // namespace
