// Checks a box before a recorder opens it. The recorder trusts the content of its files; what it
// does not expect there makes every later write fail, or ends the process.
#ifndef VESK_CLI_BOX_BOX_CHECK_HPP
#define VESK_CLI_BOX_BOX_CHECK_HPP

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_set>

namespace cli
{

struct box_content {
    std::unordered_set<std::string> sensors; // the names of all
    std::optional<int64_t> last_time;        // of the newest sample, or of the newest interval
};

// What is in the box on @p base, which the recorder can open and go on with. Throws a failure
// (damaged) otherwise. Files are only read.
box_content require_sound(const std::string &base);

} // namespace cli

#endif
