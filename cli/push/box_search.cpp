// Walks through a folder and takes the base names of state files and buffers.
#include "push/box_search.hpp"

#include <algorithm>
#include <filesystem>
#include <fmt/format.h>
#include <set>
#include <string_view>

#include "box/tier.hpp"
#include "process/failure.hpp"

namespace cli
{
namespace
{

constexpr int deepest = 16;
constexpr std::size_t most_boxes = 1'000'000;

// "dir/box" for "dir/box.state" and "dir/box.12.cbuf.z"; empty for the names of other files.
std::string base_of(const std::string &path)
{
    constexpr std::string_view state = ".state";
    if (path.ends_with(state)) {
        return path.substr(0, path.size() - state.size());
    }
    for (const std::string_view kind : {".cbuf.z", ".hbuf.z"}) {
        if (!path.ends_with(kind)) {
            continue;
        }
        const std::string_view rest = std::string_view(path).substr(0, path.size() - kind.size());
        const std::size_t dot = rest.find_last_not_of("0123456789");
        if (dot != std::string_view::npos && rest[dot] == '.' && dot + 1 < rest.size()) {
            return std::string(rest.substr(0, dot));
        }
    }
    return {};
}

// A tier by its name and beside its box; whether it holds rows of a tier, its files would tell.
bool is_tier_of_another(const std::string &base, const std::set<std::string> &all)
{
    return std::any_of(all_tiers().begin(), all_tiers().end(), [&](const tier_kind &kind) {
        const std::string ending = fmt::format(".{}", kind.name);
        return base.ends_with(ending) && all.contains(base.substr(0, base.size() - ending.size()));
    });
}

} // namespace

std::vector<found_box> find_boxes(const std::string &folder)
{
    namespace fs = std::filesystem;
    std::error_code error;
    std::set<std::string> bases;
    fs::recursive_directory_iterator entry(folder, fs::directory_options::skip_permission_denied,
                                           error);
    for (; !error && entry != fs::recursive_directory_iterator(); entry.increment(error)) {
        if (entry.depth() >= deepest) {
            entry.disable_recursion_pending();
        }
        const std::string base = base_of(entry->path().string());
        std::error_code ignored;
        if (!base.empty() && !base.ends_with('/') && bases.size() < most_boxes &&
            entry->symlink_status(ignored).type() == fs::file_type::regular) {
            bases.insert(base);
        }
    }
    if (error) {
        throw failure(exit_failed, folder + ": " + error.message());
    }
    std::vector<found_box> found;
    for (const std::string &base : bases) {
        if (!is_tier_of_another(base, bases)) {
            const std::size_t skipped = folder.size() + (folder.ends_with('/') ? 0 : 1);
            found.push_back({base, base.substr(std::min(skipped, base.size()))});
        }
    }
    return found;
}

} // namespace cli
