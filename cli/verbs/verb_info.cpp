// vesk info BASE|FILE: tells what a box or one buffer holds: its files, spans of time, sensors,
// events and recordings, for people or as JSON. Files are only read, each of them once. Damage is
// listed and does not stop the report.
#include <algorithm>
#include <array>
#include <cstdio>
#include <fmt/format.h>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <numeric>

#include <vesk/error.h>
#include <vesk/vesk_buffer.h>

#include "box/box.hpp"
#include "box/companions.hpp"
#include "box/recording_log.hpp"
#include "box/waiting_events.hpp"
#include "process/failure.hpp"
#include "process/output.hpp"
#include "process/terminal.hpp"
#include "text/value_text.hpp"
#include "verbs/common_options.hpp"
#include "verbs/recording_report.hpp"
#include "verbs/verb.hpp"
#include "verbs/waiting_json.hpp"

namespace cli
{
namespace
{

struct info_options {
    std::string name;
    bool json = false;
    bool utc = false;
};

using nlohmann::ordered_json;

struct time_span {
    bool any = false;
    int64_t from = 0;
    int64_t to = 0;

    void add(int64_t first, int64_t last)
    {
        from = any ? std::min(from, first) : first;
        to = any ? std::max(to, last) : last;
        any = true;
    }
    void add(const time_span &other)
    {
        if (other.any) {
            add(other.from, other.to);
        }
    }
};

// By type, from 1 to 5.
using event_counts = std::array<uint64_t, last_event_type>;

void add_events(const vesk_hb_record_events &events, event_counts &counts)
{
    const event_counts more = {events.n_type1_events, events.n_type2_events, events.n_type3_events,
                               events.n_type4_events, events.n_type5_events};
    std::transform(counts.begin(), counts.end(), more.begin(), counts.begin(), std::plus<>());
}

uint64_t total_of(const event_counts &counts)
{
    return std::accumulate(counts.begin(), counts.end(), uint64_t{0});
}

// What one buffer file holds.
struct contents {
    const stored_file *file = nullptr;
    uint32_t capacity = 0;
    uint64_t samples = 0;
    uint64_t intervals = 0;
    uint64_t events = 0;      // as records
    uint64_t bare_events = 0; // without type word
    event_counts counted_events = {};
    uint64_t sensor_changes = 0;
    std::vector<std::string> sensors; // the latest
    time_span span;
    bool readable = false;
    std::vector<std::string> damage; // at most most_told_of_a_kind
    uint64_t more_damage = 0;        // that is not listed
    std::string unread;              // why the file cannot be read although it is there
    bool failed = false;             // and that the machine is the reason
};

void count_item(const vesk_scan_item &item, contents &found)
{
    if (is_damage(item)) {
        if (found.damage.size() < most_told_of_a_kind) {
            found.damage.push_back(damage_text(item));
        } else {
            ++found.more_damage;
        }
    }
    if (item.kind != VESK_SCAN_DAMAGE) {
        found.readable = true;
        found.capacity = item.capacity;
    }
    switch (item.kind) {
    case VESK_SCAN_SENSOR_NAMES:
        ++found.sensor_changes;
        found.sensors = sensor_names(*item.names);
        break;
    case VESK_SCAN_SENSOR_VALUES:
        ++found.samples;
        found.span.add(item.values->timestamp.tv.tv_sec, item.values->timestamp.tv.tv_sec);
        break;
    case VESK_SCAN_INTERVAL:
        ++found.intervals;
        add_events(item.interval->events, found.counted_events);
        found.span.add(item.interval->start.tv.tv_sec, item.interval->end.tv.tv_sec);
        break;
    case VESK_SCAN_EVENT:
        ++found.events;
        break;
    case VESK_SCAN_BARE_EVENT:
        ++found.bare_events;
        break;
    case VESK_SCAN_HEADER:
    case VESK_SCAN_DAMAGE:
        break;
    }
}

contents read_contents(const stored_file &file, recording_log &log)
{
    contents found;
    found.file = &file;
    if (file.missing) {
        found.damage.push_back(file.problem);
        return found;
    }
    try {
        scan_file(file, [&](const vesk_scan_item &item) {
            count_item(item, found);
            log.take(item);
        });
    } catch (const read_failure &reason) {
        found.unread = reason.what();
        found.failed = reason.code() == exit_failed;
    }
    return found;
}

const char *stage_name(uint32_t stage)
{
    switch (stage) {
    case VESK_ZCF_STATE_C00:
        return "c00";
    case VESK_ZCF_STATE_CC0:
        return "cc0";
    case VESK_ZCF_STATE_CCC:
        return "ccc";
    case VESK_ZCF_STATE_HCC:
        return "hcc";
    default:
        return "unknown";
    }
}

const char *stage_words(uint32_t stage)
{
    switch (stage) {
    case VESK_ZCF_STATE_C00:
        return "one current buffer, open";
    case VESK_ZCF_STATE_CC0:
        return "one full current buffer and the open one";
    case VESK_ZCF_STATE_CCC:
        return "two full current buffers and the open one";
    case VESK_ZCF_STATE_HCC:
        return "a history buffer, a full current buffer and the open one";
    default:
        return "not one that a box can be in";
    }
}

const char *role_name(const stored_file &file, bool lone)
{
    if (lone) {
        return file.is_history() ? "history" : "current";
    }
    switch (file.role) {
    case VESK_SCAN_HISTORY:
        return "history";
    case VESK_SCAN_FULL:
        return "full";
    case VESK_SCAN_OPEN:
        return "open";
    case VESK_SCAN_ORPHAN:
        break;
    }
    return "other";
}

// The whole of what was found, for both forms of output.
struct report {
    box what;
    std::vector<contents> files;
    contents all;
    time_span history;
    time_span raw;
    waiting_report waiting;
    std::vector<foreign_companion> foreign;
    recording_log log;
    uint64_t bytes = 0;
    bool damaged = false;
    bool incomplete = false; // there are files that could not be read
};

report make_report(const std::string &name)
{
    report result;
    result.what = find_box(name);
    const box &what = result.what;
    result.bytes = what.is_file ? 0 : what.state.size;
    result.waiting = report_waiting_events(what);
    if (!what.is_file) {
        result.foreign = foreign_companions(what.name);
    }
    result.damaged = (!what.is_file && what.state.error != 0) || result.waiting.is_damaged();
    for (const stored_file &file : what.files) {
        contents found = read_contents(file, result.log);
        result.bytes += file.size;
        result.all.samples += found.samples;
        result.all.intervals += found.intervals;
        result.all.events += found.events;
        result.all.bare_events += found.bare_events;
        std::transform(found.counted_events.begin(), found.counted_events.end(),
                       result.all.counted_events.begin(), result.all.counted_events.begin(),
                       std::plus<>());
        const bool empty = !file.missing && found.unread.empty() && file.size == 0;
        result.all.readable = result.all.readable || found.readable || empty;
        if (!found.sensors.empty()) {
            result.all.sensors = found.sensors;
        }
        (file.is_history() ? result.history : result.raw).add(found.span);
        result.damaged = result.damaged || !found.damage.empty();
        result.incomplete = result.incomplete || !found.unread.empty();
        result.all.failed = result.all.failed || found.failed;
        result.files.push_back(std::move(found));
    }
    result.log.take_waiting(what);
    return result;
}

std::string span_text(const time_span &span)
{
    return span.any ? format_time(span.from) + " to " + format_time(span.to) : "nothing yet";
}

template <typename... Values>
void line(const char *title, fmt::format_string<Values...> format, Values &&...values)
{
    fmt::print("{:<11}{}\n", title, fmt::format(format, std::forward<Values>(values)...));
}

void print_state(const box &what)
{
    const box_state &state = what.state;
    if (state.error != 0) {
        line("state", "{}: {}", printable(state.path), state_words(state));
        return;
    }
    line("stage", "{}: {}", stage_name(state.stage), stage_words(state.stage));
    line("capacity", "{} samples in a current buffer, summarised in {} intervals of {}",
         state.samples, state.intervals, state.samples / state.intervals);
}

void print_file(const contents &found, bool lone)
{
    const stored_file &file = *found.file;
    if (file.missing) {
        fmt::print("  {:<8} {}: {}\n", role_name(file, lone), printable(file.path), file.problem);
        return;
    }
    fmt::print("  {:<8} {:>10} bytes {:>7} of {:<7} {:<9} {}  {}\n", role_name(file, lone),
               file.size, file.is_history() ? found.intervals : found.samples, found.capacity,
               file.is_history() ? "intervals" : "samples", printable(file.path),
               span_text(found.span));
}

void print_text(const report &found)
{
    const box &what = found.what;
    line(what.is_file ? "file" : "box", "{}", printable(what.name));
    if (!what.is_file) {
        print_state(what);
    }
    line("history", "{}, {}", span_text(found.history), counted(found.all.intervals, "interval"));
    line("raw", "{}, {}", span_text(found.raw), counted(found.all.samples, "sample"));
    line("sensors", "{}", found.all.sensors.size());
    line("events", "{} among the raw samples, {} counted in history",
         found.all.events + found.all.bare_events, total_of(found.all.counted_events));
    if (found.waiting.is_there()) {
        line("waiting", "{}: {}", printable(found.waiting.path), found.waiting.text());
    }
    print_recordings(found.log, what.writer);
    line("bytes", "{}", found.bytes);
    fmt::print("files\n");
    for (const contents &file : found.files) {
        print_file(file, what.is_file);
    }
    for (const stored_file &file : what.others) {
        if (file.problem.empty()) {
            fmt::print("  {:<8} {:>10} bytes {:>28} {}\n", "other", file.size, "",
                       printable(file.path));
        } else {
            fmt::print("  {:<8} {}: {}\n", "other", printable(file.path), file.problem);
        }
    }
    for (const contents &file : found.files) {
        for (const std::string &text : file.damage) {
            line("damage", "{}: {}", printable(file.file->path), text);
        }
        if (file.more_damage > 0) {
            line("damage", "{}: and {} more places or records", printable(file.file->path),
                 file.more_damage);
        }
        if (!file.unread.empty()) {
            line("not read", "{}", printable(file.unread));
        }
    }
    for (const foreign_companion &each : found.foreign) {
        line("foreign", "{}: {}", printable(each.path), each.problem);
    }
}

ordered_json span_json(const time_span &span)
{
    if (!span.any) {
        return nullptr;
    }
    return {{"from", span.from}, {"to", span.to}};
}

ordered_json file_json(const contents &found, bool lone)
{
    const stored_file &file = *found.file;
    ordered_json result = {{"path", file.path},
                           {"role", role_name(file, lone)},
                           {"kind", file.is_history() ? "history" : "current"},
                           {"bytes", file.size},
                           {"capacity", found.capacity}};
    if (file.is_history()) {
        result["intervals"] = found.intervals;
    } else {
        result["samples"] = found.samples;
        result["events"] = found.events + found.bare_events;
    }
    result["sensor_sets"] = found.sensor_changes;
    result["span"] = span_json(found.span);
    result["damage"] = found.damage;
    result["more_damage"] = found.more_damage;
    if (!found.unread.empty()) {
        result["not_read"] = found.unread;
    }
    return result;
}

ordered_json state_json(const box_state &state)
{
    ordered_json result = {{"path", state.path}, {"error", nullptr}};
    if (state.error != 0) {
        result["error"] = state_words(state);
        return result;
    }
    result["stage"] = stage_name(state.stage);
    result["samples"] = state.samples;
    result["intervals"] = state.intervals;
    result["next_file_number"] = state.next_file_number;
    return result;
}

void print_json(const report &found)
{
    const box &what = found.what;
    ordered_json result = {{what.is_file ? "file" : "box", what.name}};
    if (!what.is_file) {
        result["state"] = state_json(what.state);
    }
    result["damaged"] = found.damaged;
    result["history"] = {{"span", span_json(found.history)},
                         {"intervals", found.all.intervals},
                         {"events", total_of(found.all.counted_events)}};
    for (uint32_t type = 1; type <= last_event_type; ++type) {
        result["history"]["events_by_type"][std::to_string(type)] =
            found.all.counted_events[type - 1];
    }
    result["raw"] = {{"span", span_json(found.raw)},
                     {"samples", found.all.samples},
                     {"events", found.all.events + found.all.bare_events}};
    if (!what.is_file) {
        result["waiting_events"] = waiting_json(found.waiting);
    }
    add_recordings(found.log, what.writer, result);
    result["bytes"] = found.bytes;
    result["files"] = ordered_json::array();
    for (const contents &file : found.files) {
        result["files"].push_back(file_json(file, what.is_file));
    }
    result["other_files"] = ordered_json::array();
    for (const stored_file &file : what.others) {
        result["other_files"].push_back({{"path", file.path}, {"bytes", file.size}});
    }
    for (const foreign_companion &each : found.foreign) {
        result["other_files"].push_back({{"path", each.path}, {"bytes", 0}});
    }
    result["sensors"] = found.all.sensors;
    // Names and paths may be any bytes, and what is not ASCII may turn a terminal: all of it is
    // escaped.
    fmt::print("{}\n", result.dump(2, ' ', true, ordered_json::error_handler_t::replace));
}

exit_code info(const info_options &options)
{
    if (options.utc) {
        use_utc();
    }
    const report found = make_report(options.name);
    if (found.what.is_file && !found.all.readable) {
        throw failure(exit_unreadable,
                      options.name + ": is no buffer file, or nothing in it can be read");
    }
    if (options.json) {
        print_json(found);
    } else {
        print_text(found);
    }
    flush_output();
    if (found.all.failed) {
        return exit_failed;
    }
    if ((found.damaged || found.incomplete) && !found.all.readable) {
        return exit_unreadable;
    }
    if (found.incomplete) {
        return exit_failed;
    }
    return found.damaged ? exit_damaged : exit_done;
}

action prepare(option_list &options)
{
    const auto chosen = std::make_shared<info_options>();
    options.required_word("BASE|FILE", chosen->name, "Name of a box, or one of its buffer files");
    options.flag("--json", chosen->json, "Print JSON, with times in seconds since the epoch");
    add_utc_output(options, chosen->utc);
    return [chosen] { return info(*chosen); };
}

constexpr const char *more = "Examples:\n"
                             "  vesk info box\n"
                             "  vesk info --json box | jq .raw.samples\n";

const registration registered({50, "info", "Tell what a box is made of", more, prepare});

} // namespace
} // namespace cli
