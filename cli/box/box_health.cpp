// Asks for the diagnosis of a box and of its tiers. What prevents one becomes a part of the result,
// so that the verbs can show what there is besides.
#include "box/box_health.hpp"

#include <algorithm>
#include <fmt/format.h>

#include "process/failure.hpp"
#include "process/terminal.hpp"
#include "text/units.hpp"

namespace cli
{
namespace
{

std::string size_words(const box &what)
{
    uint64_t bytes = what.state.size;
    for (const stored_file &file : what.files) {
        bytes += file.size;
    }
    return fmt::format("{} in {}", with_unit(static_cast<double>(bytes), "_bytes", 3),
                       counted(what.files.size() + 1, "file"));
}

void look_at_box(box_health &health, const kept_checks &known)
{
    try {
        health.found.emplace(diagnose_box(health.name, {}, known));
        if (!health.found->has_verdict()) {
            health.missing = "cannot be checked: " + recovery_failure(health.found->plan);
            health.failed = true;
        }
    } catch (const failure &reason) {
        health.missing = std::string("cannot be checked: ") + reason.what();
        health.failed = reason.code() == exit_failed;
    }
}

box_health look_at(const std::string &name, bool is_file, const reading *read)
{
    box_health health;
    health.name = name;
    health.is_file = is_file;
    if (is_file) {
        health.missing = "one file of a box, which was not checked as a whole";
        return health;
    }
    look_at_box(health, read != nullptr ? read->checks() : kept_checks());
    // The state file of a box names it without its tiers.
    if (!health.found || health.found->what.name == name) {
        health.tiers = check_tiers(name, read);
    }
    health.failed =
        health.failed || std::any_of(health.tiers.begin(), health.tiers.end(),
                                     [](const tier_health &tier) { return tier.verdict.empty(); });
    return health;
}

} // namespace

bool box_health::is_whole() const
{
    return missing.empty() && found->is_healthy() &&
           std::all_of(tiers.begin(), tiers.end(),
                       [](const tier_health &tier) { return tier.code == exit_done; });
}

const char *box_health::word() const
{
    return missing.empty() ? found->verdict() : is_file ? "not looked at" : "unknown";
}

std::string box_health::words() const
{
    std::string all = missing.empty() ? found->verdict_text() : missing;
    if (found) {
        all += ": " + size_words(found->what);
    }
    for (const tier_health &tier : tiers) {
        all += fmt::format("; {}: {}", tier.name, tier.text);
    }
    return all;
}

std::string box_health::failure_words() const
{
    if (!missing.empty()) {
        return fmt::format("{}: {}", name, missing);
    }
    const auto tier = std::find_if(tiers.begin(), tiers.end(),
                                   [](const tier_health &one) { return one.verdict.empty(); });
    return tier != tiers.end() ? fmt::format("{}: {}", tier->name, tier->text) : std::string();
}

box_health health_of(const std::string &name, bool is_file)
{
    return look_at(name, is_file, nullptr);
}

box_health health_of(const std::string &name, const reading &read)
{
    return look_at(name, read.source().is_file, &read);
}

} // namespace cli
