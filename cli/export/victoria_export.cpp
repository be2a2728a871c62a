// The JSON lines that VictoriaMetrics reads at /api/v1/import: a line for some points of one
// series, with times in milliseconds. Infinite values are left out, because the store has none.
#include <algorithm>
#include <cmath>
#include <fmt/format.h>

#include "export/export_job.hpp"
#include "export/series.hpp"
#include "export/store_labels.hpp"
#include "text/machine_text.hpp"

namespace cli
{
namespace
{

// The store refuses lines of more than 100 MB, and these stay far below one.
constexpr std::size_t points_per_line = 10000;

class victoria_writer
{
public:
    victoria_writer(const export_job &job, sink &out) : job_(job), out_(out) {}

    void write(const named_series &series, std::span<series_point> points)
    {
        std::size_t kept = keep_last_of_each_time(points);
        doubled_ += points.size() - kept;
        const auto finite_end =
            std::remove_if(points.begin(), points.begin() + static_cast<std::ptrdiff_t>(kept),
                           [](const series_point &point) { return std::isinf(point.value); });
        const auto finite = static_cast<std::size_t>(finite_end - points.begin());
        infinite_ += kept - finite;
        for (std::size_t begin = 0; begin < finite; begin += points_per_line) {
            write_line(series, points.subspan(begin, std::min(points_per_line, finite - begin)));
        }
    }
    void finish() const
    {
        note_doubled_times(doubled_);
        if (infinite_ > 0) {
            note(counted(infinite_, "infinite value") + " left out: this format has none");
        }
    }

private:
    void write_line(const named_series &series, std::span<const series_point> points)
    {
        std::string values;
        std::string times;
        for (const series_point &point : points) {
            const std::string_view comma = values.empty() ? "" : ",";
            values += comma;
            values += point_text(series.key.what, point.value);
            times += fmt::format("{}{}", comma, point.time * 1000);
        }
        std::string labels = fmt::format("\"__name__\":\"{}\"", series.metric);
        for (const label &each : store_labels(job_, series.key)) {
            labels += fmt::format(",\"{}\":{}", each.key, json_string(each.value));
        }
        out_.write(fmt::format("{{\"metric\":{{{}}},\"values\":[{}],\"timestamps\":[{}]}}\n",
                               labels, values, times));
    }

    const export_job &job_;
    sink &out_;
    uint64_t doubled_ = 0;
    uint64_t infinite_ = 0;
};

} // namespace

void export_victoria(const export_job &job, sink &out)
{
    victoria_writer writer(job, out);
    for_each_named_series(job, [&](const named_series &series, std::span<series_point> points) {
        writer.write(series, points);
    });
    writer.finish();
}

} // namespace cli
