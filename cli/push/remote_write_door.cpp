// Sends points by remote write, and asks the store through the queries that Prometheus and
// VictoriaMetrics share.
#include "push/remote_write_door.hpp"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "export/export_names.hpp"
#include "export/interval_values.hpp"
#include "process/clock.hpp"
#include "push/percent.hpp"
#include "push/reply_class.hpp"

namespace cli
{
namespace
{

constexpr uint64_t usual_points = 8000;
constexpr const char *position_metric = "vesk_push_position";
constexpr const char *length_metric = "vesk_interval_seconds";

// A text within the quotes of a query.
std::string escaped(const std::string &text)
{
    std::string result;
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            result += '\\';
        }
        result += c;
    }
    return result;
}

std::optional<int64_t> value_in(const std::string &reply)
{
    const nlohmann::json answer = nlohmann::json::parse(reply, nullptr, false);
    const nlohmann::json::json_pointer path("/data/result/0/value/1");
    if (answer.is_discarded() || !answer.contains(path) || !answer[path].is_string()) {
        return std::nullopt;
    }
    const double value = std::atof(answer[path].get<std::string>().c_str());
    constexpr double largest = 9e15;
    return std::abs(value) < largest ? std::optional(std::llround(value)) : std::nullopt;
}

} // namespace

void remote_write_door::create(const std::string & /*cluster*/)
{
    // A store of metrics has no tables.
}

void remote_write_door::begin(const box_labels &labels, const std::vector<std::string> &sensors)
{
    labels_ = labels;
    counts_ = {};
    rows_.clear();
    uncounted_.clear();
    events_.clear();
    sensors_.clear();
    const std::vector<std::string> names = export_names(sensors, true);
    for (std::size_t i = 0; i < sensors.size(); ++i) {
        sensors_[sensors[i]] = {metric_name(names[i]), names[i]};
    }
}

const remote_write_door::named_sensor &remote_write_door::named(const std::string &sensor)
{
    const auto found = sensors_.find(sensor);
    if (found != sensors_.end()) {
        return found->second;
    }
    // It came while the box was read.
    const std::string name = label_text(sensor);
    return sensors_[sensor] = {metric_name(name), name};
}

series_labels remote_write_door::labels_of(const std::string &metric) const
{
    series_labels labels = {{"__name__", metric}, {"box", label_text(labels_.box)}};
    const std::pair<const char *, const std::string &> more[] = {
        {"host", labels_.host}, {"site", labels_.site}, {"firmware", labels_.firmware}};
    for (const auto &[name, value] : more) {
        if (!value.empty()) {
            labels.push_back({name, label_text(value)});
        }
    }
    return labels;
}

series_labels remote_write_door::labels_of(const named_sensor &sensor,
                                           const std::string &suffix) const
{
    series_labels labels = labels_of(sensor.metric + suffix);
    labels.push_back({"sensor", sensor.label});
    return labels;
}

// Stores have no NaN, which is no value, and VictoriaMetrics has no infinities.
bool remote_write_door::add(series_labels labels, int64_t time, double value)
{
    if (std::isnan(value)) {
        return false;
    }
    if (std::isinf(value)) {
        ++counts_.left_out;
        return false;
    }
    rows_.add(std::move(labels), time * 1000, value);
    return true;
}

void remote_write_door::send_if_full()
{
    if (rows_.count() >= usual_points) {
        flush();
    }
}

void remote_write_door::add_interval(const pushed_interval &interval,
                                     const std::vector<std::string> &sensors, const summing &how,
                                     int64_t known)
{
    for (std::size_t i = 0; i < sensors.size(); ++i) {
        const interval_summary *value = interval.values[i];
        if (value == nullptr || value->count == 0) {
            continue;
        }
        const named_sensor &sensor = named(sensors[i]);
        (void)add(labels_of(sensor, "_count"), interval.end, value->count);
        for (const quantity what : interval_quantities) {
            (void)add(labels_of(sensor, fmt::format("_{}", name_of(what))), interval.end,
                      shortest_double(value_of(*value, what, how)));
        }
        ++uncounted_[interval.end * 1000].intervals;
    }
    (void)add(labels_of(length_metric), interval.end,
              static_cast<double>(interval.end - interval.start));
    if (known != 0) {
        (void)add(labels_of("vesk_interval_known_seconds"), interval.end,
                  static_cast<double>(known - interval.start));
    }
    send_if_full();
}

void remote_write_door::add_sample(const raw_record &sample)
{
    for (std::size_t i = 0; i < sample.values.size(); ++i) {
        const bool taken = add(labels_of(named((*sample.sensors)[i]), ""), sample.time,
                               shortest_double(sample.values[i]));
        if (taken) {
            ++uncounted_[sample.time * 1000].samples;
        }
    }
    send_if_full();
}

