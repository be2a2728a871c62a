// Dictionaries about a box: what it is made of, whether it is healthy, and which of its sensors
// were unusual. What they say is found out by the parts of the command that say it.
#include "box_facts.hpp"

#include <algorithm>
#include <optional>

#include "analysis/unusual_score.hpp"
#include "analysis/unusual_text.hpp"
#include "box/box_report.hpp"
#include "box/diagnosis.hpp"
#include "box/reading.hpp"
#include "box/tier.hpp"
#include "box/tier_health.hpp"
#include "box/unusual_sensors.hpp"
#include "python_values.hpp"
#include "sensor_columns.hpp"
#include "text/sensor_choice.hpp"

namespace py = pybind11;
using namespace py::literals;

namespace vesk_python
{
namespace
{

py::tuple with_messages(const py::object &result, const messages &told)
{
    return py::make_tuple(result, python_texts(told));
}

py::object span_of(const cli::time_span &span)
{
    return span.any ? py::object(py::make_tuple(span.from, span.to)) : py::object(py::none());
}

py::dict facts_of(const cli::file_contents &found, bool lone)
{
    const cli::stored_file &file = *found.file;
    return py::dict("path"_a = python_text(file.path), "role"_a = cli::role_name(file, lone),
                    "kind"_a = file.is_history() ? "history" : "current", "bytes"_a = file.size,
                    "capacity"_a = found.capacity, "samples"_a = found.samples,
                    "intervals"_a = found.intervals, "events"_a = found.events + found.bare_events,
                    "span"_a = span_of(found.span), "damage"_a = python_texts(found.damage),
                    "more_damage"_a = found.more_damage,
                    "not_read"_a = found.unread.empty() ? py::object(py::none())
                                                        : py::object(python_text(found.unread)));
}

py::dict state_of(const cli::box &what)
{
    const cli::box_state &state = what.state;
    py::dict facts("path"_a = python_text(state.path), "error"_a = py::none());
    if (state.error != 0) {
        facts["error"] = python_text(cli::state_words(state));
        return facts;
    }
    facts["stage"] = cli::stage_name(state.stage);
    facts["samples"] = state.samples;
    facts["intervals"] = state.intervals;
    facts["next_file_number"] = state.next_file_number;
    return facts;
}

const char *word_of(cli::recording_log::state state)
{
    switch (state) {
    case cli::recording_log::state::silent:
        return "unknown";
    case cli::recording_log::state::begun:
        return "no end";
    case cli::recording_log::state::ended:
        break;
    }
    return "ended";
}

py::dict recording_of(const cli::recording_log &log)
{
    const bool ended = log.last_state() == cli::recording_log::state::ended;
    const auto when_ended = [&](const py::object &value) {
        return ended ? value : py::object(py::none());
    };
    return py::dict("last"_a = word_of(log.last_state()), "version"_a = python_text(log.version()),
                    "interval"_a = python_or_none(log.interval()),
                    "last_time"_a = python_or_none(log.last_time()),
                    "end_time"_a = when_ended(py::int_(log.end_time())),
                    "end_reason"_a = when_ended(python_text(log.end_reason())),
                    "end_error"_a = when_ended(python_text(log.end_error())),
                    "gaps"_a = log.number_of_gaps());
}

// Of the machine that the newest samples are from, if the box tells it.
py::object machine_of(const cli::recording_log &log)
{
    if (!log.identity()) {
        return py::none();
    }
    const cli::machine_identity &who = *log.identity();
    return py::dict("host"_a = python_text(who.host), "machine_id"_a = python_text(who.machine_id),
                    "boot_id"_a = python_text(who.boot_id), "kernel"_a = python_text(who.kernel));
}

py::dict finding_of(const cli::file_finding &found)
{
    return py::dict("offset"_a = found.offset, "bytes"_a = found.length, "error"_a = found.error,
                    "what"_a = python_text(found.what));
}

py::dict checked_facts(const cli::diagnosis &found, const cli::checked_file &file)
{
    py::list findings;
    for (const cli::file_finding &each : file.findings) {
        findings.append(finding_of(each));
    }
    uint64_t unlisted = 0;
    for (std::size_t kind = 0; kind < cli::finding_kinds; ++kind) {
        unlisted += file.unlisted(static_cast<cli::finding_kind>(kind));
    }
    return py::dict("path"_a = python_text(file.file->path), "belongs"_a = !found.is_other(file),
                    "bytes"_a = file.file->size, "samples"_a = file.samples,
                    "intervals"_a = file.intervals, "events"_a = file.events,
                    "findings"_a = findings, "more_findings"_a = unlisted);
}

py::list steps_of(const cli::recovery_plan &plan)
{
    py::list steps;
    for (const cli::recovery_step &step : plan.steps) {
        steps.append(py::dict("action"_a = cli::action_name(step.action),
                              "path"_a = python_text(step.path), "offset"_a = step.offset,
                              "bytes"_a = step.length, "records"_a = step.count,
                              "error"_a = step.error, "what"_a = python_text(cli::step_text(step)),
                              "more"_a = step.more));
    }
    return steps;
}

struct suspect {
    std::string sensor;
    std::optional<double> score;
    std::string level;
    std::string sentence;
};

std::vector<suspect> find_suspects(const std::string &name,
                                   const std::vector<std::string> &patterns, int64_t last)
{
    cli::reading source(name);
    const column_list chosen = choose_columns(source.sensors(), patterns);
    const cli::time_range all;
    const uint64_t samples = source.samples();
    const cli::cell_plan plan = cli::plan_of(samples, source.usual_step(), last, chosen.size());
    cli::unusual_tracks seen(plan, chosen.size(), all);
    source.read(all, chosen, seen);
    const uint64_t newest = std::min<uint64_t>(samples, plan.newest * plan.unit);
    const cli::unusual_ranking found =
        cli::rank_sensors(seen, cli::names_of(source.sensors(), chosen), newest);
    std::vector<suspect> suspects;
    suspects.reserve(found.order.size());
    for (std::size_t rank = 0; rank < found.order.size(); ++rank) {
        const std::size_t number = found.order[rank];
        const cli::finding &one = found.findings[number];
        suspects.push_back({found.names[number],
                            one.has_score() ? std::optional(one.score) : std::nullopt,
                            std::string(cli::level_of(one)), found.sentence(rank)});
    }
    return suspects;
}

} // namespace

py::str python_text(const std::string &text)
{
    return py::str(readable_text(text));
}

py::list python_texts(const std::vector<std::string> &texts)
{
    py::list result;
    for (const std::string &text : texts) {
        result.append(python_text(text));
    }
    return result;
}

py::tuple info_of(const std::string &name)
{
    std::vector<std::string> tiers;
    const auto [found, told] = call_library([&] {
        auto result = cli::make_report(name);
        if (!result.what.is_file) {
            for (const cli::tier_kind &kind : cli::all_tiers()) {
                std::string tier = cli::tier_base(result.what.name, kind);
                if (cli::may_be_tier(tier, kind)) {
                    tiers.push_back(std::move(tier));
                }
            }
        }
        return result;
    });
    const cli::box &what = found.what;
    py::list files;
    for (const cli::file_contents &file : found.files) {
        files.append(facts_of(file, what.is_file));
    }
    py::list others;
    for (const cli::stored_file &file : what.others) {
        others.append(py::dict("path"_a = python_text(file.path), "bytes"_a = file.size));
    }
    for (const cli::foreign_companion &file : found.foreign) {
        others.append(py::dict("path"_a = python_text(file.path), "bytes"_a = 0));
    }
    py::dict facts("name"_a = python_text(what.name), "is_file"_a = what.is_file,
                   "state"_a = what.is_file ? py::object(py::none()) : py::object(state_of(what)),
                   "writer"_a = python_or_none(what.writer),
                   "damaged"_a = found.damaged || found.incomplete, "samples"_a = found.all.samples,
                   "raw_span"_a = span_of(found.raw), "intervals"_a = found.all.intervals,
                   "history_span"_a = span_of(found.history),
                   "events"_a = found.all.events + found.all.bare_events,
                   "counted_events"_a = py::cast(std::vector<uint64_t>(
                       found.all.counted_events.begin(), found.all.counted_events.end())),
                   "waiting_events"_a = found.waiting.events, "bytes"_a = found.bytes,
                   "machine"_a = machine_of(found.log), "recording"_a = recording_of(found.log),
                   "sensors"_a = python_texts(found.all.sensors), "files"_a = files,
                   "other_files"_a = others, "tiers"_a = python_texts(tiers));
    return with_messages(facts, told);
}

py::tuple check_of(const std::string &name)
{
    std::vector<cli::tier_health> checked_tiers;
    const auto [found, told] = call_library([&] {
        auto result = cli::diagnose_box(name, {});
        if (!result.has_verdict()) {
            throw cli::failure(cli::exit_failed,
                               name + ": cannot be checked: " + cli::recovery_failure(result.plan));
        }
        checked_tiers = cli::check_tiers(name);
        return result;
    });
    py::list tiers;
    for (const cli::tier_health &tier : checked_tiers) {
        tiers.append(py::dict("name"_a = python_text(tier.name),
                              "verdict"_a = tier.verdict.empty()
                                                ? py::object(py::none())
                                                : py::object(python_text(tier.verdict)),
                              "what"_a = python_text(tier.text)));
    }
    py::list files;
    for (const cli::checked_file &file : found.files) {
        files.append(checked_facts(found, file));
    }
    const bool planned = found.is_repairable() && !found.live;
    const py::dict facts(
        "name"_a = python_text(found.what.name), "verdict"_a = found.verdict(),
        "healthy"_a = found.is_healthy(), "repairable"_a = found.is_repairable(),
        "what"_a = python_text(found.verdict_text()), "moved"_a = found.moved,
        "writer"_a = python_or_none(found.what.writer), "files"_a = files, "tiers"_a = tiers,
        "repair"_a = planned ? py::object(steps_of(found.plan)) : py::object(py::none()));
    return with_messages(facts, told);
}

py::tuple suspects_of(const std::string &name, const std::vector<std::string> &patterns,
                      int64_t last)
{
    const auto [found, told] = call_library([&] { return find_suspects(name, patterns, last); });
    py::list suspects;
    for (const suspect &one : found) {
        suspects.append(py::make_tuple(python_text(one.sensor), python_or_none(one.score),
                                       one.level, python_text(one.sentence)));
    }
    return with_messages(suspects, told);
}

} // namespace vesk_python
