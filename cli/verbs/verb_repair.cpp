// vesk repair BASE
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fmt/format.h>

#include <vesk/error.h>

#include "box/box_lock.hpp"
#include "box/recovery.hpp"
#include "process/failure.hpp"
#include "process/terminal.hpp"
#include "verbs/verbs.hpp"

namespace cli
{
namespace
{

void show(const recovery_plan &plan)
{
    for (const recovery_step &step : plan.steps) {
        fmt::print("{}: {}\n", printable(step.path), step_text(step));
    }
}

void require_success(const std::string &base, int result)
{
    if (result == 0) {
        return;
    }
    const bool tried = result == QE_ERROR_IO || result == QE_ERROR_NO_MEMORY;
    const std::string text =
        fmt::format("{}: cannot be repaired: {}", base, recovery_failure(result));
    throw failure(tried ? exit_failed : exit_unreadable,
                  tried && errno != 0 ? with_errno(text) : text);
}

} // namespace

exit_code repair(const repair_options &options)
{
    if (options.base.empty()) {
        throw failure(exit_usage, "the name of the box is empty");
    }
    const box_lock lock(options.base);
    // The names in the state file hold in every working directory.
    const std::string path = std::filesystem::absolute(options.base);
    const told_sizes sizes = {options.shape.samples.value_or(0),
                              options.shape.intervals.value_or(0)};
    errno = 0;
    const recovery_plan plan = plan_recovery(options.base, sizes);
    require_success(options.base, plan.result);
    show(plan);
    if (plan.is_empty()) {
        fmt::print("{}: needs no repair\n", printable(options.base));
        flush_output();
        return exit_done;
    }
    if (options.dry_run) {
        fmt::print("{}: would be repaired: {}\n", printable(options.base),
                   report_text(plan.report));
        flush_output();
        return exit_damaged;
    }
    flush_output();
    vesk_recover_report report = {};
    errno = 0;
    require_success(options.base,
                    vesk_recover(path.c_str(), sizes.samples, sizes.intervals, &report));
    fmt::print("{}: repaired: {}\n", printable(options.base), report_text(report));
    flush_output();
    return exit_done;
}

} // namespace cli
