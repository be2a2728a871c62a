// What the two formats for metric stores, OpenMetrics and the JSON lines of VictoriaMetrics, have
// in common: the labels of a series, and that a series has one point at a time.
#ifndef VESK_CLI_EXPORT_STORE_LABELS_HPP
#define VESK_CLI_EXPORT_STORE_LABELS_HPP

#include <fmt/format.h>
#include <functional>

#include "export/series.hpp"

namespace cli
{

// The labels of the box, and the whole name of the sensor.
inline std::vector<label> store_labels(const export_job &job, const series_key &key)
{
    std::vector<label> labels = job.labels;
    if (key.what != quantity::seconds) {
        labels.push_back({"sensor", job.names[key.sensor]});
    }
    return labels;
}

inline void for_each_named_series(
    const export_job &job,
    const std::function<void(const named_series &, std::span<series_point>)> &visit)
{
    const std::vector<named_series> series = named_series_of(job);
    std::vector<series_key> keys;
    keys.reserve(series.size());
    for (const named_series &each : series) {
        keys.push_back(each.key);
    }
    std::size_t next = 0;
    for_each_series(job, keys, [&](const series_key & /*key*/, std::span<series_point> points) {
        visit(series[next++], points);
    });
}

// A clock that was set back shows times twice.
inline void note_doubled_times(uint64_t left_out)
{
    if (left_out > 0) {
        note(fmt::format("{} left out: a later one has the same time, and a series of this format "
                         "has one value at a time",
                         counted(left_out, "value")));
    }
}

} // namespace cli

#endif
