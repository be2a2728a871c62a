// Looking at a box before the recorder does: the recorder takes the content of its files for
// granted, and what it does not expect there stops it for good or ends the process.
#ifndef VESK_CLI_BOX_BOX_CHECK_HPP
#define VESK_CLI_BOX_BOX_CHECK_HPP

#include <string>
#include <unordered_set>

namespace cli
{

// The names of all sensors in the box on @p base, which the recorder can open and go on with.
// Throws a failure (damaged) otherwise. Files are only read.
std::unordered_set<std::string> require_sound(const std::string &base);

} // namespace cli

#endif
