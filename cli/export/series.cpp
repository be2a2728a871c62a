// Collects series from the rows of a box within a bounded amount of memory, and names them for
// metric stores.
#include "export/series.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <unordered_map>

#include "text/machine_text.hpp"

namespace cli
{
namespace
{

// The series of one reading of the box.
class collector : public row_visitor
{
public:
    collector(const export_job &job, std::span<const series_key> keys)
        : job_(job), points_(keys.size())
    {
        std::unordered_map<std::size_t, std::size_t> places;
        for (std::size_t i = 0; i < keys.size(); ++i) {
            if (keys[i].what == quantity::seconds) {
                lengths_.push_back(i);
                continue;
            }
            const auto [place, is_new] = places.emplace(keys[i].sensor, sensors_.size());
            if (is_new) {
                sensors_.push_back(job.chosen[keys[i].sensor]);
            }
            (keys[i].what == quantity::sample ? samples_ : intervals_)
                .push_back({place->second, keys[i].what, i});
        }
    }

    // Only what one kind of row needs is read.
    void read() { job_.source.read(job_.range, sensors_, *this); }

    void on_sample(const sample_row &row) override
    {
        job_.progress.count_row();
        for (const entry &each : samples_) {
            add(each.number, row.time, static_cast<double>(row.values[each.place]));
        }
    }
    void on_interval(const interval_row &row) override
    {
        job_.progress.count_row();
        for (const std::size_t number : lengths_) {
            add(number, row.end, static_cast<double>(row.end - row.start));
        }
        for (const entry &each : intervals_) {
            const interval_summary *value = row.values[each.place];
            if (value != nullptr && value->count > 0) {
                add(each.number, row.end,
                    each.what == quantity::count
                        ? value->count
                        : static_cast<double>(
                              value_of(*value, each.what, job_.source.how_summed())));
            }
        }
    }

    std::vector<series_point> &points(std::size_t number) { return points_[number]; }

private:
    struct entry {
        std::size_t place; // among the sensors that are read
        quantity what;
        std::size_t number; // of the series
    };

    void add(std::size_t number, int64_t time, double value)
    {
        if (!std::isnan(value)) {
            points_[number].push_back({time, value});
        }
    }

    const export_job &job_;
    std::vector<std::size_t> sensors_;
    std::vector<entry> samples_;
    std::vector<entry> intervals_;
    std::vector<std::size_t> lengths_;
    std::vector<std::vector<series_point>> points_;
};

uint64_t most_points_of(const export_job &job, const series_key &key)
{
    return 1 + (key.what == quantity::sample ? job.source.samples() : job.source.intervals());
}

// How many of the first of @p keys fit into @p room, at least one.
std::size_t fitting(const export_job &job, std::span<const series_key> keys, std::size_t room)
{
    uint64_t points = 0;
    std::size_t count = 0;
    while (count < keys.size()) {
        points += most_points_of(job, keys[count]);
        if (count > 0 && points > room) {
            break;
        }
        ++count;
    }
    return count;
}

void sort_by_time(std::vector<series_point> &points)
{
    const auto is_earlier = [](const series_point &a, const series_point &b) {
        return a.time < b.time;
    };
    if (!std::is_sorted(points.begin(), points.end(), is_earlier)) {
        std::stable_sort(points.begin(), points.end(), is_earlier);
    }
}

} // namespace

std::string point_text(quantity what, double value)
{
    return what == quantity::count || what == quantity::seconds
               ? std::to_string(static_cast<int64_t>(value))
               : number_field(static_cast<float>(value));
}

void for_each_series(const export_job &job, const std::vector<series_key> &keys,
                     const std::function<void(const series_key &, std::span<series_point>)> &visit,
                     std::size_t room)
{
    std::vector<std::size_t> ends; // of the groups that are read together
    while (ends.empty() ? !keys.empty() : ends.back() < keys.size()) {
        const std::size_t begin = ends.empty() ? 0 : ends.back();
        ends.push_back(begin + fitting(job, std::span(keys).subspan(begin), room));
    }
    job.progress.expect(ends.size() * job.rows());
    std::size_t begin = 0;
    for (const std::size_t end : ends) {
        collector group(job, std::span(keys).subspan(begin, end - begin));
        group.read();
        for (std::size_t i = begin; i < end; ++i) {
            std::vector<series_point> points = std::move(group.points(i - begin));
            sort_by_time(points);
            visit(keys[i], points);
        }
        begin = end;
    }
}

std::size_t keep_last_of_each_time(std::span<series_point> points)
{
    std::size_t kept = 0;
    for (const series_point &point : points) {
        if (kept > 0 && points[kept - 1].time == point.time) {
            --kept;
        }
        points[kept++] = point;
    }
    return kept;
}

std::vector<named_series> named_series_of(const export_job &job)
{
    std::vector<named_series> all;
    const bool has_history = job.source.intervals() > 0;
    for (std::size_t i = 0; i < job.names.size(); ++i) {
        const std::string metric = metric_name(job.names[i]);
        all.push_back({metric, {i, quantity::sample}});
        if (!has_history) {
            continue;
        }
        all.push_back({metric + "_count", {i, quantity::count}});
        for (const quantity what : interval_quantities) {
            all.push_back({metric + "_" + std::string(name_of(what)), {i, what}});
        }
    }
    if (has_history) {
        all.push_back({"vesk_interval_seconds", {0, quantity::seconds}});
    }
    std::stable_sort(all.begin(), all.end(), [](const named_series &a, const named_series &b) {
        return a.metric < b.metric;
    });
    return all;
}

} // namespace cli
