// How healthy the files of a box and of its tiers are, as a word for programs and as words for
// people. The verbs that show a box share it, so that they say the same.
#ifndef VESK_CLI_BOX_BOX_HEALTH_HPP
#define VESK_CLI_BOX_BOX_HEALTH_HPP

#include <optional>
#include <string>
#include <vector>

#include "box/diagnosis.hpp"
#include "box/reading.hpp"
#include "box/tier_health.hpp"

namespace cli
{

struct box_health {
    std::string name; // of the box or file, as it was given
    // Nothing of a lone file, or where the box could not be looked at.
    std::optional<diagnosis> found;
    // Why there is no verdict about the box; empty where there is one.
    std::string missing;
    bool is_file = false;
    // True where the machine is to blame that there is no verdict about the box or one of its
    // tiers, so that a later attempt may succeed.
    bool failed = false;
    std::vector<tier_health> tiers;

    // Whether the box and all its tiers are healthy.
    bool is_whole() const;
    // "healthy", "repairable" or "not repairable", of the box without its tiers; "unknown" where
    // there is no verdict, "not looked at" of a lone file.
    const char *word() const;
    // "healthy: 1.36 MiB in 2 files; box.1m: healthy".
    std::string words() const;
    // What could not be looked at because of the machine, where that failed.
    std::string failure_words() const;
};

// @p name is that of a box, or of a buffer file if @p is_file. The tiers are looked at unless
// @p name is that of the state file. Throws nothing about what is wrong with the files.
box_health health_of(const std::string &name, bool is_file);
// The same of what was read under this name. Files that stayed the same are not read again.
box_health health_of(const std::string &name, const reading &read);

} // namespace cli

#endif
