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

struct box_search {
    std::vector<found_box> boxes; // in the order of their names
    // Folders below that cannot be listed, and why: whether there are boxes in them is not known.
    std::vector<std::string> unlisted;
};

// Tiers belong to their boxes and are left out; links are not followed. Throws a failure when the
// folder itself cannot be listed.
box_search find_boxes(const std::string &folder);

} // namespace cli

#endif
