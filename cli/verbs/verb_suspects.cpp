// vesk suspects BASE: which sensors were unusual at the end of a box, the most unusual one first.
#include <algorithm>
#include <fmt/format.h>
#include <memory>
#include <optional>

#include "analysis/unusual_text.hpp"
#include "box/reading.hpp"
#include "box/unusual_sensors.hpp"
#include "process/failure.hpp"
#include "process/output.hpp"
#include "process/terminal.hpp"
#include "text/duration.hpp"
#include "text/machine_text.hpp"
#include "text/sensor_choice.hpp"
#include "verbs/reading_options.hpp"
#include "verbs/verb.hpp"

namespace cli
{
namespace
{

struct suspects_options {
    reading_options source; // without its range
    std::string last;
    std::string before;
    bool json = false;
    bool all = false;
};

class suspects_output
{
public:
    suspects_output(const unusual_ranking &found, const unusual_tracks &seen, zone where)
        : found_(found), seen_(seen), where_(where)
    {
    }

    void print(bool all) const
    {
        if (!seen_.begin()) {
            put("nothing in this span of time\n");
            return;
        }
        put(fmt::format("{} to {}: {}, {} before them\n", time(seen_.begin()), time(seen_.end()),
                        counted(seen_.samples(), "raw sample"),
                        counted(seen_.intervals(), "interval")));
        put(found_.summary() + "\n");
        const std::size_t worth = found_.count_if(is_worth_a_look);
        const std::size_t shown = all ? found_.order.size() : std::min(worth, most_shown);
        if (shown > 0) {
            put(fmt::format("{:>4}  {:>6}\n", "rank", "score"));
        }
        for (std::size_t rank = 0; rank < shown; ++rank) {
            print_line(rank);
        }
        if (shown < worth) {
            put(fmt::format("{} more: --all lists them\n", worth - shown));
        }
    }

    void print_json(const std::string &box) const
    {
        put(fmt::format("{{\"box\": {}, \"from\": {}, \"to\": {}, \"samples\": {}, "
                        "\"intervals\": {}, \"compared_samples\": {}, \"unusual\": {}, "
                        "\"perhaps\": {}, \"sensors\": [",
                        json_string(box), json_time(seen_.begin()), json_time(seen_.end()),
                        seen_.samples(), seen_.intervals(), found_.newest, found_.unusual(),
                        found_.perhaps()));
        for (std::size_t rank = 0; rank < found_.order.size(); ++rank) {
            put(rank == 0 ? "\n" : ",\n");
            put(json_text(rank));
        }
        put("\n]}\n");
    }

private:
    static constexpr std::size_t most_shown = 20;

    void print_line(std::size_t rank) const
    {
        const finding &one = found_.findings[found_.order[rank]];
        put(fmt::format("{:>4}  {:>6}  {}\n", rank + 1,
                        one.has_score() ? fmt::format("{:.2f}", one.score) : "-",
                        printable(found_.sentence(rank, amounts::with_units))));
    }

    std::string json_text(std::size_t rank) const
    {
        const finding &one = found_.findings[found_.order[rank]];
        std::string text =
            fmt::format("  {{\"rank\": {}, \"sensor\": {}, \"score\": {}, \"level\": \"{}\", "
                        "\"sentence\": {}, \"few_intervals\": {}, \"is_rate\": {}",
                        rank + 1, json_string(found_.names[found_.order[rank]]),
                        one.has_score() ? json_number(one.score) : "null", level_of(one),
                        json_string(found_.sentence(rank)), one.few_intervals, one.is_rate);
        if (one.kind == verdict::judged || (one.kind == verdict::stuck && one.within > 0)) {
            text += fmt::format(", \"from\": {}, \"to\": {}, \"within\": {}, \"usual_swing\": {}, "
                                "\"reached\": {}",
                                json_number(one.from), json_number(one.to), one.within,
                                json_number(one.usual_swing), json_number(one.reached));
        }
        if (one.kind == verdict::stuck) {
            text += fmt::format(", \"unchanged\": {}", one.unchanged);
        }
        return text + "}";
    }

    std::string time(std::optional<int64_t> when) const { return iso_time(*when, where_); }
    std::string json_time(std::optional<int64_t> when) const
    {
        return when ? fmt::format("\"{}\"", time(when)) : "null";
    }

    const unusual_ranking &found_;
    const unusual_tracks &seen_;
    zone where_;
};

time_range range_before(const std::optional<moment> &before, const reading &source)
{
    time_range range;
    if (before) {
        range.to = before->seconds + (before->from_end ? source.end().value_or(0) : 0);
    }
    return range;
}

exit_code suspects(const suspects_options &options)
{
    options.source.settle();
    std::optional<moment> before;
    if (!options.before.empty()) {
        before = parse_moment(options.before, "--before", twin::later);
    }
    const int64_t last = options.last.empty() ? 0 : parse_duration(options.last, "--last");
    reading source(options.source.name);
    const auto chosen = choose_sensors(source.sensors(), options.source.sensors);
    const time_range range = range_before(before, source);
    const uint64_t samples = samples_in(source, range);
    const cell_plan plan = plan_of(samples, source.usual_step(), last, chosen.size());
    unusual_tracks seen(plan, chosen.size(), range);
    source.read(range, chosen, seen);
    const uint64_t newest = std::min<uint64_t>(samples, plan.newest * plan.unit);
    const unusual_ranking found = rank_sensors(seen, names_of(source.sensors(), chosen), newest);
    const suspects_output output(found, seen, options.source.where());
    if (options.json) {
        output.print_json(options.source.name);
    } else {
        output.print(options.all);
    }
    flush_output();
    return source.code();
}

action prepare(option_list &options)
{
    const auto chosen = std::make_shared<suspects_options>();
    reading_options &source = chosen->source;
    options.required_word("BASE|FILE", source.name, "Name of a box, or one of its buffer files");
    options.text("--last", "LENGTH", chosen->last,
                 "Compare so much at the end with what was before, such as 10m");
    options.text("--before", "TIME", chosen->before,
                 "As if the box ended at this time, such as -2h");
    add_time_zone(options, source, true);
    add_sensor_choice(options, source);
    options.flag("--all", chosen->all, "List the other sensors, too");
    options.flag("--json", chosen->json, "One object with all sensors, for programs");
    return [chosen] { return suspects(*chosen); };
}

constexpr const char *more =
    "Compares the newest samples of each sensor with its own past, history included, and lists\n"
    "the sensors that were unusual, the most unusual one first. A score above 0.3 is \"unusual\",\n"
    "from 0 on \"perhaps\"; one point more is ten times the distance. It tells where to look\n"
    "first. It knows nothing of causes: what fails last may move most.\n"
    "\n"
    "Samples that were taken about once a minute are compared over the last 5, 10, 20 and 60 of\n"
    "them, others over the same shares of the raw samples; --last takes another length than that\n"
    "of 60. --before looks at an earlier moment, as far as there are raw samples of it.\n"
    "\n" VESK_CLI_READING_HELP "\n"
    "Examples:\n"
    "  vesk suspects box\n"
    "  vesk suspects box --last 10m --all\n"
    "  vesk suspects box --before -2h --sensor 'cpu.*'\n"
    "  vesk suspects box --json | jq '.sensors[] | select(.score > 0.3) | .sensor'\n";

const registration registered({56, "suspects", "Tell which sensors were unusual at the end", more,
                               prepare});

} // namespace
} // namespace cli
