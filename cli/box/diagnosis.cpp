// Scans the files of a box and plans its recovery. The files of a box that is being written to are
// looked at up to twenty times, because a record that is on its way into a file looks torn.
#include "box/diagnosis.hpp"

#include <algorithm>
#include <ctime>
#include <fmt/format.h>
#include <optional>

#include "process/failure.hpp"

namespace cli
{
namespace
{

// A file beside the box. Nothing where it is gone by now: a recorder deletes such files at the end
// of a rotation.
std::optional<checked_file> check_other(const stored_file &listed)
{
    const std::optional<stored_file> file = open_if_there(listed.path);
    if (!file) {
        return std::nullopt;
    }
    checked_file found = check_file(*file);
    found.file = &listed;
    return found;
}

diagnosis diagnose(const std::string &base, const told_sizes &sizes, const kept_checks &known)
{
    diagnosis result;
    result.what = find_box(base);
    if (result.what.is_file) {
        throw failure(exit_usage, base + ": is a file; check takes the name of a box");
    }
    result.moved = is_moved(result.what);
    for (const stored_file &file : result.what.files) {
        std::optional<checked_file> before = known.check_of(file);
        result.files.push_back(before ? std::move(*before) : check_file(file));
    }
    for (const stored_file &file : result.what.others) {
        if (std::optional<checked_file> found = check_other(file)) {
            result.files.push_back(std::move(*found));
        }
    }
    result.waiting = report_waiting_events(result.what);
    result.plan = plan_recovery(result.what.name, sizes);
    return result;
}

} // namespace

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

bool diagnosis::is_other(const checked_file &file) const
{
    // They stand behind those of the box.
    return &file - files.data() >= static_cast<std::ptrdiff_t>(what.files.size());
}

bool diagnosis::has_verdict() const
{
    return is_healthy() || is_repairable() || code_for(plan) != exit_failed;
}

exit_code diagnosis::code() const
{
    if (is_healthy()) {
        return exit_done;
    }
    return is_repairable() ? exit_damaged : has_verdict() ? exit_unreadable : exit_failed;
}

const char *diagnosis::verdict() const
{
    if (is_healthy()) {
        return "healthy";
    }
    return is_repairable() ? "repairable" : "not repairable";
}

std::string diagnosis::verdict_text() const
{
    if (!is_healthy() && !is_repairable()) {
        return fmt::format("{}: {}", verdict(), recovery_failure(plan));
    }
    if (moved) {
        return fmt::format("{}, moved: it was made as {}; a repair makes it at home here",
                           verdict(), what.state.filename);
    }
    return verdict();
}

// The files of a box that is being written to change while the plan is made, so the plan counts
// only if the box has not moved on meanwhile. After too many attempts the last plan is taken.
diagnosis diagnose_box(const std::string &base, const told_sizes &sizes, const kept_checks &known)
{
    constexpr int looks = 20;
    constexpr timespec between = {0, 25'000'000};
    for (int i = 1;; ++i) {
        diagnosis result = diagnose(base, sizes, known);
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

} // namespace cli
