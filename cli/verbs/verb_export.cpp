// vesk export BASE|FILE --format FORMAT: writes a box in a format of other programs, to standard
// output or into a new file. The formats are in export/; here is what the user may ask for.
#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <memory>
#include <utility>

#include "box/reading.hpp"
#include "export/export_job.hpp"
#include "process/failure.hpp"
#include "text/event_text.hpp"
#include "text/sensor_choice.hpp"
#include "text/suggestion.hpp"
#include "verbs/reading_options.hpp"
#include "verbs/verb.hpp"

namespace cli
{
namespace
{

enum class export_format { csv, jsonl, openmetrics, influx, victoria, sqlite };

constexpr std::array<std::string_view, 6> format_names = {"csv",    "jsonl",    "openmetrics",
                                                          "influx", "victoria", "sqlite"};
constexpr std::array<std::string_view, 3> table_names = {"samples", "intervals", "events"};

struct export_options {
    reading_options source;
    std::string format;
    std::string table;
    std::string output = "-";
    std::vector<std::string> labels;
    bool force = false;
};

// The place of @p word in @p words.
std::size_t choose(std::string_view option, const std::string &word,
                   std::span<const std::string_view> words)
{
    const auto found = std::find(words.begin(), words.end(), word);
    if (found == words.end()) {
        const std::string_view meant = nearest_word(word.substr(0, 20), words);
        throw failure(exit_usage,
                      fmt::format("{} {}: there is {}{}", option, word.substr(0, 20),
                                  fmt::join(words, ", "),
                                  meant.empty() ? "" : fmt::format("; did you mean '{}'?", meant)));
    }
    return static_cast<std::size_t>(found - words.begin());
}

export_format format_of(const export_options &options)
{
    if (options.format.empty()) {
        throw failure(exit_usage, fmt::format("--format is needed: there is {}",
                                              fmt::join(format_names, ", ")));
    }
    const auto format =
        static_cast<export_format>(choose("--format", options.format, format_names));
    const bool is_stream = options.output.empty() || options.output == "-";
    if (format == export_format::sqlite && is_stream) {
        throw failure(exit_usage, "--format sqlite: a database needs a file: add -o FILE");
    }
    if (format != export_format::csv && !options.table.empty()) {
        throw failure(exit_usage, "--table: only csv has one table in a file; this format has all");
    }
    if (format == export_format::csv && !options.labels.empty()) {
        throw failure(exit_usage, "--label: csv has no place for labels");
    }
    return format;
}

// The newest identity that a recording has left among the events, and how many events there are.
class event_survey : public row_visitor
{
public:
    void on_event(const event_row &row) override
    {
        ++events_;
        const std::optional<parsed_event> event = parse_event_text(row.text);
        if (event) {
            const machine_identity found = identity_in(*event);
            who_ = found.host.empty() ? who_ : found;
        }
    }

    const machine_identity &who() const { return who_; }
    uint64_t events() const { return events_; }

private:
    machine_identity who_;
    uint64_t events_ = 0;
};

void tell_other_tables(const reading &source, export_table table, uint64_t events)
{
    std::vector<std::string> others;
    if (source.intervals() > 0) {
        others.push_back(counted(source.intervals(), "interval") + " (--table intervals)");
    }
    if (events > 0) {
        others.push_back(counted(events, "event") + " (--table events)");
    }
    if (table == export_table::samples && !others.empty()) {
        note(fmt::format("besides the samples the box holds {}", fmt::join(others, " and ")));
    }
}

void export_text(const export_job &job, export_format format, export_table table, sink &out)
{
    switch (format) {
    case export_format::csv:
        return export_csv(job, table, out);
    case export_format::jsonl:
        return export_jsonl(job, out);
    case export_format::openmetrics:
        return export_openmetrics(job, out);
    case export_format::influx:
        return export_influx(job, out);
    case export_format::victoria:
        return export_victoria(job, out);
    case export_format::sqlite:
        return;
    }
}

exit_code export_box(const export_options &options)
{
    options.source.settle();
    const export_format format = format_of(options);
    const auto table = static_cast<export_table>(
        options.table.empty() ? 0 : choose("--table", options.table, table_names));
    // Refuses wrong ones before a large box is read.
    (void)labels_of(options.source.name, {}, options.labels);
    reading source(options.source.name);
    if (source.code() == exit_unreadable) {
        return exit_unreadable;
    }
    const auto chosen = choose_sensors(source.sensors(), options.source.sensors);
    event_survey events;
    source.read({}, {}, events);
    export_progress progress;
    const export_job job = {
        source,
        range_in(options.source, source),
        chosen,
        export_names(names_of(source.sensors(), chosen), format == export_format::influx),
        labels_of(options.source.name, events.who(), options.labels),
        events.who(),
        options.source.where(),
        progress};
    if (format == export_format::sqlite) {
        export_sqlite(job, options.output, options.force);
    } else {
        const std::unique_ptr<sink> out = open_sink(options.output, options.force);
        export_text(job, format, table, *out);
        out->finish();
    }
    progress.clear();
    if (format == export_format::csv) {
        tell_other_tables(source, table, events.events());
    }
    return source.code();
}

action prepare(option_list &options)
{
    const auto chosen = std::make_shared<export_options>();
    add_reading(options, chosen->source);
    add_sensor_choice(options, chosen->source);
    options.text("--format", "NAME", chosen->format,
                 "csv, jsonl, openmetrics, influx, victoria or sqlite");
    options.text("--table", "NAME", chosen->table,
                 "Of csv: samples (unless told), intervals or events");
    options.text("-o,--output", "FILE", chosen->output,
                 "Into this file, which appears when it is complete; - is standard output");
    options.texts("--label", "KEY=VALUE", chosen->labels,
                  "A further label of everything; also host= and box=; may be repeated");
    options.flag("--force", chosen->force, "Replace the file if it exists");
    return [chosen] { return export_box(*chosen); };
}

constexpr const char *more =
    "Raw samples and the intervals of history stay apart: an interval is never written as a\n"
    "sample, but as its count, sum, min, max, first, last and stddev at its end, with its length.\n"
    "Numbers are the shortest that read back as the same single-precision number. A missing\n"
    "value is left out (in csv: an empty field).\n"
    "\n"
    "  csv          one table, with a column for each sensor: vesk import --format csv reads it\n"
    "  jsonl        an object in each line: the box, intervals, samples, events\n"
    "  openmetrics  for promtool tsdb create-blocks-from openmetrics\n"
    "  influx       line protocol\n"
    "  victoria     for /api/v1/import of VictoriaMetrics\n"
    "  sqlite       a database with tables and views; needs -o\n"
    "\n"
    "Labels are box, the name of the box, and host, which the recording has left in it. Metrics\n"
    "are called vesk_ and the name of the sensor with '_' for all but letters and digits; the\n"
    "label sensor has the whole name.\n"
    "\n" VESK_CLI_READING_HELP "\n"
    "Examples:\n"
    "  vesk export box --format csv --last 10m > end.csv\n"
    "  vesk export box --format sqlite -o box.db\n"
    "  vesk export box --format openmetrics -o box.om --label site=north\n"
    "  vesk export box --format victoria | curl --data-binary @- http://HOST:8428/api/v1/import\n";

const registration registered({45, "export", "Write a box in a format of other programs", more,
                               prepare});

} // namespace
} // namespace cli
