// Looks at the names BASE.lock, BASE.sock and BASE.state.bak, which the command uses beside the
// buffers, and reports those that are something else than expected. Only the names are looked at:
// opening a device or FIFO could have effects or wait for ever.
#include "box/companions.hpp"

#include <sys/stat.h>

#include "box/stored_bytes.hpp"

namespace cli
{
namespace
{

std::string problem_of_socket(const std::string &path)
{
    struct stat status = {};
    const bool is_there = lstat(path.c_str(), &status) == 0;
    return is_there && !S_ISSOCK(status.st_mode) ? "is no socket" : "";
}

} // namespace

std::vector<foreign_companion> foreign_companions(const std::string &base)
{
    std::vector<foreign_companion> found;
    const auto add = [&](const std::string &path, const std::string &problem) {
        if (!problem.empty()) {
            found.push_back({path, problem});
        }
    };
    add(base + ".lock", foreign_words(base + ".lock"));
    add(base + ".sock", problem_of_socket(base + ".sock"));
    add(base + ".state.bak", foreign_words(base + ".state.bak"));
    return found;
}

} // namespace cli
