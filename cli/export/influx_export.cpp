// InfluxDB line protocol. A sample is a point of vesk_sample for each sensor, with the tag sensor
// and the field value; an interval is a point of vesk_interval at its end, and an event one of
// vesk_event. Times are in nanoseconds, which is what every reader takes them for unless told.
//
//   vesk_sample,box=b,host=h,sensor=::cpu value=12.5 1704067200000000000
//
// Blanks, commas and equals signs of tags have a backslash before them. A backslash stands for
// itself, so none may end a tag: names made as tags and labels do not.
#include <array>
#include <cmath>
#include <fmt/format.h>

#include "export/export_job.hpp"
#include "export/interval_values.hpp"
#include "text/machine_text.hpp"

namespace cli
{
namespace
{

constexpr int64_t nanoseconds = 1000000000;

std::string with_backslashes(std::string_view text, std::string_view special)
{
    std::string result;
    for (const char c : text) {
        if (special.find(c) != std::string_view::npos) {
            result += '\\';
        }
        result += c;
    }
    return result;
}

std::string tag(std::string_view text)
{
    return with_backslashes(text, ",= ");
}

class influx_writer : public row_visitor
{
public:
    influx_writer(const export_job &job, sink &out) : job_(job), out_(out)
    {
        for (const label &each : job.labels) {
            labels_ += fmt::format(",{}={}", each.key, tag(each.value));
        }
        for (const std::string &name : job.names) {
            samples_.push_back(fmt::format("vesk_sample{},sensor={} value=", labels_, tag(name)));
            intervals_.push_back(
                fmt::format("vesk_interval{},sensor={} count=", labels_, tag(name)));
        }
    }

    void on_sample(const sample_row &row) override
    {
        job_.progress.count_row();
        if (!has_time(row.time)) {
            return;
        }
        const std::string end = end_of_line(row.time);
        text_.clear();
        for (std::size_t i = 0; i < row.values.size(); ++i) {
            if (is_field(row.values[i])) {
                text_ += samples_[i];
                text_ += number_field(row.values[i]);
                text_ += end;
            }
        }
        out_.write(text_);
    }
    void on_interval(const interval_row &row) override
    {
        job_.progress.count_row();
        if (!has_time(row.end)) {
            return;
        }
        text_.clear();
        for (std::size_t i = 0; i < row.values.size(); ++i) {
            if (row.values[i] != nullptr && row.values[i]->count > 0) {
                text_ += intervals_[i];
                add_fields(*row.values[i]);
                text_ += fmt::format(",seconds={}i{}", row.end - row.start, end_of_line(row.end));
            }
        }
        out_.write(text_);
    }
    void on_event(const event_row &row) override
    {
        if (has_time(row.time)) {
            // A number of its own tells events of the same second apart: points with equal tags and
            // times replace each other.
            order_ = row.time == event_time_ ? order_ + 1 : 0;
            event_time_ = row.time;
            out_.write(fmt::format("vesk_event{},order={} type={}i,text=\"{}\"{}", labels_, order_,
                                   row.type, with_backslashes(printable(row.text), "\"\\"),
                                   end_of_line(row.time)));
        }
    }

    void finish() const
    {
        if (infinite_ > 0) {
            note(counted(infinite_, "infinite value") + " left out: this format has none");
        }
        if (out_of_range_ > 0) {
            note(counted(out_of_range_, "row") + " left out: nanoseconds reach from 1677 to 2262");
        }
    }

private:
    void add_fields(const interval_summary &value)
    {
        text_ += fmt::format("{}i", value.count);
        for (const quantity what : interval_quantities) {
            const float number = value_of(value, what, job_.source.how_summed());
            if (is_field(number)) {
                text_ += fmt::format(",{}={}", name_of(what), number_field(number));
            }
        }
    }
    bool is_field(float value)
    {
        infinite_ += std::isinf(value) ? 1U : 0U;
        return std::isfinite(value);
    }
    bool has_time(int64_t seconds)
    {
        // The stores keep the two ends for themselves.
        constexpr int64_t furthest = INT64_MAX / nanoseconds - 1;
        const bool has = seconds > -furthest && seconds < furthest;
        out_of_range_ += has ? 0 : 1;
        return has;
    }
    static std::string end_of_line(int64_t seconds)
    {
        return fmt::format(" {}\n", seconds * nanoseconds);
    }

    const export_job &job_;
    sink &out_;
    std::string labels_;
    std::vector<std::string> samples_;
    std::vector<std::string> intervals_;
    std::string text_;
    int64_t event_time_ = INT64_MIN;
    uint64_t order_ = 0;
    uint64_t infinite_ = 0;
    uint64_t out_of_range_ = 0;
};

} // namespace

void export_influx(const export_job &job, sink &out)
{
    influx_writer writer(job, out);
    job.progress.expect(job.rows());
    job.source.read(job.range, job.chosen, writer);
    writer.finish();
}

} // namespace cli
