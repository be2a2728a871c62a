// vesk fetch BASE|FILE: prints the values of a span of time as a table, with one row for each
// sample or interval, or for each step. Each row is printed as soon as it is complete, so memory
// does not grow with the box.
#include <array>
#include <fmt/format.h>
#include <memory>
#include <optional>

#include "box/reading.hpp"
#include "box/sensor_statistics.hpp"
#include "process/failure.hpp"
#include "process/output.hpp"
#include "process/terminal.hpp"
#include "text/duration.hpp"
#include "text/sensor_choice.hpp"
#include "verbs/fetch_output.hpp"
#include "verbs/output_format.hpp"
#include "verbs/reading_options.hpp"
#include "verbs/statistic.hpp"
#include "verbs/verb.hpp"

namespace cli
{
namespace
{

struct fetch_options {
    reading_options source;
    std::string step;
    std::string statistics = "mean";
    std::string format;
};

int64_t floor_to(int64_t time, int64_t step)
{
    const int64_t rest = time % step;
    return time - (rest < 0 ? rest + step : rest);
}

// Makes the rows of the table: one of each interval and sample, or one of each step.
class row_maker : public row_visitor
{
public:
    // @p step is 0 where rows are to stay as they are.
    row_maker(std::size_t sensors, const summing &how, int64_t step, fetch_output &output)
        : cells_(sensors), how_(how), step_(step), output_(output)
    {
    }

    void on_interval(const interval_row &row) override
    {
        // An interval that is longer than a step cannot be divided.
        const bool is_long = step_ == 0 || row.end - row.start >= step_;
        begin_row(is_long ? std::nullopt : std::optional(floor_to(row.start, step_)));
        for (std::size_t i = 0; i < cells_.size(); ++i) {
            if (row.values[i] != nullptr) {
                cells_[i].add(*row.values[i], {row.start, row.end}, how_);
            }
        }
        if (is_long) {
            print({row.start, fetch_kind::interval, row.end - row.start});
        }
    }
    void on_sample(const sample_row &row) override
    {
        begin_row(step_ == 0 ? std::nullopt : std::optional(floor_to(row.time, step_)));
        for (std::size_t i = 0; i < cells_.size(); ++i) {
            cells_[i].add(row.values[i], row.time);
        }
        if (step_ == 0) {
            print({row.time, fetch_kind::raw, 0});
        }
    }
    void on_gap(const gap_row &row) override
    {
        if (step_ == 0 || row.next - row.last > 2 * step_) {
            begin_row(std::nullopt);
            output_.print_gap(row.last, row.next);
        }
    }

    // To be called behind the last row.
    void finish() { begin_row(std::nullopt); }
    bool any() const { return any_; }

private:
    // Prints the step that was begun unless the next row belongs to it, too.
    void begin_row(std::optional<int64_t> step)
    {
        if (begun_ && begun_ != step) {
            print({*begun_, fetch_kind::step, step_});
        }
        begun_ = step;
    }
    void print(const fetch_row &row)
    {
        output_.print(row, cells_);
        std::fill(cells_.begin(), cells_.end(), sensor_statistics());
        any_ = true;
    }

    std::vector<sensor_statistics> cells_;
    summing how_;
    int64_t step_;
    fetch_output &output_;
    std::optional<int64_t> begun_;
    bool any_ = false;
};

exit_code fetch(const fetch_options &options)
{
    constexpr std::array<std::string_view, 4> formats = {"table", "csv", "tsv", "jsonl"};
    options.source.settle();
    const output_format format = parse_format(options.format, formats);
    const std::vector<statistic> statistics = parse_statistics(options.statistics);
    const int64_t step = options.step.empty() ? 0 : parse_duration(options.step, "--step");
    reading source(options.source.name);
    const auto chosen = choose_sensors(source.sensors(), options.source.sensors);
    const std::vector<std::string> names = names_of(source.sensors(), chosen);
    const auto output = make_fetch_output(format, names, statistics, options.source.where());
    row_maker rows(names.size(), source.how_summed(), step, *output);
    source.read(range_in(options.source, source), chosen, rows);
    rows.finish();
    flush_output();
    if (!rows.any()) {
        tell_nothing(source, options.source.where());
    }
    return source.code();
}

action prepare(option_list &options)
{
    const auto chosen = std::make_shared<fetch_options>();
    add_reading(options, chosen->source);
    add_sensor_choice(options, chosen->source);
    options.text("--step", "LENGTH", chosen->step,
                 "One row for each step of this length instead of each sample");
    options.text("--stat", "NAME,...", chosen->statistics,
                 "What to show of each interval or step: count, min, mean, max, stddev, skewness, "
                 "kurtosis, first, last");
    options.text("--format", "csv|tsv|jsonl", chosen->format,
                 "For programs; without it a table for people");
    return [chosen] { return fetch(*chosen); };
}

constexpr const char *more =
    "Raw samples where the box still has them, and the intervals of history before: the column "
    "kind\n"
    "tells them apart, and seconds tells from the first to the last sample of a row. With --step,\n"
    "samples and intervals are merged into rows that begin at multiples of the step; an interval\n"
    "that is longer stays a row of its own, and a shorter one belongs to the step it begins in.\n"
    "Formats for programs hold plain numbers; a missing one is empty in CSV and null in JSON.\n"
    "\n" VESK_CLI_READING_HELP "\n"
    "Examples:\n"
    "  vesk fetch box --last 1m --sensor cpu.total.busy_percent --sensor load.1min\n"
    "  vesk fetch box --sensor 'mem.*' --step 1h --stat min,max\n"
    "  vesk fetch box --from -1d --to -12h --format csv > night.csv\n"
    "  vesk fetch box --last 5m --format jsonl | jq .values\n";

const registration registered({55, "fetch", "Show the values of a span of time as a table", more,
                               prepare});

} // namespace
} // namespace cli
