// CSV (RFC 4180) of one of the three tables of a box. The samples have a column for each sensor, as
// `vesk import --format csv` reads them; a missing value is an empty field. The intervals have a
// row for each sensor.
#include <fmt/format.h>

#include "export/export_job.hpp"
#include "export/interval_values.hpp"
#include "text/machine_text.hpp"

namespace cli
{
namespace
{

class csv_writer : public row_visitor
{
public:
    csv_writer(const export_job &job, export_table table, sink &out)
        : job_(job), table_(table), out_(out)
    {
        for (const std::string &name : job.names) {
            fields_.push_back(csv_field(name));
        }
    }

    void write_heading()
    {
        if (table_ == export_table::events) {
            out_.write("time,type,text\n");
            return;
        }
        std::string line = "time";
        if (table_ == export_table::intervals) {
            line = "sensor,start,end,seconds,count";
            for (const quantity what : interval_quantities) {
                line += fmt::format(",{}", name_of(what));
            }
        } else {
            for (const std::string &name : fields_) {
                line += "," + name;
            }
        }
        out_.write(line + "\n");
    }

    void on_sample(const sample_row &row) override
    {
        job_.progress.count_row();
        if (table_ != export_table::samples) {
            return;
        }
        line_ = iso_time(row.time, job_.where);
        for (const float value : row.values) {
            line_ += ',';
            line_ += number_field(value);
        }
        line_ += '\n';
        out_.write(line_);
    }
    void on_interval(const interval_row &row) override
    {
        job_.progress.count_row();
        if (table_ != export_table::intervals) {
            return;
        }
        const std::string span = fmt::format("{},{},{}", iso_time(row.start, job_.where),
                                             iso_time(row.end, job_.where), row.end - row.start);
        for (std::size_t i = 0; i < row.values.size(); ++i) {
            if (row.values[i] != nullptr && row.values[i]->count > 0) {
                write_interval(fields_[i], span, *row.values[i]);
            }
        }
    }
    void on_event(const event_row &row) override
    {
        if (table_ == export_table::events) {
            out_.write(fmt::format("{},{},{}\n", iso_time(row.time, job_.where), row.type,
                                   csv_field(row.text)));
        }
    }

private:
    void write_interval(const std::string &name, const std::string &span,
                        const interval_summary &value)
    {
        line_ = fmt::format("{},{},{}", name, span, value.count);
        for (const quantity what : interval_quantities) {
            line_ += ',';
            line_ += number_field(value_of(value, what, job_.source.how_summed()));
        }
        line_ += '\n';
        out_.write(line_);
    }

    const export_job &job_;
    export_table table_;
    sink &out_;
    std::vector<std::string> fields_;
    std::string line_;
};

} // namespace

void export_csv(const export_job &job, export_table table, sink &out)
{
    csv_writer writer(job, table, out);
    writer.write_heading();
    job.progress.expect(job.rows());
    job.source.read(job.range, job.chosen, writer);
}

} // namespace cli