void remote_write_door::add_event(const raw_record &event)
{
    event_count &same = events_[event.type];
    same = same.time == event.time ? event_count{same.time, same.count + 1}
                                   : event_count{event.time, 1};
    series_labels labels = labels_of("vesk_events");
    labels.push_back({"type", std::to_string(event.type)});
    (void)add(std::move(labels), event.time, static_cast<double>(same.count));
    ++uncounted_[event.time * 1000].events;
    send_if_full();
}

void remote_write_door::flush()
{
    const std::vector<int64_t> times = rows_.times();
    if (!times.empty()) {
        (void)send(times, 0, times.size());
    }
    rows_.clear();
    uncounted_.clear();
}

row_counts remote_write_door::uncounted_between(int64_t from, int64_t to) const
{
    row_counts sum;
    for (auto at = uncounted_.lower_bound(from); at != uncounted_.end() && at->first <= to; ++at) {
        sum.samples += at->second.samples;
        sum.intervals += at->second.intervals;
        sum.events += at->second.events;
    }
    return sum;
}

void remote_write_door::count_sent(int64_t from, int64_t to)
{
    const row_counts sent = uncounted_between(from, to);
    counts_.samples += sent.samples;
    counts_.intervals += sent.intervals;
    counts_.events += sent.events;
}

bool remote_write_door::send(const std::vector<int64_t> &times, std::size_t begin, std::size_t end)
{
    try {
        (void)to_.send(target_.path, rows_.request(times[begin], times[end - 1]),
                       {"Content-Type: application/x-protobuf", "Content-Encoding: snappy",
                        "X-Prometheus-Remote-Write-Version: 0.1.0"});
        count_sent(times[begin], times[end - 1]);
        return true;
    } catch (const push_refused &reason) {
        if (!tells_wrong_time(reason.what())) {
            throw;
        }
    }
    // One point that is too old costs the whole request: look from which time on all are taken.
    if (end - begin == 1) {
        counts_.left_out += uncounted_between(times[begin], times[begin]).all();
        return false;
    }
    const std::size_t middle = begin + (end - begin) / 2;
    if (send(times, middle, end)) {
        return send(times, begin, middle);
    }
    counts_.left_out += uncounted_between(times[begin], times[middle - 1]).all();
    return false;
}

std::string remote_write_door::selector(const std::string &metric, const std::string &more) const
{
    return fmt::format("{}{{box=\"{}\"{}}}", metric, escaped(label_text(labels_.box)), more);
}

std::optional<int64_t> remote_write_door::ask(const std::string &query)
{
    const std::string body = "nocache=1&query=" + percent_encoded(query);
    try {
        return value_in(
            to_.send("/api/v1/query", body, {"Content-Type: application/x-www-form-urlencoded"}));
    } catch (const push_refused &) {
        // Not every store that can be written to can be asked.
        cannot_tell_ = true;
        return std::nullopt;
    }
}

std::optional<timed_position> remote_write_door::known_position()
{
    const auto part = [this](const char *what) {
        return ask(fmt::format("max(last_over_time({}[30d]))",
                               selector(position_metric, fmt::format(",what=\"{}\"", what))));
    };
    const std::optional<int64_t> file = part("file");
    const std::optional<int64_t> records = file ? part("records") : std::nullopt;
    const std::optional<int64_t> time = records ? part("time") : std::nullopt;
    if (!time || *file < 0 || *records < 0) {
        return std::nullopt;
    }
    return timed_position{{static_cast<uint32_t>(*file), static_cast<uint64_t>(*records)}, *time};
}

std::optional<known_interval> remote_write_door::newest_interval(uint32_t file, int64_t from)
{
    const std::string lengths = selector(length_metric);
    std::optional<int64_t> end = ask(fmt::format("max(tlast_over_time({}[20y]))", lengths));
    if (cannot_tell_) {
        // Prometheus, which knows no such function: over the time in which it takes what is old.
        cannot_tell_ = false;
        end = ask(fmt::format("max(max_over_time(timestamp({})[12h:1m]))", lengths));
    }
    if (!end || *end < from) {
        return std::nullopt;
    }
    // It only tells the time; of equal ones the latest is meant.
    return known_interval{*end, *end, file, UINT32_MAX};
}

void remote_write_door::tell(const box_facts &facts)
{
    labels_ = facts.labels;
    // Later than the one of a push before it, which may have ended in this second.
    const auto now = static_cast<int64_t>(clock_seconds() * 1000);
    const std::pair<const char *, int64_t> parts[] = {
        {"file", facts.position.file},
        {"records", static_cast<int64_t>(facts.position.records)},
        {"time", facts.position_time}};
    for (const auto &[what, value] : parts) {
        series_labels labels = {
            {"__name__", position_metric}, {"box", label_text(labels_.box)}, {"what", what}};
        rows_.add(std::move(labels), now, static_cast<double>(value));
    }
    flush();
}

} // namespace cli
