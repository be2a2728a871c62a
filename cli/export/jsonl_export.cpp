// JSON lines: an object in each line, told apart by its "kind". The first one is the box with its
// labels; then come intervals, samples and events in the order of time. A missing value is not
// there at all, and null stands for an infinite one, which JSON cannot write.
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

// Readers take a number without a point for a whole one, which has no zero below 0.
std::string json_value(float value)
{
    return value == 0 && std::signbit(value) ? "-0.0" : json_number(value);
}

class jsonl_writer : public row_visitor
{
public:
    jsonl_writer(const export_job &job, sink &out) : job_(job), out_(out)
    {
        for (const std::string &name : job.names) {
            keys_.push_back(json_string(name));
        }
    }

    void write_box()
    {
        std::string labels;
        for (const label &each : job_.labels) {
            labels += fmt::format("{}{}: {}", labels.empty() ? "" : ", ", json_string(each.key),
                                  json_string(each.value));
        }
        out_.write(fmt::format("{{\"kind\": \"box\", \"labels\": {{{}}}}}\n", labels));
    }

    void on_sample(const sample_row &row) override
    {
        job_.progress.count_row();
        line_ = fmt::format(R"({{"kind": "sample", "time": "{}", "values": {{)", time(row.time));
        bool any = false;
        for (std::size_t i = 0; i < row.values.size(); ++i) {
            if (!std::isnan(row.values[i])) {
                line_ +=
                    fmt::format("{}{}: {}", any ? ", " : "", keys_[i], json_value(row.values[i]));
                any = true;
            }
        }
        out_.write(line_ + "}}\n");
    }
    void on_interval(const interval_row &row) override
    {
        job_.progress.count_row();
        line_ = fmt::format(R"({{"kind": "interval", "start": "{}", "end": "{}", "seconds": {}, )"
                            R"("values": {{)",
                            time(row.start), time(row.end), row.end - row.start);
        bool any = false;
        for (std::size_t i = 0; i < row.values.size(); ++i) {
            if (row.values[i] != nullptr && row.values[i]->count > 0) {
                line_ +=
                    fmt::format("{}{}: {}", any ? ", " : "", keys_[i], summary(*row.values[i]));
                any = true;
            }
        }
        out_.write(line_ + "}, \"events\": " + counts_of(*row.events) + "}\n");
    }
    void on_event(const event_row &row) override
    {
        out_.write(fmt::format(R"({{"kind": "event", "time": "{}", "type": {}, "text": {}}})"
                               "\n",
                               time(row.time), row.type, json_string(row.text)));
    }

private:
    std::string time(int64_t when) const { return iso_time(when, job_.where); }

    std::string summary(const interval_summary &value) const
    {
        std::string text = fmt::format("{{\"count\": {}", value.count);
        for (const quantity what : interval_quantities) {
            const float number = value_of(value, what, job_.source.how_summed());
            if (!std::isnan(number)) {
                text += fmt::format(", \"{}\": {}", name_of(what), json_value(number));
            }
        }
        return text + "}";
    }
    static std::string counts_of(const vesk_hb_record_events &events)
    {
        const std::array<uint32_t, 5> counts = {events.n_type1_events, events.n_type2_events,
                                                events.n_type3_events, events.n_type4_events,
                                                events.n_type5_events};
        std::string text;
        for (std::size_t i = 0; i < counts.size(); ++i) {
            if (counts[i] > 0) {
                text += fmt::format("{}\"{}\": {}", text.empty() ? "" : ", ", i + 1, counts[i]);
            }
        }
        return "{" + text + "}";
    }

    const export_job &job_;
    sink &out_;
    std::vector<std::string> keys_;
    std::string line_;
};

} // namespace

void export_jsonl(const export_job &job, sink &out)
{
    jsonl_writer writer(job, out);
    writer.write_box();
    job.progress.expect(job.rows());
    job.source.read(job.range, job.chosen, writer);
}

} // namespace cli
