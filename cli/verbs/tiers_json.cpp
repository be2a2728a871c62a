// A tier is a box of its own, whose files `vesk check BASE.1m` lists: its verdict is enough here.
#include "verbs/tiers_json.hpp"

namespace cli
{

nlohmann::ordered_json tiers_json(const std::vector<tier_health> &tiers)
{
    nlohmann::ordered_json result = nlohmann::ordered_json::array();
    for (const tier_health &tier : tiers) {
        result.push_back({{"box", tier.name}, {"verdict", nullptr}, {"text", tier.text}});
        if (!tier.verdict.empty()) {
            result.back()["verdict"] = tier.verdict;
        }
    }
    return result;
}

} // namespace cli
