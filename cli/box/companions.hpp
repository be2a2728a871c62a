// Finds foreign files under the names that the command uses beside the buffers of a box: BASE.lock,
// BASE.sock and the copy of the state file.
#ifndef VESK_CLI_BOX_COMPANIONS_HPP
#define VESK_CLI_BOX_COMPANIONS_HPP

#include <string>
#include <vector>

namespace cli
{

struct foreign_companion {
    std::string path;
    std::string problem; // "is a link, not a file"
};

// Only looks at the names: nothing is opened.
std::vector<foreign_companion> foreign_companions(const std::string &base);

} // namespace cli

#endif
