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

#include "box/box_report.hpp"
#include "box/event_budget.hpp"
#include "box/tier.hpp"
#include "process/failure.hpp"
#include "process/output.hpp"
#include "process/terminal.hpp"
#include "text/value_text.hpp"
#include "verbs/common_options.hpp"
#include "verbs/recording_report.hpp"
#include "verbs/size_options.hpp"
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

uint64_t total_of(const event_counts &counts)
{
    return std::accumulate(counts.begin(), counts.end(), uint64_t{0});
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

void print_file(const file_contents &found, bool lone)
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

// Where a recording has told its interval. The default bound of events is counted in.
struct size_of_recording {
    whole_shape shape;
    int64_t interval;
    record_bytes largest;
};

std::optional<size_of_recording> recorded_size(const box_report &found)
{
    const box_state &state = found.what.state;
    const std::optional<int64_t> interval = found.log.interval();
    constexpr int64_t longest = int64_t{100} * 366 * 86400;
    if (found.what.is_file || state.error != 0 || state.intervals == 0 || !interval ||
        *interval < 1 || *interval > longest) {
        return std::nullopt;
    }
    return size_of_recording{
        {state.samples, state.intervals}, *interval, largest_records(found.all.sensors)};
}

ordered_json size_json(const box_report &found)
{
    const auto size = recorded_size(found);
    if (!size) {
        return nullptr;
    }
    const auto seconds = [&](const reach &what) -> ordered_json {
        const auto interval = static_cast<uint64_t>(size->interval);
        return {{"least", what.least * interval}, {"most", what.most * interval}};
    };
    return {{"raw_seconds", seconds(raw_reach(size->shape))},
            {"horizon_seconds", seconds(history_reach(size->shape))},
            {"most_bytes", most_bytes(size->shape, size->largest, default_event_bytes)}};
}

ordered_json span_json(const time_span &span)
{
    if (!span.any) {
        return nullptr;
    }
    return {{"from", span.from}, {"to", span.to}};
}

struct tier_report {
    box_report found; // of one that cannot be read only the name
    std::string problem;
    bool failed = false; // the machine did

    bool is_damaged() const { return found.damaged || found.incomplete || !problem.empty(); }
};

std::vector<tier_report> reports_of_tiers(const box &what)
{
    std::vector<tier_report> reports;
    if (what.is_file) {
        return reports;
    }
    for (const tier_kind &kind : all_tiers()) {
        tier_report one;
        one.found.what.name = tier_base(what.name, kind);
        try {
            if (!may_be_tier(one.found.what.name, kind)) {
                continue;
            }
            one.found = make_report(one.found.what.name);
            one.failed = one.found.all.failed || one.found.incomplete;
        } catch (const failure &reason) {
            one.problem = reason.what();
            one.failed = reason.code() == exit_failed;
        }
        reports.push_back(std::move(one));
    }
    return reports;
}

time_span whole_span(const box_report &tier)
{
    time_span whole = tier.history;
    whole.add(tier.raw);
    return whole;
}

std::string rows_text(const box_report &tier)
{
    return fmt::format("{} and {}", counted(tier.all.samples, "row"),
                       counted(tier.all.intervals, "interval"));
}

void print_tier(const tier_report &tier)
{
    const box_report &found = tier.found;
    if (!tier.problem.empty()) {
        line("tier", "{}: cannot be read: {}", printable(found.what.name), printable(tier.problem));
        return;
    }
    line("tier", "{}: {}, {}, {} bytes{}", printable(found.what.name), span_text(whole_span(found)),
         rows_text(found), found.bytes, tier.is_damaged() ? ", damaged" : "");
}

ordered_json tiers_json(const std::vector<tier_report> &reports)
{
    ordered_json tiers = ordered_json::array();
    for (const tier_report &tier : reports) {
        const box_report &found = tier.found;
        tiers.push_back({{"box", found.what.name},
                         {"span", span_json(whole_span(found))},
                         {"rows", found.all.samples},
                         {"intervals", found.all.intervals},
                         {"bytes", found.bytes},
                         {"damaged", tier.is_damaged()}});
    }
    return tiers;
}

void print_text(const box_report &found, const std::vector<tier_report> &tiers)
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
    if (const auto size = recorded_size(found)) {
        line("reach", "{}",
             size_words({size->shape, size->interval, size->largest, default_event_bytes}));
    }
    line("bytes", "{}", found.bytes);
    for (const tier_report &tier : tiers) {
        print_tier(tier);
    }
    fmt::print("files\n");
    for (const file_contents &file : found.files) {
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
    for (const file_contents &file : found.files) {
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

ordered_json file_json(const file_contents &found, bool lone)
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

void print_json(const box_report &found, const std::vector<tier_report> &tiers)
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
    result["reach"] = size_json(found);
    result["bytes"] = found.bytes;
    result["tiers"] = tiers_json(tiers);
    result["files"] = ordered_json::array();
    for (const file_contents &file : found.files) {
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
    const box_report found = make_report(options.name);
    if (found.what.is_file && !found.all.readable) {
        throw failure(exit_unreadable,
                      options.name + ": is no buffer file, or nothing in it can be read");
    }
    const std::vector<tier_report> tiers = reports_of_tiers(found.what);
    if (options.json) {
        print_json(found, tiers);
    } else {
        print_text(found, tiers);
    }
    flush_output();
    if (found.all.failed || std::any_of(tiers.begin(), tiers.end(),
                                        [](const tier_report &tier) { return tier.failed; })) {
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

const registration registered({51, "info", "Tell what a box is made of", more, prepare});

} // namespace
} // namespace cli
