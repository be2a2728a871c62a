// vesk stats BASE|FILE: prints the statistics of each sensor over a span of time, as a table, as
// paragraphs or for programs. Samples and intervals of history are merged; an interval that the
// span only touches counts as a whole, which the output says.
#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <memory>
#include <optional>

#include "box/reading.hpp"
#include "box/sensor_statistics.hpp"
#include "machine/measurement.hpp"
#include "process/output.hpp"
#include "process/terminal.hpp"
#include "text/machine_text.hpp"
#include "text/sensor_choice.hpp"
#include "verbs/output_format.hpp"
#include "verbs/reading_options.hpp"
#include "verbs/statistic.hpp"
#include "verbs/verb.hpp"

namespace cli
{
namespace
{

struct stats_options {
    reading_options source;
    std::string format;
    bool json = false;
    bool all = false;
};

constexpr std::array<statistic, 9> all_statistics = {
    statistic::count,    statistic::min,      statistic::mean,  statistic::max, statistic::stddev,
    statistic::skewness, statistic::kurtosis, statistic::first, statistic::last};

// When it was, of the statistics that are one sample.
std::optional<occasion> time_of(const sensor_statistics &sensor, statistic what)
{
    switch (what) {
    case statistic::min:
        return sensor.when_least();
    case statistic::max:
        return sensor.when_greatest();
    case statistic::first:
        return sensor.when_first();
    case statistic::last:
        return sensor.when_last();
    default:
        return std::nullopt;
    }
}

class collector : public row_visitor
{
public:
    collector(std::size_t sensors, const reading &source, const time_range &range)
        : sensors_(sensors), how_(source.how_summed()), range_(range)
    {
    }

    void on_interval(const interval_row &row) override
    {
        ++intervals_;
        cut_ += range_.holds(row.start) && range_.holds(row.end) ? 0U : 1U;
        extend(row.start, row.end);
        for (std::size_t i = 0; i < sensors_.size(); ++i) {
            if (row.values[i] != nullptr) {
                sensors_[i].add(*row.values[i], {row.start, row.end}, how_);
            }
        }
    }
    void on_sample(const sample_row &row) override
    {
        ++samples_;
        extend(row.time, row.time);
        for (std::size_t i = 0; i < sensors_.size(); ++i) {
            sensors_[i].add(row.values[i], row.time);
        }
    }

    const std::vector<sensor_statistics> &sensors() const { return sensors_; }
    uint64_t samples() const { return samples_; }
    uint64_t intervals() const { return intervals_; }
    // Intervals that go beyond the range.
    uint64_t cut() const { return cut_; }
    std::optional<occasion> covered() const { return covered_; }

private:
    void extend(int64_t start, int64_t end)
    {
        covered_ = covered_
                       ? occasion{std::min(covered_->start, start), std::max(covered_->end, end)}
                       : occasion{start, end};
    }

    std::vector<sensor_statistics> sensors_;
    summing how_;
    time_range range_;
    uint64_t samples_ = 0;
    uint64_t intervals_ = 0;
    uint64_t cut_ = 0;
    std::optional<occasion> covered_;
};

// Prints in one format what was collected.
class stats_output
{
public:
    stats_output(const collector &found, const std::vector<std::string> &names, zone where)
        : found_(found), names_(names), where_(where)
    {
    }

    void print_table() const
    {
        print_span();
        put(fmt::format("{:<{}}{:>11}{:>11}{:>11}{:>11}\n", "sensor", name_width, "min", "mean",
                        "max", "stddev"));
        for (std::size_t i = 0; i < names_.size(); ++i) {
            // Names that are too long have a line of their own.
            const std::string name = printable(names_[i]);
            put(name.size() < name_width ? fmt::format("{:<{}}", name, name_width)
                                         : fmt::format("{}\n{:{}}", name, "", name_width));
            for (const statistic what :
                 {statistic::min, statistic::mean, statistic::max, statistic::stddev}) {
                put(fmt::format(" {:>10}", shown(found_.sensors()[i], what, names_[i])));
            }
            put("\n");
        }
        print_remark();
    }

    void print_paragraphs() const
    {
        print_span();
        for (std::size_t i = 0; i < names_.size(); ++i) {
            put(fmt::format("\n{}\n", printable(names_[i])));
            for (const statistic what : all_statistics) {
                print_line(found_.sensors()[i], what, names_[i]);
            }
        }
        print_remark();
    }

    void print_fields(output_format format) const
    {
        field_line line(format);
        line.plain("sensor");
        for (const statistic what : all_statistics) {
            line.plain(name_of(what));
        }
        line.plain("stddev_is_rough");
        for (const statistic what : all_statistics) {
            if (time_of({}, what)) {
                line.plain(fmt::format("{}_from", name_of(what)));
                line.plain(fmt::format("{}_to", name_of(what)));
            }
        }
        line.print();
        for (std::size_t i = 0; i < names_.size(); ++i) {
            print_fields(line, found_.sensors()[i], names_[i]);
        }
    }

    void print_json(const std::string &box) const
    {
        put(fmt::format("{{\"box\": {}, \"from\": {}, \"to\": {}, \"samples\": {}, "
                        "\"intervals\": {}, \"sensors\": [",
                        json_string(box), covered([](const occasion &all) { return all.start; }),
                        covered([](const occasion &all) { return all.end; }), found_.samples(),
                        found_.intervals()));
        for (std::size_t i = 0; i < names_.size(); ++i) {
            put(i == 0 ? "\n" : ",\n");
            put(json_text(found_.sensors()[i], names_[i]));
        }
        put("\n]}\n");
    }

private:
    static constexpr std::size_t name_width = 36;

