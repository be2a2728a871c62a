// The longest pause that a program sees over ten rotations: the call that writes a vector and the
// vesk_settle() behind it, without and with vesk_prepare() between the vectors.
//
// usage: bench_rotation_pause [SENSORS...]
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>

#include <vesk/vesk_prepare.h>
#include <vesk/vesk_start.h>

#include "common/temporary_directory.hpp"
#include "recorder_work.hpp"

namespace
{

// 100 intervals of 10 samples.
constexpr uint32_t pause_samples = 1000;
constexpr uint32_t pause_intervals = 100;
constexpr uint32_t rotations = 10;
constexpr uint32_t slice = 50000; // microseconds

struct pauses {
    double longest_write = 0;  // of a vector, in milliseconds
    double longest_settle = 0; // of the vesk_settle() behind it
    double longest_slice = 0;  // of vesk_prepare()
};

void require(bool good)
{
    if (!good) {
        (void)fprintf(stderr, "the recorder failed\n");
        exit(1);
    }
}

template <typename Call>
void measure(double *longest, Call call)
{
    const auto begin = std::chrono::steady_clock::now();
    require(call() >= 0);
    const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - begin;
    *longest = std::max(*longest, took.count());
}

pauses record(const std::vector<vector_ptr> &vectors, bool ahead)
{
    const temporary_directory folder;
    vesk *recorder =
        vesk_start(folder.file("box").c_str(), pause_samples, pause_intervals, nullptr);
    require(recorder != nullptr);
    pauses found;
    // Two buffers are filled before there is anything to summarise.
    for (uint32_t i = 0; i <= (rotations + 2) * pause_samples; ++i) {
        const matrix *vector = vectors[i % vectors.size()].get();
        measure(&found.longest_write,
                [&] { return vesk_write_telemetry_vector(recorder, vector); });
        measure(&found.longest_settle, [&] { return vesk_settle(recorder); });
        if (ahead) {
            measure(&found.longest_slice, [&] { return vesk_prepare(recorder, slice, 0); });
        }
    }
    vesk_close(&recorder);
    return found;
}

} // namespace

int main(int argc, char **argv)
{
    std::vector<uint32_t> sizes;
    for (int i = 1; i < argc; ++i) {
        sizes.push_back(static_cast<uint32_t>(strtoul(argv[i], nullptr, 10)));
    }
    if (sizes.empty()) {
        sizes = {10, 100, 1000, 10000};
    }
    printf("| sensors | vesk_prepare() | longest write | longest vesk_settle() | longest slice |\n"
           "|---:|---|---:|---:|---:|\n");
    for (const uint32_t sensors : sizes) {
        const std::vector<vector_ptr> vectors = make_vectors(sensors, n_vectors);
        for (const bool ahead : {false, true}) {
            const pauses found = record(vectors, ahead);
            printf("| %u | %s | %.1f ms | %.1f ms | %.1f ms |\n", sensors, ahead ? "yes" : "no",
                   found.longest_write, found.longest_settle, found.longest_slice);
            (void)fflush(stdout);
        }
    }
    return 0;
}
