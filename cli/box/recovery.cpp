// Plans the recovery of a box and puts its steps, its outcome and its failures into words. The
// library makes the plan for the buffers; the steps for waiting events and for foreign files beside
// the box are added here. Nothing is changed: the verb that asked for the plan carries it out.
#include "box/recovery.hpp"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fmt/format.h>
#include <string_view>
#include <system_error>

#include <vesk/error.h>

#include "box/box.hpp"
#include "box/companions.hpp"
#include "box/stored_bytes.hpp"
#include "box/strangers.hpp"
#include "box/waiting_file.hpp"
#include "process/failure.hpp"
#include "process/terminal.hpp"

namespace cli
{
namespace
{

// The scanner has its own meanings for some codes.
std::string damage_words(int error)
{
    switch (error) {
    case QE_ERROR_TRUNCATED:
        return "the data ends inside a record";
    case QE_ERROR_IO:
        return "cannot be decoded";
    case QE_ERROR_MALFORMED:
        return "no record, or not one that readers take";
    case QE_ERROR_LIMIT:
        return "the search for records gave up";
    default:
        return words_for(error);
    }
}

std::string state_problem(int error)
{
    switch (error) {
    case 0:
        return "does not fit the buffers";
    case QE_ERROR_OPEN:
        return "is missing";
    default:
        return words_for(error);
    }
}

// Of a file that is left alone: it is none, or a user has made it who is not trusted.
std::string foreign_text(const std::string &path)
{
    const std::string foreign = foreign_words(path);
    if (foreign.empty() && path.ends_with(".events")) {
        return "is no file of waiting events, or that of another user: not looked into, left alone";
    }
    return foreign.empty()
               ? owner_words(path) + ": not looked into, left alone; give it to the owner of the "
                                     "folder (chown) if it is to be kept"
               : foreign + ": not looked into, left alone";
}

std::string place(const recovery_step &step)
{
    return fmt::format("{} at {}", counted(step.length, "byte"), step.offset);
}

std::string padding(const recovery_step &step)
{
    const bool history = step.path.ends_with(".hbuf.z");
    return history ? counted(step.count, "interval") + " without samples"
                   : counted(step.count, "sample") + " without values";
}

void add(std::string &text, uint64_t count, const std::string &words)
{
    if (count > 0) {
        text += (text.empty() ? "" : ", ") + words;
    }
}

// The recovery writes FILE.new and FILE.torn. Only regular files can be replaced and appended to,
// so anything else under these names is an obstacle, and so is a state file that is no regular
// file.
std::string obstacle_to(const recovery_plan &plan, const std::string &base)
{
    const std::string foreign_state = foreign_words(base + ".state");
    if (plan.result == QE_ERROR_OPEN && !foreign_state.empty()) {
        return base + ".state " + foreign_state;
    }
    const std::string stranger =
        plan.result == QE_ERROR_OPEN ? stranger_words(base) : std::string();
    if (!stranger.empty()) {
        return stranger;
    }
    for (const recovery_step &step : plan.steps) {
        const bool takes_out =
            step.action == VESK_RECOVER_CUT || step.action == VESK_RECOVER_SET_ASIDE;
        for (const char *suffix : {".new", ".torn"}) {
            const std::string path = step.path + suffix;
            const std::string foreign = foreign_words(path);
            const bool written = suffix == std::string_view(".new") || takes_out;
            if (step.is_needed() && written && !foreign.empty()) {
                return fmt::format("{} {}", path, foreign);
            }
        }
    }
    return {};
}

// Keeps a step, or counts it if enough like it are kept, because a file may need more steps than
// anybody reads. The steps come file by file.
int keep_step(const vesk_recover_step *step, void *context)
{
    std::vector<recovery_step> &steps = static_cast<recovery_plan *>(context)->steps;
    recovery_step *last_alike = nullptr;
    std::size_t alike = 0;
    for (auto each = steps.rbegin(); each != steps.rend() && each->path == step->filename; ++each) {
        if (each->action == step->action) {
            last_alike = last_alike == nullptr ? &*each : last_alike;
            ++alike;
        }
    }
    if (alike == most_told_of_a_kind) {
        // The library sums up as well, when there are still more.
        last_alike->more += std::max<uint32_t>(step->count, 1);
    } else {
        steps.push_back(
            {step->action, step->filename, step->offset, step->length, step->count, step->error});
    }
    return 0;
}

void plan_change(recovery_plan &plan, const recovery_step &step)
{
    plan.steps.push_back(step);
    ++plan.report.steps;
    plan.report.bytes_aside += step.action == VESK_RECOVER_CUT ? step.length : 0;
}

void plan_to_keep(recovery_plan &plan, const std::string &path)
{
    plan.steps.push_back({VESK_RECOVER_KEEP, path, 0, 0, 0, QE_ERROR_WRONG_KIND});
    ++plan.report.files_kept;
}

// Adds steps for BASE.events, which the library does not know.
void plan_waiting_events(recovery_plan &plan, const std::string &base)
{
    const std::string path = waiting_file_of(base);
    const std::string left = path + ".new";
    if (std::error_code ignored; std::filesystem::symlink_status(left, ignored).type() ==
                                 std::filesystem::file_type::regular) {
        plan_change(plan, {VESK_RECOVER_DELETE, left, 0, 0, 0, 0});
    }
    try {
        const waiting_file found = read_waiting_file(base);
        if (!found.damage.empty()) {
            plan_change(plan, {VESK_RECOVER_CUT, path, found.damage.front().offset,
                               found.unreadable_bytes(), 0, QE_ERROR_MALFORMED});
        }
    } catch (const foreign_waiting_file &) {
        plan_to_keep(plan, path);
    }
}

void plan_companions(recovery_plan &plan, const std::string &base)
{
    for (const foreign_companion &each : foreign_companions(base)) {
        const bool known =
            std::any_of(plan.steps.begin(), plan.steps.end(),
                        [&](const recovery_step &step) { return step.path == each.path; });
        if (!known) {
            plan_to_keep(plan, each.path);
        }
    }
}

} // namespace

bool recovery_step::is_foreign() const
{
    return action == VESK_RECOVER_KEEP && error == QE_ERROR_WRONG_KIND;
}

bool recovery_plan::is_needed() const
{
    return std::any_of(steps.begin(), steps.end(),
                       [](const recovery_step &step) { return step.is_needed(); });
}

recovery_plan plan_recovery(const std::string &base, const told_sizes &sizes)
{
    recovery_plan plan;
    errno = 0;
    plan.result = vesk_recover_plan(base.c_str(), sizes.samples, sizes.intervals, keep_step, &plan,
                                    &plan.report);
    plan.system_error = plan.result != 0 ? errno : 0;
    if (plan.result == 0) {
        plan_waiting_events(plan, base);
        plan_companions(plan, base);
    }
    plan.obstacle = obstacle_to(plan, base);
    return plan;
}

const char *action_name(vesk_recover_action action)
{
    switch (action) {
    case VESK_RECOVER_CUT:
        return "cut";
    case VESK_RECOVER_SET_ASIDE:
        return "set_aside";
    case VESK_RECOVER_TAG_EVENT:
        return "tag_event";
    case VESK_RECOVER_MEND_TIME:
        return "mend_time";
    case VESK_RECOVER_MEND_TEXT:
        return "mend_text";
    case VESK_RECOVER_NAME_SENSORS:
        return "name_sensors";
    case VESK_RECOVER_ADD_HEADER:
        return "add_header";
    case VESK_RECOVER_PAD:
        return "pad";
    case VESK_RECOVER_CREATE:
        return "create";
    case VESK_RECOVER_WRITE_STATE:
        return "write_state";
    case VESK_RECOVER_DELETE:
        return "delete";
    case VESK_RECOVER_KEEP:
        return "keep";
    case VESK_RECOVER_RENAME:
        return "rename";
    }
    return "other";
}

std::string step_text(const recovery_step &step)
{
    switch (step.action) {
    case VESK_RECOVER_CUT:
        return fmt::format("{}: {}: taken out, kept in {}.torn", place(step),
                           damage_words(step.error), printable(step.path));
    case VESK_RECOVER_SET_ASIDE:
        return fmt::format("{} in {}: {}: taken out, kept in {}.torn",
                           counted(step.count, "record"), place(step), damage_words(step.error),
                           printable(step.path));
    case VESK_RECOVER_TAG_EVENT:
        return step.count == 1
                   ? fmt::format("the event at {} lacks its type word: added", step.offset)
                   : fmt::format("{} events from {} on lack their type word: added", step.count,
                                 step.offset);
    case VESK_RECOVER_MEND_TIME:
        return fmt::format("a time at {} that readers refuse: becomes the nearest valid one",
                           step.offset);
    case VESK_RECOVER_MEND_TEXT:
        return fmt::format("a name or text at {} is empty, repeated or has a zero byte: replaced",
                           step.offset);
    case VESK_RECOVER_NAME_SENSORS:
        return fmt::format(
            "what is at {} has no names: given those of a neighbour, or unknown.1, unknown.2, ...",
            step.offset);
    case VESK_RECOVER_ADD_HEADER:
        return "the header is missing or wrong: written";
    case VESK_RECOVER_PAD:
        return fmt::format("is not full: {} added", padding(step));
    case VESK_RECOVER_CREATE:
        return "is missing: made";
    case VESK_RECOVER_WRITE_STATE:
        return state_problem(step.error) + ": written anew";
    case VESK_RECOVER_DELETE:
        return "not needed any more: deleted";
    case VESK_RECOVER_KEEP:
        if (!step.is_foreign()) {
            return "does not belong to the box: left alone";
        }
        return step.path.ends_with(".sock")
                   ? "is no socket: left alone; events cannot be sent to a recording"
               : step.path.ends_with(".lock")
                   ? "is no lock file: left alone; nothing is written to the box while it is there"
                   : foreign_text(step.path);
    case VESK_RECOVER_RENAME:
        return "its number comes near the end: renamed to a low one";
    }
    return "unknown";
}

std::string report_text(const vesk_recover_report &report)
{
    std::string text = fmt::format("kept {}, {}, {}", counted(report.samples_kept, "sample"),
                                   counted(report.intervals_kept, "interval"),
                                   counted(report.events_kept, "event"));
    add(text, report.bytes_aside, counted(report.bytes_aside, "byte") + " set aside");
    add(text, report.records_mended, counted(report.records_mended, "record") + " repaired");
    add(text, report.samples_padded, counted(report.samples_padded, "empty sample") + " added");
    add(text, report.intervals_padded,
        counted(report.intervals_padded, "empty interval") + " added");
    add(text, report.events_tagged, counted(report.events_tagged, "event") + " tagged");
    add(text, report.files_deleted, counted(report.files_deleted, "old file") + " deleted");
    add(text, report.files_kept,
        counted(report.files_kept, "file") + (report.files_kept == 1 ? " that does" : " that do") +
            " not belong to the box left alone");
    if (report.source == VESK_RECOVER_FROM_BACKUP) {
        text += ", state from its backup";
    } else if (report.source == VESK_RECOVER_FROM_BUFFERS) {
        text += ", state from the buffers";
    }
    return text;
}

std::string recovery_failure(int result)
{
    switch (result) {
    case QE_ERROR_MALFORMED:
        return "nothing on the disk tells the sizes that it was made with; say them with --samples "
               "and --intervals";
    case QE_ERROR_OPEN:
        return "there is no such box, or its files cannot be opened";
    case QE_ERROR_LIMIT:
        return "the name is too long, or no recorder takes its sizes";
    default:
        return words_for(result);
    }
}

std::string recovery_failure(const recovery_plan &plan)
{
    if (plan.result == 0 || !plan.obstacle.empty()) {
        return plan.obstacle;
    }
    // The reason that the system gave tells more than that a file could not be opened or read.
    const bool had = plan.result != QE_ERROR_OPEN && plan.result != QE_ERROR_IO;
    return had || plan.system_error == 0 ? recovery_failure(plan.result)
                                         : std::generic_category().message(plan.system_error);
}

exit_code code_for(const recovery_plan &plan)
{
    if (!plan.obstacle.empty()) {
        return exit_unreadable;
    }
    const bool tried = plan.result == QE_ERROR_IO || plan.result == QE_ERROR_NO_MEMORY ||
                       (plan.result == QE_ERROR_OPEN && plan.system_error != 0 &&
                        code_for_errno(plan.system_error) == exit_failed);
    return tried ? exit_failed : exit_unreadable;
}

} // namespace cli
