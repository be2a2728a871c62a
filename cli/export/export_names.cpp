// Makes names for other programs. One rule holds for all formats, so that a sensor has the same
// name in each of them; only line protocol cannot hold every name.
#include "export/export_names.hpp"

#include <algorithm>
#include <array>
#include <fmt/format.h>

#include "process/failure.hpp"
#include "process/terminal.hpp"
#include "text/distinct_names.hpp"

namespace cli
{
namespace
{

// Longer ones are cut: engines refuse them or store them in pieces.
constexpr std::size_t longest_value = 1024;

bool is_letter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}

bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}

void refuse(const std::string &told, const char *why)
{
    throw failure(exit_usage, fmt::format("--label {}: {}", told.substr(0, 60), why));
}

// The columns and tags that the formats have already, and what Prometheus keeps for itself.
bool is_taken(std::string_view key)
{
    constexpr std::array<std::string_view, 9> taken = {
        "sensor", "time", "value", "type", "text", "order", "metric", "quantile", "le"};
    return key.starts_with("__") || std::find(taken.begin(), taken.end(), key) != taken.end();
}

label parse_label(const std::string &told)
{
    const std::size_t equals = told.find('=');
    if (equals == std::string::npos) {
        refuse(told, "a label is KEY=VALUE");
    }
    const std::string key = told.substr(0, equals);
    if (key.empty() || !is_letter(key.front()) ||
        !std::all_of(key.begin(), key.end(), [](char c) { return is_letter(c) || is_digit(c); })) {
        refuse(told, "a key consists of letters, digits and '_', and does not begin with a digit");
    }
    if (is_taken(key)) {
        refuse(told, "this key has a meaning of its own; take another one");
    }
    const std::string value = told.substr(equals + 1);
    if (value.size() > longest_value) {
        refuse(told, "the value is longer than 1024 bytes");
    }
    return {key, label_text(value)};
}

void set(std::vector<label> &labels, label what)
{
    std::erase_if(labels, [&](const label &each) { return each.key == what.key; });
    if (!what.value.empty()) {
        labels.push_back(std::move(what));
    }
}

} // namespace

std::string label_text(std::string_view text)
{
    std::string result = printable(text);
    if (result.ends_with('\\')) {
        result.back() = '?';
    }
    return result;
}

std::vector<std::string> export_names(std::span<const std::string> sensors, bool as_tags)
{
    return distinct_names(sensors, [as_tags](const std::string &sensor) {
        const std::string whole = sensor.empty() ? "?" : sensor;
        return as_tags ? label_text(whole) : printable(whole);
    });
}

std::string metric_name(std::string_view sensor)
{
    std::string name = "vesk_";
    name += sensor.starts_with("::") ? sensor.substr(2) : sensor;
    std::replace_if(
        name.begin(), name.end(), [](char c) { return !is_letter(c) && !is_digit(c); }, '_');
    return name;
}

std::vector<label> labels_of(const std::string &box_name, const machine_identity &who,
                             std::span<const std::string> told)
{
    const std::size_t slash = box_name.find_last_of('/');
    std::vector<label> labels;
    set(labels,
        {"box", label_text(slash == std::string::npos ? box_name : box_name.substr(slash + 1))});
    set(labels, {"host", label_text(who.host)});
    for (const std::string &each : told) {
        set(labels, parse_label(each));
    }
    std::sort(labels.begin(), labels.end(),
              [](const label &a, const label &b) { return a.key < b.key; });
    return labels;
}

} // namespace cli
