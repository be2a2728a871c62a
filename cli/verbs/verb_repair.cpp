// vesk repair BASE: shows the plan of a recovery and carries it out under the lock of the box. With
// --dry-run it only shows the plan and needs no lock. What is taken out of a file is kept in
// FILE.torn. A box that cannot be recovered is a failure that says why.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fmt/format.h>
#include <memory>
#include <optional>

#include <vesk/error.h>

#include "box/box.hpp"
#include "box/box_lock.hpp"
#include "box/recovery.hpp"
#include "box/tier.hpp"
#include "box/waiting_file.hpp"
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
        fmt::print("{}: {}\n", printable(step.path), printable(step_text(step)));
        if (step.more > 0) {
            fmt::print("{}: and {} more of the same kind\n", printable(step.path), step.more);
        }
    }
}

// Throws a failure unless the recovery succeeded. Its exit code tells a failing machine, where a
// later attempt may succeed, from a box that cannot be recovered.
void require_success(const std::string &base, const recovery_plan &plan)
{
    if (plan.result == 0 && plan.obstacle.empty()) {
        return;
    }
    // find_box() recognises a buffer file that was named instead of a box.
    if (plan.result == QE_ERROR_OPEN && find_box(base).is_file) {
        throw failure(exit_usage, base + ": is a file; repair takes the name of a box");
    }
    throw failure(code_for(plan),
                  fmt::format("{}: cannot be repaired: {}", base, recovery_failure(plan)));
}

// Tells whether the box was in order.
bool show_plan(const repair_options &options, const recovery_plan &plan)
{
    require_success(options.base, plan);
    show(plan);
    if (plan.is_empty()) {
        fmt::print("{}: needs no repair\n", printable(options.base));
    }
    return plan.is_empty();
}

exit_code show_only(const repair_options &options, const told_sizes &sizes)
{
    if (const std::optional<pid_t> writer = lock_holder(options.base)) {
        throw box_in_use(
            fmt::format("{}: process {} is writing to the box", options.base, *writer));
    }
    const recovery_plan plan = plan_recovery(options.base, sizes);
    if (show_plan(options, plan)) {
        flush_output();
        return exit_done;
    }
    fmt::print("{}: would be repaired: {}\n", printable(options.base), report_text(plan.report));
    flush_output();
    return exit_damaged;
}

exit_code repair_box(const repair_options &options)
{
    const told_sizes sizes = {options.shape.samples.value_or(0),
                              options.shape.intervals.value_or(0)};
    if (options.dry_run) {
        return show_only(options, sizes);
    }
    const box_lock lock(options.base);
    if (show_plan(options, plan_recovery(options.base, sizes))) {
        flush_output();
        return exit_done;
    }
    flush_output();
    // The names in the state file hold in every working directory.
    const std::string path = std::filesystem::absolute(options.base);
    recovery_plan done;
    errno = 0;
    done.result = vesk_recover(path.c_str(), sizes.samples, sizes.intervals, &done.report);
    done.system_error = done.result != 0 ? errno : 0;
    require_success(options.base, done);
    done.report.bytes_aside += mend_waiting_file(options.base);
    fmt::print("{}: repaired: {}\n", printable(options.base), report_text(done.report));
    flush_output();
    return exit_done;
}

// A tier is a box of its own; the sizes that were told are not its sizes. One that cannot be
// repaired costs itself only.
exit_code repair(const repair_options &options)
{
    if (options.base.empty()) {
        throw failure(exit_usage, "the name of the box is empty");
    }
    exit_code worst = repair_box(options);
    for (const tier_kind &kind : all_tiers()) {
        const std::string name = tier_base(options.base, kind);
        try {
            if (may_be_tier(name, kind)) {
                worst = std::max(worst, repair_box({name, {}, options.dry_run}));
            }
        } catch (const failure &reason) {
            flush_output();
            complain(reason.what());
            worst = std::max(worst, reason.code());
        }
    }
    return worst;
}

action prepare(option_list &options)
{
    const auto chosen = std::make_shared<repair_options>();
    options.required_word("BASE", chosen->base, "Name of the box");
    add_known_shape(options, chosen->shape);
    options.flag("--dry-run", chosen->dry_run, "Show what would be done and do nothing");
    return [chosen] { return repair(*chosen); };
}

constexpr const char *more =
    "Shows what is wrong, then repairs it. What is taken out of a file "
    "is kept in FILE.torn. `record`\n"
    "and `import` do the same when they start. A box that was moved or copied "
    "is made at home where it is.\n"
    "\n"
    "Examples:\n"
    "  vesk repair --dry-run box\n"
    "  vesk repair box --samples 3600 --intervals 60\n";

const registration registered({70, "repair", "Repair a damaged box", more, prepare});

} // namespace
} // namespace cli
