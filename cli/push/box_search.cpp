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

namespace fs = std::filesystem;

// Walks through folders. One that cannot be listed is kept with the reason, because boxes may lie
// in it; one that is gone meanwhile holds none.
class walk
{
public:
    explicit walk(const std::string &folder)
    {
        std::error_code error;
        const fs::directory_iterator first(folder, error);
        if (error) {
            throw failure(exit_failed, folder + ": " + error.message());
        }
        look_through(folder, first, 0);
    }

    const std::set<std::string> &bases() const { return bases_; }
    const std::vector<std::string> &unlisted() const { return unlisted_; }

private:
    void look_through(const fs::path &folder, fs::directory_iterator entry, int depth)
    {
        std::error_code error;
        for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
            std::error_code ignored;
            const fs::file_type type = entry->symlink_status(ignored).type();
            if (type == fs::file_type::regular) {
                take(entry->path().string());
            } else if (type == fs::file_type::directory && depth < deepest) {
                go_into(entry->path(), depth + 1);
            }
        }
        keep(folder, error);
    }

    void go_into(const fs::path &folder, int depth)
    {
        std::error_code error;
        const fs::directory_iterator first(folder, error);
        keep(folder, error);
        if (!error) {
            look_through(folder, first, depth);
        }
    }

    void take(const std::string &path)
    {
        const std::string base = base_of(path);
        if (!base.empty() && !base.ends_with('/') && bases_.size() < most_boxes) {
            bases_.insert(base);
        }
    }

    void keep(const fs::path &folder, const std::error_code &error)
    {
        if (error && error != std::errc::no_such_file_or_directory) {
            unlisted_.push_back(folder.string() + ": " + error.message());
        }
    }

    std::set<std::string> bases_;
    std::vector<std::string> unlisted_;
};

} // namespace

box_search find_boxes(const std::string &folder)
{
    const walk walked(folder);
    box_search found;
    found.unlisted = walked.unlisted();
    for (const std::string &base : walked.bases()) {
        if (!is_tier_of_another(base, walked.bases())) {
            const std::size_t skipped = folder.size() + (folder.ends_with('/') ? 0 : 1);
            found.boxes.push_back({base, base.substr(std::min(skipped, base.size()))});
        }
    }
    return found;
}

} // namespace cli
