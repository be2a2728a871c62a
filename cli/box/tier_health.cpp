// A tier is a box of its own and is checked like one. Its failures become a verdict, so that they
// hide neither the box nor its other tiers.
#include "box/tier_health.hpp"

#include <fmt/format.h>

#include "box/diagnosis.hpp"
#include "box/tier.hpp"
#include "process/failure.hpp"

namespace cli
{
namespace
{

tier_health without_verdict(const std::string &name, const std::string &reason)
{
    return {name, "", "cannot be checked: " + reason, exit_failed};
}

tier_health check_tier(const std::string &name, const kept_checks &known)
{
    try {
        const diagnosis found = diagnose_box(name, {}, known);
        return found.has_verdict()
                   ? tier_health{name, found.verdict(), found.verdict_text(), found.code()}
                   : without_verdict(name, recovery_failure(found.plan));
    } catch (const failure &reason) {
        if (reason.code() == exit_failed) {
            return without_verdict(name, reason.what());
        }
        const std::string verdict = "not repairable";
        return {name, verdict, fmt::format("{}: {}", verdict, reason.what()), exit_unreadable};
    }
}

} // namespace

std::vector<tier_health> check_tiers(const std::string &base, const reading *read)
{
    std::vector<tier_health> all;
    for (const tier_kind &kind : all_tiers()) {
        const std::string name = tier_base(base, kind);
        try {
            if (may_be_tier(name, kind)) {
                all.push_back(
                    check_tier(name, read != nullptr ? read->checks_of_tier(name) : kept_checks()));
            }
        } catch (const failure &reason) {
            all.push_back(without_verdict(name, reason.what()));
        }
    }
    return all;
}

} // namespace cli
