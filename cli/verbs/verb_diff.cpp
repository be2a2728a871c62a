// vesk diff A [B]: which sensors behave differently in two boxes, or in two spans of time of one,
// those that differ most first. It compares and claims no cause.
#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <memory>
#include <optional>
#include <unordered_set>

#include "analysis/robust_difference.hpp"
#include "box/reading.hpp"
#include "box/side.hpp"
#include "process/failure.hpp"
#include "process/output.hpp"
#include "process/terminal.hpp"
#include "text/machine_text.hpp"
#include "text/sensor_choice.hpp"
#include "text/units.hpp"
#include "verbs/reading_options.hpp"
#include "verbs/statistic.hpp"
#include "verbs/verb.hpp"

namespace cli
{
namespace
{

struct diff_options {
    reading_options source; // the name, sensors and zone of it
    std::string other;
    std::string first_range;
    std::string second_range;
    bool all = false;
    bool json = false;
};

// "FROM/TO", where one of both may be missing, as ISO 8601 writes spans of time.
range_texts split_range(const std::string &text, const char *option)
{
    if (text.empty()) {
        return {};
    }
    const std::size_t slash = text.find('/');
    if (slash == std::string::npos || text.find('/', slash + 1) != std::string::npos) {
        throw failure(exit_usage, fmt::format("{} {}: not FROM/TO, such as -2h/-1h or /-10m",
                                              option, text.substr(0, 60)));
    }
    return {text.substr(0, slash), text.substr(slash + 1), ""};
}

struct compared_sensor {
    std::string name;
    sensor_statistics first;
    sensor_statistics second;
    robust_difference difference;
};

struct comparison {
    std::vector<compared_sensor> sensors; // the ones that differ most first
    std::vector<std::string> only_first;
    std::vector<std::string> only_second;
};

std::string level_of(double size)
{
    return size >= large_from    ? "large"
           : size >= medium_from ? "medium"
           : size >= small_from  ? "small"
                                 : "alike";
}

bool is_rough(const side_sensor &one)
{
    return one.numbers.numbers().deviation().is_rough;
}

void compare(comparison &found, const std::string &name, side_sensor &first, side_sensor &second)
{
    if (first.values.empty() || second.values.empty()) {
        if (!first.values.empty()) {
            found.only_first.push_back(name);
        } else if (!second.values.empty()) {
            found.only_second.push_back(name);
        }
        return;
    }
    const robust_summary one = summarise(first.values);
    const robust_summary other = summarise(second.values);
    robust_difference difference = difference_of(one, other);
    if (is_rough(first) || is_rough(second)) {
        // Nobody can tell which of them varied more.
        difference.spread = 0;
    }
    found.sensors.push_back({name, first.numbers, second.numbers, difference});
}

comparison compare(side &first, side &second, const std::vector<std::string> &names)
{
    comparison found;
    const std::size_t room = std::max<std::size_t>(1, std::min(first.room(), second.room()) / 2);
    for (std::size_t begin = 0; begin < names.size(); begin += room) {
        const auto from = names.begin() + static_cast<std::ptrdiff_t>(begin);
        const auto to =
            names.begin() + static_cast<std::ptrdiff_t>(std::min(names.size(), begin + room));
        const std::vector<std::string> some(from, to);
        std::vector<side_sensor> a = first.read(some);
        std::vector<side_sensor> b = second.read(some);
        for (std::size_t i = 0; i < some.size(); ++i) {
            compare(found, some[i], a[i], b[i]);
        }
    }
    std::stable_sort(found.sensors.begin(), found.sensors.end(),
                     [](const compared_sensor &a, const compared_sensor &b) {
                         return a.difference.size() > b.difference.size();
                     });
    return found;
}

// "12.5 % (3 % to 40 %, deviation 2 %)".
std::string numbers_text(const sensor_statistics &sensor, const std::string &name)
{
    const auto in_unit = [&name](double value) { return with_unit(value, name); };
    const double least = sensor.numbers().least();
    const double greatest = sensor.numbers().greatest();
    if (least == greatest) {
        return "always " + in_unit(least);
    }
    return fmt::format("mean {} ({} to {}, deviation {})", in_unit(sensor.numbers().mean()),
                       in_unit(least), in_unit(greatest), shown(sensor, statistic::stddev, name));
}

std::string sentence_of(const compared_sensor &one)
{
    const robust_difference &found = one.difference;
    const std::string numbers = fmt::format("{} in A, {} in B", numbers_text(one.first, one.name),
                                            numbers_text(one.second, one.name));
    if (found.size() < small_from) {
        return fmt::format("{} was alike: {}", one.name, numbers);
    }
    if (std::fabs(found.spread) > std::fabs(found.shift)) {
        return fmt::format("{} varied {} in B: {}", one.name, found.spread > 0 ? "more" : "less",
                           numbers);
    }
    return fmt::format("{} was {} in B: {}", one.name, found.shift > 0 ? "higher" : "lower",
                       numbers);
}

std::string size_text(double size)
{
    return size > 99.99 ? ">99.99" : fmt::format("{:.2f}", size);
}

class diff_output
{
public:
    diff_output(const comparison &found, const side &first, const side &second, zone where)
        : found_(found), first_(first), second_(second), where_(where)
    {
    }

