// The health of the tiers of a box as JSON, in the form that all verbs share.
#ifndef VESK_CLI_VERBS_TIERS_JSON_HPP
#define VESK_CLI_VERBS_TIERS_JSON_HPP

#include <nlohmann/json.hpp>
#include <vector>

#include "box/tier_health.hpp"

namespace cli
{

// A list with "box", "verdict" (null where the machine prevented the reading) and "text" of each.
// The texts are not escaped yet.
nlohmann::ordered_json tiers_json(const std::vector<tier_health> &tiers);

} // namespace cli

#endif
