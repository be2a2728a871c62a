// vesk sensors: looks at the machine twice and lists the sensors that `vesk record` would record
// with the same options, with value, unit and source. A group that is asked for and gives no sensor
// is reported, so that nobody searches for it in the list.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <fmt/format.h>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <thread>

#include "machine/hwmon.hpp"
#include "machine/rates.hpp"
#include "machine/sampler.hpp"
#include "process/failure.hpp"
#include "process/output.hpp"
#include "process/terminal.hpp"
#include "text/value_text.hpp"
#include "verbs/sensor_options.hpp"
#include "verbs/verb.hpp"

namespace cli
{
namespace
{

using nlohmann::ordered_json;

struct listing_options {
    sensor_options sensors;
    bool groups = false;
    bool json = false;
};

// Rates need two looks at the machine.
constexpr std::chrono::seconds between_looks(1);

struct listed_sensor {
    std::string name;
    float value;
    std::string source;
};

// Columns are not made wider than this for the sake of one name.
constexpr std::size_t widest_name = 56;

std::size_t position_of(std::string_view group)
{
    std::size_t position = 0;
    for (const sensor_group &each : sensor_groups()) {
        if (each.name == group) {
            break;
        }
        ++position;
    }
    return position;
}

std::vector<listed_sensor> look(const sensor_options &options)
{
    sampler machine(options.root, options.choice());
    const snapshot before = machine.take();
    std::this_thread::sleep_for(between_looks);
    const snapshot now = machine.take();
    std::map<std::string_view, std::string_view> sources;
    for (const measurement &m : now.taken) {
        sources.emplace(m.name, m.source);
    }
    const readings found = readings_between(before, now);
    std::vector<listed_sensor> sensors;
    for (std::size_t i = 0; i < found.names.size(); ++i) {
        sensors.push_back({found.names[i], found.values[i], std::string(sources[found.names[i]])});
    }
    std::stable_sort(sensors.begin(), sensors.end(),
                     [](const listed_sensor &one, const listed_sensor &other) {
                         return position_of(group_of(one.name)) < position_of(group_of(other.name));
                     });
    return sensors;
}

std::map<std::string_view, std::size_t> count_by_group(const std::vector<listed_sensor> &sensors)
{
    std::map<std::string_view, std::size_t> counts;
    for (const listed_sensor &sensor : sensors) {
        ++counts[group_of(sensor.name)];
    }
    return counts;
}

void print_row(std::size_t width, std::string_view name, std::string_view value,
               std::string_view unit, std::string_view source)
{
    put(fmt::format("{:<{}}  {:>13}  {:<13}  {}\n", name, width, value, unit, source));
}

void print_text(const std::vector<listed_sensor> &sensors)
{
    std::size_t width = 0;
    for (const listed_sensor &sensor : sensors) {
        width = std::max(width, std::min(sensor.name.size(), widest_name));
    }
    print_row(width, "NAME", "VALUE", "UNIT", "SOURCE");
    for (const listed_sensor &sensor : sensors) {
        std::string value;
        append_value(value, sensor.value);
        print_row(width, sensor.name, value, unit_of(sensor.name), printable(sensor.source));
    }
}

// Names the wanted groups that gave no sensor, so that nobody searches for them in the list.
void tell_what_is_not_there(const std::vector<listed_sensor> &sensors, const sensor_choice &choice)
{
    const auto counts = count_by_group(sensors);
    std::string without;
    for (const sensor_group &group : sensor_groups()) {
        if (choice.wants_group(group.name) && !counts.contains(group.name)) {
            without += fmt::format("{}{}", without.empty() ? "" : ", ", group.name);
        }
    }
    if (!without.empty()) {
        note("this machine gives nothing for: " + without);
    }
    if (!has_libsensors() && choice.wants_group("hwmon")) {
        note("built without libsensors: the group hwmon is read from /sys/class/hwmon");
    }
}

ordered_json groups_json(const std::map<std::string_view, std::size_t> *counts)
{
    ordered_json list = ordered_json::array();
    for (const sensor_group &group : sensor_groups()) {
        ordered_json row = {{"name", group.name}, {"purpose", group.purpose}};
        if (counts != nullptr) {
            const auto found = counts->find(group.name);
            row["sensors"] = found == counts->end() ? 0 : found->second;
        }
        list.push_back(std::move(row));
    }
    return list;
}

ordered_json sensor_json(const listed_sensor &sensor)
{
    ordered_json row = {{"name", sensor.name}, {"value", nullptr}};
    if (std::isfinite(sensor.value)) {
        std::string text;
        append_value(text, sensor.value);
        row["value"] = ordered_json::parse(text); // 0.1, and not the double next to that float
    }
    row["unit"] = unit_of(sensor.name);
    row["group"] = group_of(sensor.name);
    row["source"] = sensor.source;
    return row;
}

// All that is not ASCII is escaped: paths may hold what turns a terminal.
void put_json(const ordered_json &what)
{
    put(what.dump(2, ' ', true, ordered_json::error_handler_t::replace) + "\n");
}

void print_json(const std::vector<listed_sensor> &sensors)
{
    const auto counts = count_by_group(sensors);
    ordered_json result = {{"libsensors", has_libsensors()}, {"groups", groups_json(&counts)}};
    result["sensors"] = ordered_json::array();
    for (const listed_sensor &sensor : sensors) {
        result["sensors"].push_back(sensor_json(sensor));
    }
    put_json(result);
}

void print_groups(bool json)
{
    if (json) {
        put_json(groups_json(nullptr));
        return;
    }
    for (const sensor_group &group : sensor_groups()) {
        put(fmt::format("{:<10}  {}\n", group.name, group.purpose));
    }
}

exit_code list_sensors(const listing_options &options)
{
    const sensor_choice choice = options.sensors.choice();
    if (options.groups) {
        print_groups(options.json);
        flush_output();
        return exit_done;
    }
    const std::vector<listed_sensor> sensors = look(options.sensors);
    if (options.json) {
        print_json(sensors);
    } else if (!sensors.empty()) {
        print_text(sensors);
    }
    flush_output();
    if (sensors.empty()) {
        throw failure(exit_failed, "this machine gives no such readings");
    }
    if (!options.json) {
        tell_what_is_not_there(sensors, choice);
    }
    return exit_done;
}

action prepare(option_list &options)
{
    const auto chosen = std::make_shared<listing_options>();
    add_sensor_options(options, chosen->sensors);
    options.flag("--groups", chosen->groups, "List the groups, without a look at the machine");
    options.flag("--json", chosen->json, "Print JSON; a value that is missing is null");
    return [chosen] { return list_sensors(*chosen); };
}

constexpr const char *more =
    "Looks at the machine twice, a second apart, and prints each sensor that `vesk record` would\n"
    "record with the same options: name, value, unit, and the file that it comes from. A value\n"
    "that cannot be read is nan. The first word of a name is the group of the sensor.\n"
    "\n"
    "In a PATTERN, * stands for anything, ? for one character and [a-c] for one of a set; the ::\n"
    "in front may be left out.\n"
    "\n"
    "Examples:\n"
    "  vesk sensors\n"
    "  vesk sensors --groups\n"
    "  vesk sensors --sensors disk,fs --exclude 'disk.loop*'\n"
    "  vesk sensors --json | jq '.sensors[] | select(.unit == \"percent\")'\n";

const registration registered({15, "sensors", "List the sensors of this machine", more, prepare});

} // namespace
} // namespace cli
