// Finds the boxes below a folder.
#ifndef VESK_CLI_PUSH_BOX_SEARCH_HPP
#define VESK_CLI_PUSH_BOX_SEARCH_HPP

#include <string>
#include <vector>

namespace cli
{

struct found_box {
    std::string base; // its base name, with the folder
    std::string name; // the same from the folder on
};

// In the order of their names. Tiers belong to their boxes and are left out; links are not
// followed. Throws a failure when the folder cannot be listed.
std::vector<found_box> find_boxes(const std::string &folder);

} // namespace cli

#endif
