// What an export is told: the box, what is wanted of it, and what it is called. The forms of export
// are functions that take it and write.
#ifndef VESK_CLI_EXPORT_EXPORT_JOB_HPP
#define VESK_CLI_EXPORT_EXPORT_JOB_HPP

#include <cstdint>
#include <string>
#include <vector>

#include "box/reading.hpp"
#include "export/export_names.hpp"
#include "export/sink.hpp"
#include "process/stop_request.hpp"
#include "process/terminal.hpp"
#include "text/time_text.hpp"

namespace cli
{

// Shows how far a long export is, where that is wanted, and ends it when a signal asks for that.
class export_progress
{
public:
    // @p rows is how many are to be read; more or fewer may come.
    void expect(uint64_t rows) { expected_ = rows; }
    // To be called for each row that is read. Throws a failure when the export is to end.
    void count_row();
    void clear() { status_.clear(); }

private:
    stop_request stop_;
    status_line status_;
    uint64_t expected_ = 0;
    uint64_t rows_ = 0;
};

struct export_job {
    reading &source;
    time_range range;
    std::vector<std::size_t> chosen; // sensors of the source
    std::vector<std::string> names;  // of these, as they are called outside
    std::vector<label> labels;
    machine_identity who;
    zone where = zone::utc;
    export_progress &progress;

    // The rows that one reading of the source hands out, about.
    uint64_t rows() const { return source.samples() + source.intervals(); }
};

// One of the three tables of an export that has to choose.
enum class export_table { samples, intervals, events };

void export_csv(const export_job &job, export_table table, sink &out);
void export_jsonl(const export_job &job, sink &out);
void export_openmetrics(const export_job &job, sink &out);
void export_victoria(const export_job &job, sink &out);
void export_influx(const export_job &job, sink &out);
// Writes a database; see new_file for @p path and @p force.
void export_sqlite(const export_job &job, const std::string &path, bool force);

} // namespace cli

#endif
