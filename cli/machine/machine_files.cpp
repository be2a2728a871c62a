// Finds the files of a machine below its root, and makes measurements of the numbers in them.
#include "machine/machine_files.hpp"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <dirent.h>
#include <limits>
#include <memory>
#include <unistd.h>

#include "machine/small_file.hpp"
#include "machine/text_fields.hpp"

namespace cli
{
namespace
{

constexpr double missing = std::numeric_limits<double>::quiet_NaN();

} // namespace

void machine_files::note_failure(int error) const
{
    starved_ = starved_ || error == EMFILE || error == ENFILE || error == ENOMEM;
}

// At most @p most bytes of a file. Nothing when there is none; what cannot be read is empty.
std::optional<std::string> machine_files::read_at_most(std::string_view path,
                                                       std::size_t most) const
{
    file_text found = read_file_text(full_path(path), most);
    note_failure(found.error);
    if (found.error == ENOENT || found.error == ENOTDIR) {
        return std::nullopt;
    }
    return std::move(found.text);
}

template <typename Take>
void machine_files::for_each_entry(std::string_view path, Take take) const
{
    const std::unique_ptr<DIR, int (*)(DIR *)> folder(opendir(full_path(path).c_str()), &closedir);
    if (folder == nullptr) {
        note_failure(errno);
        return;
    }
    for (std::size_t i = 0; i < most_entries; ++i) {
        const dirent *entry = readdir(folder.get());
        if (entry == nullptr) {
            break;
        }
        take(std::string_view(entry->d_name));
    }
}

std::optional<std::string> machine_files::read(std::string_view path) const
{
    return read_at_most(path, most_bytes);
}

std::string machine_files::read_word(std::string_view path) const
{
    return std::string(first_line(read_at_most(path, small_file_bytes).value_or("")));
}

std::optional<double> machine_files::read_number(std::string_view path) const
{
    const auto text = read_at_most(path, small_file_bytes);
    if (!text) {
        return std::nullopt;
    }
    return parse_decimal(first_line(*text)).value_or(missing);
}

std::vector<std::string> machine_files::list(std::string_view path, std::string_view prefix,
                                             std::size_t most) const
{
    std::vector<std::string> names;
    for_each_entry(path, [&](std::string_view name) {
        if (name.starts_with(prefix) && name != "." && name != "..") {
            names.emplace_back(name);
        }
    });
    std::sort(names.begin(), names.end());
    names.resize(std::min(names.size(), most));
    return names;
}

std::size_t machine_files::count_numbered(std::string_view path) const
{
    std::size_t count = 0;
    for_each_entry(
        path, [&](std::string_view name) { count += name[0] >= '0' && name[0] <= '9' ? 1U : 0U; });
    return count;
}

bool machine_files::exists(std::string_view path) const
{
    return access(full_path(path).c_str(), F_OK) == 0;
}

std::string machine_files::link_target_name(std::string_view path) const
{
    char target[PATH_MAX];
    const ssize_t length = readlink(full_path(path).c_str(), target, sizeof target);
    if (length <= 0) {
        return {};
    }
    const std::string_view text(target, static_cast<std::size_t>(length));
    return std::string(text.substr(text.rfind('/') + 1));
}

std::string machine_files::of_network(std::string_view name) const
{
    const std::string of_first = "/proc/1/net/" + std::string(name);
    return !root_.empty() && exists(of_first) ? of_first : "/proc/net/" + std::string(name);
}

std::string machine_files::of_mounts() const
{
    const std::string of_first = "/proc/1/mountinfo";
    return !root_.empty() && exists(of_first) ? of_first : "/proc/self/mountinfo";
}

void machine_files::note_source(std::string_view path, std::size_t first, measurements &out) const
{
    for (std::size_t i = first; i < out.size(); ++i) {
        out[i].source = full_path(path);
    }
}

void machine_files::add_gauge(std::string name, std::string_view path, double unit,
                              measurements &out) const
{
    if (const auto value = read_number(path)) {
        out.push_back({std::move(name), gauge{*value * unit}, full_path(path)});
    }
}

void machine_files::add_counter(std::string name, std::string_view path, double unit,
                                measurements &out) const
{
    const auto text = read_at_most(path, small_file_bytes);
    if (!text) {
        return;
    }
    if (const auto count = parse_count(first_line(*text))) {
        out.push_back({std::move(name), counter{*count, unit}, full_path(path)});
    } else {
        out.push_back({std::move(name), gauge{missing}, full_path(path)});
    }
}

} // namespace cli
