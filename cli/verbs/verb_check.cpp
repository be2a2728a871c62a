// vesk check BASE: reads every file of a box and reports what is wrong and what `vesk repair` would
// do. It never changes a file. A box that is being written to is looked at again until the result
// belongs to one moment. The exit code is 0 for a healthy box, 3 for one that can be repaired and 4
// for one that cannot.
#include <algorithm>
#include <cstdio>
#include <fmt/format.h>
#include <memory>
#include <nlohmann/json.hpp>

#include "box/box.hpp"
#include "box/diagnosis.hpp"
#include "box/tier_health.hpp"
#include "process/failure.hpp"
#include "process/output.hpp"
#include "process/terminal.hpp"
#include "verbs/common_options.hpp"
#include "verbs/tiers_json.hpp"
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

void print_file(const diagnosis &found, const checked_file &file)
{
    fmt::print("{}: {}{}\n", printable(file.file->path), file.contents_text(),
               found.is_other(file) ? ", does not belong to the box" : "");
    for (const std::string &line : file.lines()) {
        fmt::print("    {}\n", printable(line));
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

// A state file that can be read may still name files that are missing or something else. The names
// of a moved box lead to its old place, which the verdict tells.
std::string words_for_state(const diagnosis &found)
{
    const box_state &state = found.what.state;
    if (state.error != 0) {
        return state_words(state);
    }
    const bool fits = std::none_of(
        found.plan.steps.begin(), found.plan.steps.end(), [](const recovery_step &step) {
            return step.action == VESK_RECOVER_WRITE_STATE && step.error == 0;
        });
    return fits || found.moved ? "whole" : "whole, but not the state of these files";
}

void print_text(const diagnosis &found)
{
    const box_state &state = found.what.state;
    fmt::print("{}: {}\n", printable(state.path), words_for_state(found));
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
    fmt::print("{}\n", printable(found.what.name + ": " + found.verdict_text()));
}

ordered_json file_json(const diagnosis &found, const checked_file &file)
{
    ordered_json result = {{"path", file.file->path},          {"belongs", !found.is_other(file)},
                           {"bytes", file.file->size},         {"samples", file.samples},
                           {"intervals", file.intervals},      {"events", file.events},
                           {"findings", ordered_json::array()}};
    for (const file_finding &what : file.findings) {
        result["findings"].push_back({{"offset", what.offset},
                                      {"bytes", what.length},
                                      {"error", what.error},
                                      {"what", what.what}});
    }
    uint64_t unlisted = 0;
    for (const finding_kind kind :
         {finding_kind::damage, finding_kind::refused_record, finding_kind::bare_event}) {
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

void print_json(const diagnosis &found, const ordered_json &tiers)
{
    const box_state &state = found.what.state;
    ordered_json result = {{"box", found.what.name}, {"verdict", found.verdict()}};
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
    result["tiers"] = tiers;
    // Paths may be any bytes, and what is not ASCII may turn a terminal: all of it is escaped.
    fmt::print("{}\n", result.dump(2, ' ', true, ordered_json::error_handler_t::replace));
}

// A verdict is about the box. When the machine prevented the reading there is none.
void require_verdict(const diagnosis &found)
{
    if (!found.has_verdict()) {
        throw failure(exit_failed, fmt::format("{}: cannot be checked: {}", found.what.name,
                                               recovery_failure(found.plan)));
    }
}

// Without a verdict about one of the tiers there is none about all.
exit_code code_of(const diagnosis &found, const std::vector<tier_health> &tiers)
{
    exit_code worst = found.code();
    for (const tier_health &tier : tiers) {
        if (tier.verdict.empty()) {
            throw failure(tier.code, fmt::format("{}: {}", tier.name, tier.text));
        }
        worst = std::max(worst, tier.code);
    }
    return worst;
}

exit_code check(const check_options &options)
{
    const diagnosis found = diagnose_box(
        options.base, {options.shape.samples.value_or(0), options.shape.intervals.value_or(0)});
    require_verdict(found);
    const std::vector<tier_health> tiers = check_tiers(options.base);
    if (options.json) {
        print_json(found, tiers_json(tiers));
    } else {
        print_text(found);
        for (const tier_health &tier : tiers) {
            fmt::print("{}\n", printable(fmt::format("{}: {}", tier.name, tier.text)));
        }
    }
    flush_output();
    return code_of(found, tiers);
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