    void print(bool all) const
    {
        put(fmt::format("A  {}\nB  {}\n", side_text(first_), side_text(second_)));
        const std::size_t differ = differing();
        put(fmt::format("{} of {} differ\n", differ, counted(found_.sensors.size(), "sensor")));
        const std::size_t shown = all ? found_.sensors.size() : std::min(differ, most_shown);
        if (shown > 0) {
            put(fmt::format("{:>4}  {:>10}\n", "rank", "difference"));
        }
        for (std::size_t i = 0; i < shown; ++i) {
            const compared_sensor &one = found_.sensors[i];
            put(fmt::format("{:>4}  {:>10}  {}\n", i + 1, size_text(one.difference.size()),
                            printable(sentence_of(one))));
        }
        if (shown < differ) {
            put(fmt::format("{} more: --all lists them\n", differ - shown));
        }
        print_only("A", found_.only_first, all);
        print_only("B", found_.only_second, all);
    }

    void print_json() const
    {
        put(fmt::format("{{\"method\": \"robust standardised difference of means trimmed by 20 % "
                        "(Algina, Keselman, Penfield 2005)\", \"a\": {}, \"b\": {}, "
                        "\"differing\": {}, \"sensors\": [",
                        side_json(first_), side_json(second_), differing()));
        for (std::size_t i = 0; i < found_.sensors.size(); ++i) {
            put(i == 0 ? "\n" : ",\n");
            put(sensor_json(i));
        }
        put(fmt::format("\n], \"only_a\": {}, \"only_b\": {}}}\n", names_json(found_.only_first),
                        names_json(found_.only_second)));
    }

private:
    static constexpr std::size_t most_shown = 20;

    std::size_t differing() const
    {
        return static_cast<std::size_t>(
            std::count_if(found_.sensors.begin(), found_.sensors.end(),
                          [](const auto &one) { return one.difference.size() >= small_from; }));
    }

    // The part of the box that is looked at.
    static std::pair<int64_t, int64_t> span_of(const side &which)
    {
        return {std::max(which.range().from, which.source().begin().value_or(0)),
                std::min(which.range().to, which.source().end().value_or(0))};
    }
    std::string side_text(const side &which) const
    {
        const std::string name = printable(which.source().source().name);
        const auto [from, to] = span_of(which);
        if (!which.source().begin()) {
            return name + ", which is empty";
        }
        return from > to ? name + ", nothing in that span of time"
                         : fmt::format("{}, {} to {}", name, iso_time(from, where_),
                                       iso_time(to, where_));
    }
    std::string side_json(const side &which) const
    {
        const auto [from, to] = span_of(which);
        const bool any = which.source().begin() && from <= to;
        const auto time = [&](int64_t when) {
            return any ? fmt::format("\"{}\"", iso_time(when, where_)) : std::string("null");
        };
        return fmt::format("{{\"box\": {}, \"from\": {}, \"to\": {}}}",
                           json_string(which.source().source().name), time(from), time(to));
    }

    static std::string numbers_json(const sensor_statistics &sensor)
    {
        const moments &numbers = sensor.numbers();
        return fmt::format(
            "{{\"count\": {}, \"mean\": {}, \"stddev\": {}, \"stddev_is_rough\": {}, "
            "\"min\": {}, \"max\": {}}}",
            numbers.count(), json_number(numbers.mean()), json_number(numbers.deviation().value),
            numbers.deviation().is_rough, json_number(sensor.least()),
            json_number(sensor.greatest()));
    }
    std::string sensor_json(std::size_t i) const
    {
        const compared_sensor &one = found_.sensors[i];
        return fmt::format("  {{\"rank\": {}, \"sensor\": {}, \"level\": \"{}\", \"shift\": {}, "
                           "\"spread\": {}, \"sentence\": {}, \"a\": {}, \"b\": {}}}",
                           i + 1, json_string(one.name), level_of(one.difference.size()),
                           rounded(one.difference.shift), rounded(one.difference.spread),
                           json_string(sentence_of(one)), numbers_json(one.first),
                           numbers_json(one.second));
    }
    // More digits would tell of the order of additions only.
    static std::string rounded(double value)
    {
        return std::isfinite(value) ? fmt::format("{:.4f}", value + 0.0) : "null";
    }
    static std::string names_json(const std::vector<std::string> &names)
    {
        std::string text;
        for (const std::string &name : names) {
            text += text.empty() ? "" : ", ";
            text += json_string(name);
        }
        return "[" + text + "]";
    }

