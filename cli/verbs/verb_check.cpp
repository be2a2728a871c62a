// vesk check BASE: reads every file of a box and reports what is wrong and what `vesk repair` would
// do. It never changes a file. A box that is being written to is looked at again until the result
// belongs to one moment. The exit code is 0 for a healthy box, 3 for one that can be repaired and 4
// for one that cannot.
#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <fmt/format.h>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>

#include <vesk/error.h>

#include "box/box.hpp"
#include "box/box_lock.hpp"
#include "box/recovery.hpp"
#include "box/waiting_events.hpp"
#include "process/failure.hpp"
#include "process/output.hpp"
#include "process/terminal.hpp"
#include "verbs/common_options.hpp"
#include "verbs/verb.hpp"
#include "verbs/waiting_json.hpp"

namespace cli
{
namespace
{

struct check_options {
    std::string base;
    box_shape shape;
    bool json = false;
};

using nlohmann::ordered_json;

// A record, or a place without any, that is not as it should be.
struct finding {
    uint64_t offset;
    uint64_t length;
    int error;
    std::string what;
};

// The kind of a finding, which names the rest of a long list.
enum class finding_kind { damage, refused_record, bare_event };
constexpr const char *kind_words[] = {"places without a record", "records that readers refuse",
                                      "events without a type word"};

struct checked_file {
    const stored_file *file;
    uint64_t samples = 0;
    uint64_t intervals = 0;
    uint64_t events = 0;
    std::vector<finding> findings; // at most most_told_of_a_kind of each kind
    std::array<uint64_t, std::size(kind_words)> found = {};

    void add(finding_kind kind, const finding &what)
    {
        if (++found[static_cast<std::size_t>(kind)] <= most_told_of_a_kind) {
            findings.push_back(what);
        }
    }
    // How many more there are of a kind than are listed.
    uint64_t unlisted(std::size_t kind) const
    {
        return found[kind] - std::min<uint64_t>(found[kind], most_told_of_a_kind);
    }
};

struct diagnosis {
    box what;
    std::vector<checked_file> files; // the others behind those of the box
    waiting_report waiting;
    recovery_plan plan;
    bool moved = false;
    bool live = false; // somebody is writing, and the plan shows no more than that

