// The box turned by a quarter: all points of one series after the other, where the box holds all
// sensors of one time after the other. Formats that want whole series use it.
//
// As many series as memory allows are collected in one reading of the box, and the box is read
// again for the next ones.
#ifndef VESK_CLI_EXPORT_SERIES_HPP
#define VESK_CLI_EXPORT_SERIES_HPP

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "export/export_job.hpp"
#include "export/interval_values.hpp"

namespace cli
{

// A sensor, by its place among the chosen ones, and which of its numbers. The lengths of the
// intervals (quantity::seconds) belong to no sensor.
struct series_key {
    std::size_t sensor;
    quantity what;
};

struct series_point {
    int64_t time; // of an interval its end
    double value; // never NaN; a single-precision number unless it is a count or a length
};

// The text of a point for programs: a whole number, or the shortest that reads back as the same
// single-precision number.
std::string point_text(quantity what, double value);

// Most points that are held in memory at once, but for a single series that has more.
constexpr std::size_t most_points = 4 * 1024 * 1024;

// Calls @p visit for each of @p keys, in their order. The points are in the order of time; of those
// with the same time the first one that was written comes first.
void for_each_series(const export_job &job, const std::vector<series_key> &keys,
                     const std::function<void(const series_key &, std::span<series_point>)> &visit,
                     std::size_t room = most_points);

// Leaves of points with the same time the last one; the points must be in order. Returns how many
// remain.
std::size_t keep_last_of_each_time(std::span<series_point> points);

// The names of the series of a metric store, in the order of these names, so that the series of one
// name follow each other.
struct named_series {
    std::string metric;
    series_key key;
};
std::vector<named_series> named_series_of(const export_job &job);

} // namespace cli

#endif
