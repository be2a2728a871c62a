// What `check` finds in the tiers of a box. The verbs that tell of the health of a box share it.
#ifndef VESK_CLI_BOX_TIER_HEALTH_HPP
#define VESK_CLI_BOX_TIER_HEALTH_HPP

#include <string>
#include <vector>

#include "box/reading.hpp"
#include "process/exit_codes.hpp"

namespace cli
{

struct tier_health {
    std::string name;    // "BASE.1m"
    std::string verdict; // as that of a box; empty where the machine prevented the reading
    std::string text;    // the same for people, with the reason
    exit_code code;      // what `check` of this tier ends with
};

// Of each tier that the box on @p base has. A tier that cannot be read is one of them; what is
// wrong with it throws nothing. What @p read has found in the files of a tier is not looked for
// again.
std::vector<tier_health> check_tiers(const std::string &base, const reading *read = nullptr);

} // namespace cli

#endif