    void print_span() const
    {
        if (!found_.covered()) {
            put("nothing in this span of time\n");
            return;
        }
        put(fmt::format("{} to {}: {}, {} before them\n", time(found_.covered()->start),
                        time(found_.covered()->end), counted(found_.samples(), "raw sample"),
                        counted(found_.intervals(), "interval")));
    }

    void print_line(const sensor_statistics &sensor, statistic what, const std::string &name) const
    {
        std::string when;
        if (const auto at = time_of(sensor, what); at && sensor.numbers().count() > 0) {
            when = at->start == at->end ? time(at->start)
                                        : fmt::format("{} to {}", time(at->start), time(at->end));
        }
        put(fmt::format("  {:<9} {:>12}{}{}\n", name_of(what), shown(sensor, what, name),
                        when.empty() ? "" : "  ", when));
    }

    void print_remark() const
    {
        const bool any = std::any_of(
            found_.sensors().begin(), found_.sensors().end(),
            [](const sensor_statistics &sensor) { return sensor.numbers().deviation().is_rough; });
        if (any) {
            put("~ may be off by more than 5 %: the sums of history have single precision\n");
        }
    }

    void print_fields(field_line &line, const sensor_statistics &sensor,
                      const std::string &name) const
    {
        line.text(name);
        for (const statistic what : all_statistics) {
            line.plain(field_of(sensor, what, rough_numbers::marked));
        }
        line.plain(sensor.numbers().deviation().is_rough ? "1" : "0");
        for (const statistic what : all_statistics) {
            if (const auto at = time_of(sensor, what)) {
                const bool any = sensor.numbers().count() > 0;
                line.plain(any ? time(at->start) : "");
                line.plain(any ? time(at->end) : "");
            }
        }
        line.print();
    }

    std::string json_text(const sensor_statistics &sensor, const std::string &name) const
    {
        std::string text = fmt::format("  {{\"sensor\": {}, \"unit\": {}", json_string(name),
                                       unit_of(name).empty() ? "null" : json_string(unit_of(name)));
        for (const statistic what : all_statistics) {
            text += fmt::format(", \"{}\": {}", name_of(what),
                                json_of(sensor, what, rough_numbers::marked));
        }
        text += fmt::format(", \"stddev_is_rough\": {}", sensor.numbers().deviation().is_rough);
        for (const statistic what : all_statistics) {
            const auto at = time_of(sensor, what);
            if (at && sensor.numbers().count() > 0) {
                text += fmt::format(R"(, "{}_time": {{"from": "{}", "to": "{}"}})", name_of(what),
                                    time(at->start), time(at->end));
            } else if (at) {
                text += fmt::format(", \"{}_time\": null", name_of(what));
            }
        }
        return text + "}";
    }

    template <typename End>
    std::string covered(End end) const
    {
        return found_.covered() ? fmt::format("\"{}\"", time(end(*found_.covered()))) : "null";
    }
    std::string time(int64_t seconds) const { return iso_time(seconds, where_); }

    const collector &found_;
    const std::vector<std::string> &names_;
    zone where_;
};

exit_code stats(const stats_options &options)
{
    constexpr std::array<std::string_view, 4> formats = {"table", "csv", "tsv", "json"};
    options.source.settle();
    const output_format format =
        options.json ? output_format::json : parse_format(options.format, formats);
    reading source(options.source.name);
    const auto chosen = choose_sensors(source.sensors(), options.source.sensors);
    const std::vector<std::string> names = names_of(source.sensors(), chosen);
    const time_range range = range_in(options.source, source);
    collector found(chosen.size(), source, range);
    source.read(range, chosen, found);
    if (found.cut() > 0) {
        note(fmt::format("{} of history goes beyond the span of time and counts as a whole",
                         counted(found.cut(), "interval")));
    }
    const stats_output output(found, names, options.source.where());
    constexpr std::size_t few = 3;
    if (format == output_format::json) {
        output.print_json(options.source.name);
    } else if (format != output_format::table) {
        output.print_fields(format);
    } else if (options.all || (names.size() <= few && !names.empty())) {
        output.print_paragraphs();
    } else {
        output.print_table();
    }
    flush_output();
    return source.code();
}

action prepare(option_list &options)
{
    const auto chosen = std::make_shared<stats_options>();
    add_reading(options, chosen->source);
    add_sensor_choice(options, chosen->source);
    options.flag(
        "--all", chosen->all,
        "All statistics of each sensor, and when the extremes were; up to three sensors are "
        "shown so anyway");
    options.text("--format", "csv|tsv|json", chosen->format, "For programs; without it a table");
    options.flag("--json", chosen->json, "The same as --format json");
    return [chosen] { return stats(*chosen); };
}

constexpr const char *more =
    "Statistics of each sensor over all of a box, or a part of it. History and raw samples are\n"
    "merged; an interval of history that the span begins or ends in counts as a whole. stddev is\n"
    "that of the population; ~ marks one of which the sums of history, in single precision, tell\n"
    "too little; - is what cannot be known. A kurtosis of 3 is that of a normal distribution.\n"
    "\n" VESK_CLI_READING_HELP "\n"
    "Examples:\n"
    "  vesk stats box\n"
    "  vesk stats box --last 10m --sensor 'cpu.total.*'\n"
    "  vesk stats box --from '2024-01-31 22:00' --to '2024-01-31 23:00' --tz Europe/Zurich\n"
    "  vesk stats box --json | jq '.sensors[] | select(.max > 90) | .sensor'\n";

const registration registered({57, "stats", "Tell what each sensor did in a span of time", more,
                               prepare});

} // namespace
} // namespace cli
