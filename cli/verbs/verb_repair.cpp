// vesk repair BASE
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fmt/format.h>
#include <memory>

#include <vesk/error.h>

#include "box/box_lock.hpp"
#include "box/recovery.hpp"
#include "process/failure.hpp"
#include "process/output.hpp"
#include "process/terminal.hpp"
#include "verbs/common_options.hpp"
#include "verbs/verb.hpp"

namespace cli
{
namespace
{

struct repair_options {
    std::string base;
    box_shape shape;
    bool dry_run = false;
};

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

action prepare(option_list &options)
{
    const auto chosen = std::make_shared<repair_options>();
    options.required_word("BASE", chosen->base, "Name of the box");
    add_known_shape(options, chosen->shape);
    options.flag("--dry-run", chosen->dry_run, "Show what would be done and do nothing");
    return [chosen] { return repair(*chosen); };
}

constexpr const char *more = "Shows what is wrong, then mends it. What is taken out of a file is "
                             "kept in FILE.torn. `record` and\n"
                             "`import` do the same when they start. A box that was moved or copied "
                             "is made at home where it is.\n"
                             "\n"
                             "Examples:\n"
                             "  vesk repair --dry-run box\n"
                             "  vesk repair box --samples 3600 --intervals 60\n";

const registration registered({70, "repair", "Bring a damaged box back", more, prepare});

} // namespace
} // namespace cli
