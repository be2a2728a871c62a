// OpenMetrics text, version 1.0: what `promtool tsdb create-blocks-from openmetrics` reads. The
// format wants all series of a family, and all points of a series, in one piece and in the order of
// time, and ends with "# EOF". Times are in seconds.
#include <fmt/format.h>

#include "export/export_job.hpp"
#include "export/series.hpp"
#include "export/store_labels.hpp"

namespace cli
{
namespace
{

std::string escaped(std::string_view text)
{
    std::string result;
    for (const char c : text) {
        if (c == '\\' || c == '"') {
            result += '\\';
        }
        result += c;
    }
    return result;
}

class openmetrics_writer
{
public:
    openmetrics_writer(const export_job &job, sink &out) : job_(job), out_(out) {}

    void write(const named_series &series, std::span<series_point> points)
    {
        const std::size_t kept = keep_last_of_each_time(points);
        doubled_ += points.size() - kept;
        if (kept == 0) {
            return;
        }
        begin_family(series.metric);
        const std::string beginning = series.metric + labels_of(series.key) + " ";
        for (const series_point &point : points.first(kept)) {
            out_.write(fmt::format("{}{} {}\n", beginning, value_of(series.key.what, point.value),
                                   point.time));
        }
    }
    void finish()
    {
        out_.write("# EOF\n");
        note_doubled_times(doubled_);
    }

private:
    void begin_family(const std::string &name)
    {
        if (name != family_) {
            out_.write(fmt::format("# TYPE {} gauge\n", name));
            family_ = name;
        }
    }
    std::string labels_of(const series_key &key) const
    {
        std::string text;
        for (const label &each : store_labels(job_, key)) {
            text +=
                fmt::format("{}{}=\"{}\"", text.empty() ? "" : ",", each.key, escaped(each.value));
        }
        return "{" + text + "}";
    }
    static std::string value_of(quantity what, double value)
    {
        const std::string text = point_text(what, value);
        return text == "inf" ? "+Inf" : text == "-inf" ? "-Inf" : text;
    }

    const export_job &job_;
    sink &out_;
    std::string family_;
    uint64_t doubled_ = 0;
};

} // namespace

void export_openmetrics(const export_job &job, sink &out)
{
    openmetrics_writer writer(job, out);
    for_each_named_series(job, [&](const named_series &series, std::span<series_point> points) {
        writer.write(series, points);
    });
    writer.finish();
}

} // namespace cli