    static void print_only(const char *where, const std::vector<std::string> &names, bool all)
    {
        const std::size_t shown = all ? names.size() : std::min(names.size(), most_shown);
        for (std::size_t i = 0; i < shown; ++i) {
            put(fmt::format("only in {}  {}\n", where, printable(names[i])));
        }
        if (shown < names.size()) {
            put(fmt::format("{} more only in {}: --all lists them\n", names.size() - shown, where));
        }
    }

    const comparison &found_;
    const side &first_;
    const side &second_;
    zone where_;
};

std::vector<std::string> all_sensors(const reading &first, const reading &second)
{
    std::vector<std::string> names = first.sensors();
    const std::unordered_set<std::string> known(names.begin(), names.end());
    for (const std::string &name : second.sensors()) {
        if (known.count(name) == 0) {
            names.push_back(name);
        }
    }
    return names;
}

exit_code diff(const diff_options &options)
{
    options.source.settle();
    const range_texts first_range = split_range(options.first_range, "--a");
    const range_texts second_range = split_range(options.second_range, "--b");
    check_range(first_range);
    check_range(second_range);
    const bool is_one_box = options.other.empty();
    if (is_one_box && options.first_range == options.second_range) {
        throw failure(exit_usage, "one box needs two spans of time: --a FROM/TO and --b FROM/TO");
    }
    reading first(options.source.name);
    std::optional<reading> other;
    if (!is_one_box) {
        other.emplace(options.other);
    }
    reading &second = is_one_box ? first : *other;
    const std::vector<std::string> names = all_sensors(first, second);
    const auto chosen = choose_sensors(names, options.source.sensors);
    side a(first, range_of(first_range, first.end().value_or(0)));
    side b(second, range_of(second_range, second.end().value_or(0)));
    const comparison found = compare(a, b, names_of(names, chosen));
    const diff_output output(found, a, b, options.source.where());
    if (options.json) {
        output.print_json();
    } else {
        output.print(options.all);
    }
    flush_output();
    return std::max(first.code(), second.code());
}

action prepare(option_list &options)
{
    const auto chosen = std::make_shared<diff_options>();
    reading_options &source = chosen->source;
    options.required_word("A", source.name, "Name of a box, or one of its buffer files");
    options.word("B", chosen->other, "Another one; without it two spans of time of A");
    options.text("--a", "FROM/TO", chosen->first_range,
                 "Of A only this span of time; both ends as --from and --to of vesk fetch");
    options.text("--b", "FROM/TO", chosen->second_range, "The same of B");
    add_sensor_choice(options, source);
    options.flag("--all", chosen->all, "List the sensors that are alike, too");
    options.flag("--json", chosen->json, "One object with all sensors, for programs");
    add_time_zone(options, source, true);
    return [chosen] { return diff(*chosen); };
}

constexpr const char *more =
    "Compares each sensor of A with the same one of B, raw samples and history together, and "
    "lists\n"
    "those that differ, the largest difference first. It tells where to look and knows nothing of\n"
    "causes.\n"
    "\n"
    "The difference is how far the means lie apart, both without their lowest and highest fifth,\n"
    "in deviations (Algina, Keselman and Penfield 2005); or, where that is more, how much more "
    "one\n"
    "side varies, as a natural logarithm: 0.7 is twice as much. From 0.2 on it is small, from 0.5\n"
    "medium, from 0.8 large. Times from the end, like -10m, count from the end of each box.\n"
    "\n"
    "Examples:\n"
    "  vesk diff healthy broken\n"
    "  vesk diff box --a /-10m --b -10m/\n"
    "  vesk diff box --a 2024-01-01/2024-01-02 --b 2024-01-08/2024-01-09 --sensor 'cpu.*'\n"
    "  vesk diff a b --json | jq '.sensors[] | select(.level == \"large\") | .sensor'\n";

const registration registered({59, "diff", "Tell which sensors differ between two boxes or times",
                               more, prepare});

} // namespace
} // namespace cli