    bool is_repairable() const { return plan.result == 0 && plan.obstacle.empty(); }
    bool is_healthy() const { return live || (is_repairable() && !is_anything_wrong()); }
    bool is_anything_wrong() const;
    bool has_findings() const;
};

// A box that was moved is healthy where it is, whatever its state file calls the files.
bool diagnosis::is_anything_wrong() const
{
    return std::any_of(plan.steps.begin(), plan.steps.end(), [&](const recovery_step &step) {
        const bool home = moved && step.action == VESK_RECOVER_WRITE_STATE && step.error == 0;
        return step.is_needed() && !home;
    });
}

bool diagnosis::has_findings() const
{
    return what.state.error != 0 || waiting.is_damaged() ||
           std::any_of(files.begin(), files.begin() + static_cast<long>(what.files.size()),
                       [](const checked_file &file) { return !file.findings.empty(); });
}

void check_item(const vesk_scan_item &item, checked_file &found)
{
    found.samples += item.kind == VESK_SCAN_SENSOR_VALUES ? 1 : 0;
    found.intervals += item.kind == VESK_SCAN_INTERVAL ? 1 : 0;
    const bool bare = item.kind == VESK_SCAN_BARE_EVENT;
    found.events += bare || item.kind == VESK_SCAN_EVENT ? 1 : 0;
    if (bare) {
        found.add(finding_kind::bare_event,
                  {item.offset, item.length, item.error,
                   fmt::format("the event at {} lacks its type word", item.offset)});
    } else if (is_damage(item)) {
        found.add(item.kind == VESK_SCAN_DAMAGE ? finding_kind::damage
                                                : finding_kind::refused_record,
                  {item.offset, item.length, item.error, damage_text(item)});
    }
}

checked_file check_file(const stored_file &file)
{
    checked_file found = {};
    found.file = &file;
    if (file.missing) {
        found.add(finding_kind::damage, {0, 0, QE_ERROR_OPEN, file.problem});
        return found;
    }
    // scan_file() throws when the machine prevents the reading: without the content there is no
    // verdict.
    scan_file(file, [&](const vesk_scan_item &item) { check_item(item, found); });
    return found;
}

diagnosis diagnose(const check_options &options)
{
    diagnosis result;
    result.what = find_box(options.base);
    if (result.what.is_file) {
        throw failure(exit_usage, options.base + ": is a file; check takes the name of a box");
    }
    result.moved = is_moved(result.what);
    for (const auto *files : {&result.what.files, &result.what.others}) {
        for (const stored_file &file : *files) {
            result.files.push_back(check_file(file));
        }
    }
    result.waiting = report_waiting_events(result.what);
    result.plan = plan_recovery(
        result.what.name, {options.shape.samples.value_or(0), options.shape.intervals.value_or(0)});
    return result;
}

// The files of a box that is being written to change while the plan is made, so the plan counts
// only if the box has not moved on meanwhile. After too many attempts the last plan is taken.
diagnosis diagnose_patiently(const check_options &options)
{
    constexpr int looks = 20;
    constexpr timespec between = {0, 25'000'000};
    for (int i = 1;; ++i) {
        diagnosis result = diagnose(options);
        const bool moved_on = has_moved_on(result.what);
        if (result.is_healthy() && !moved_on) {
            return result;
        }
        const bool written_to = result.what.writer || moved_on;
        if (!written_to || i == looks) {
            result.live = written_to && !result.has_findings();
            return result;
        }
        nanosleep(&between, nullptr);
    }
}

const char *verdict_of(const diagnosis &found)
{
    if (found.is_healthy()) {
        return "healthy";
    }
    return found.is_repairable() ? "repairable" : "not repairable";
}

// "healthy" or "repairable", with a remark if the box was moved; or why the box cannot be repaired.
std::string verdict_text(const diagnosis &found)
{
    std::string verdict = verdict_of(found);
    if (!found.is_healthy() && !found.is_repairable()) {
        return verdict + ": " + recovery_failure(found.plan);
    }
    if (found.moved) {
        return fmt::format("{}, moved: it was made as {}; a repair makes it at home here", verdict,
                           found.what.state.filename);
    }
    return verdict;
}

std::string contents_text(const checked_file &found)
{
    if (found.file->missing) {
        return found.file->problem;
    }
    const std::string records = found.file->is_history() ? counted(found.intervals, "interval")
                                                         : counted(found.samples, "sample");
    const std::string events = found.events > 0 ? ", " + counted(found.events, "event") : "";
    return fmt::format("{}{}, {}", records, events, counted(found.file->size, "byte"));
}

bool is_other(const diagnosis &found, const checked_file &file)
{
    return std::any_of(found.what.others.begin(), found.what.others.end(),
                       [&](const stored_file &other) { return &other == file.file; });
}

void print_file(const diagnosis &found, const checked_file &file)
{
    fmt::print("{}: {}{}\n", printable(file.file->path), contents_text(file),
               is_other(found, file) ? ", does not belong to the box" : "");
    if (file.file->missing) {
        return;
    }
    for (const finding &what : file.findings) {
        fmt::print("    {}\n", printable(what.what));
    }
    for (std::size_t kind = 0; kind < file.found.size(); ++kind) {
        if (file.unlisted(kind) > 0) {
            fmt::print("    and {} more {}\n", file.unlisted(kind), kind_words[kind]);
        }
    }
}

void print_step(const recovery_step &step)
{
    fmt::print("    {}\n", printable(step.path + ": " + step_text(step)));
    if (step.more > 0) {
        fmt::print("    {}: and {} more of the same kind\n", printable(step.path), step.more);
    }
}

// Prints the other foreign files; buffers and waiting events have their own lines.
void print_foreign(const diagnosis &found)
{
    for (const recovery_step &step : found.plan.steps) {
        const bool told =
            step.path == found.waiting.path ||
            std::any_of(found.files.begin(), found.files.end(),
                        [&](const checked_file &file) { return file.file->path == step.path; });
        if (step.is_foreign() && !told) {
            fmt::print("{}: {}\n", printable(step.path), step_text(step));
        }
    }
}

void print_text(const diagnosis &found)
{
    const box_state &state = found.what.state;
    fmt::print("{}: {}\n", printable(state.path), state.error == 0 ? "whole" : state_words(state));
    for (const checked_file &file : found.files) {
        print_file(found, file);
    }
    if (found.waiting.is_there()) {
        fmt::print("{}: {}\n", printable(found.waiting.path), found.waiting.text());
    }
    if (found.plan.is_empty() || found.live) {
        print_foreign(found);
    }
    if (found.what.writer) {
        fmt::print("process {} is writing to the box: its latest record may look torn\n",
                   *found.what.writer);
    }
    if (!found.live && !found.plan.is_empty() && found.is_repairable()) {
        fmt::print("what a repair does:\n");
        for (const recovery_step &step : found.plan.steps) {
            print_step(step);
        }
        fmt::print("    {}\n", report_text(found.plan.report));
    }
    fmt::print("{}\n", printable(found.what.name + ": " + verdict_text(found)));
}

ordered_json file_json(const diagnosis &found, const checked_file &file)
{
    ordered_json result = {{"path", file.file->path},          {"belongs", !is_other(found, file)},
                           {"bytes", file.file->size},         {"samples", file.samples},
                           {"intervals", file.intervals},      {"events", file.events},
                           {"findings", ordered_json::array()}};
    for (const finding &what : file.findings) {
        result["findings"].push_back({{"offset", what.offset},
                                      {"bytes", what.length},
                                      {"error", what.error},
                                      {"what", what.what}});
    }
    uint64_t unlisted = 0;
    for (std::size_t kind = 0; kind < file.found.size(); ++kind) {
        unlisted += file.unlisted(kind);
    }
    result["more_findings"] = unlisted;
    return result;
}

ordered_json repair_json(const recovery_plan &plan)
{
    const vesk_recover_report &report = plan.report;
    ordered_json result = {
        {"steps", ordered_json::array()},          {"samples_kept", report.samples_kept},
        {"intervals_kept", report.intervals_kept}, {"events_kept", report.events_kept},
        {"events_tagged", report.events_tagged},   {"records_mended", report.records_mended},
        {"samples_padded", report.samples_padded}, {"intervals_padded", report.intervals_padded},
        {"records_aside", report.records_aside},   {"bytes_aside", report.bytes_aside},
        {"files_deleted", report.files_deleted},   {"files_kept", report.files_kept}};
    for (const recovery_step &step : plan.steps) {
        result["steps"].push_back({{"action", action_name(step.action)},
                                   {"path", step.path},
                                   {"offset", step.offset},
                                   {"bytes", step.length},
                                   {"records", step.count},
                                   {"error", step.error},
                                   {"what", step_text(step)},
                                   {"more", step.more}});
    }
    return result;
}

void print_json(const diagnosis &found)
{
    const box_state &state = found.what.state;
    ordered_json result = {{"box", found.what.name}, {"verdict", verdict_of(found)}};
    result["reason"] = nullptr;
    if (!found.is_healthy() && !found.is_repairable()) {
        result["reason"] = recovery_failure(found.plan);
    }
    result["made_as"] = nullptr;
    if (found.moved) {
        result["made_as"] = found.what.state.filename;
    }
    result["writer"] = nullptr;
    if (found.what.writer) {
        result["writer"] = *found.what.writer;
    }
    result["state"] = {{"path", state.path}, {"error", nullptr}};
    if (state.error != 0) {
        result["state"]["error"] = state_words(state);
    }
    result["files"] = ordered_json::array();
    for (const checked_file &file : found.files) {
        result["files"].push_back(file_json(found, file));
    }
    result["waiting_events"] = waiting_json(found.waiting);
    result["repair"] =
        found.is_repairable() && !found.live ? repair_json(found.plan) : ordered_json(nullptr);
    // Paths may be any bytes, and what is not ASCII may turn a terminal: all of it is escaped.
    fmt::print("{}\n", result.dump(2, ' ', true, ordered_json::error_handler_t::replace));
}

// A verdict is about the box. When the machine prevented the reading there is none.
void require_verdict(const diagnosis &found)
{
    if (!found.is_healthy() && !found.is_repairable() && code_for(found.plan) == exit_failed) {
        throw failure(exit_failed, fmt::format("{}: cannot be checked: {}", found.what.name,
                                               recovery_failure(found.plan)));
    }
}

exit_code check(const check_options &options)
{
    const diagnosis found = diagnose_patiently(options);
    require_verdict(found);
    if (options.json) {
        print_json(found);
    } else {
        print_text(found);
    }
    flush_output();
    if (found.is_healthy()) {
        return exit_done;
    }
    return found.is_repairable() ? exit_damaged : exit_unreadable;
}

action prepare(option_list &options)
{
    const auto chosen = std::make_shared<check_options>();
    options.required_word("BASE", chosen->base, "Name of the box");
    add_known_shape(options, chosen->shape);
    options.flag("--json", chosen->json, "Print JSON");
    return [chosen] { return check(*chosen); };
}

constexpr const char *more =
    "Tells file by file what is wrong, and what `vesk repair` would do about it. Files are only "
    "read.\n"
    "The exit code is 0 for a healthy box, 3 for one that can be repaired, 4 for one that cannot.\n"
    "\n"
    "Examples:\n"
    "  vesk check box || vesk repair box\n"
    "  vesk check --json box | jq .repair.steps\n";

const registration registered({60, "check", "Look for damage in a box", more, prepare});

} // namespace
} // namespace cli
