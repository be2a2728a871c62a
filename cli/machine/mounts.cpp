// A line of mountinfo is
//   ID PARENT MAJOR:MINOR ROOT MOUNT_POINT OPTIONS [OPTIONAL ...] - TYPE SOURCE SUPER_OPTIONS
// where ROOT is the folder of the file system that is mounted. Blanks in paths are written "\040".
#include "machine/mounts.hpp"

#include <algorithm>
#include <climits>
#include <optional>
#include <set>

#include "machine/measurement.hpp"
#include "machine/text_fields.hpp"

namespace cli
{
namespace
{

// A line whose fields point into the table, because most lines are not worth a copy.
struct mount_line {
    uint64_t id;
    std::string_view device, root, point, type;
};

template <std::size_t size>
bool is_one_of(std::string_view word, const std::string_view (&words)[size])
{
    return std::find(std::begin(words), std::end(words), word) != std::end(words);
}

bool is_octal(std::string_view digits)
{
    return digits.size() == 3 && digits.find_first_not_of("01234567") == std::string_view::npos;
}

std::string unescaped(std::string_view text)
{
    std::string result;
    while (!text.empty()) {
        if (text[0] == '\\' && is_octal(text.substr(1, 3))) {
            const int code = (text[1] - '0') * 64 + (text[2] - '0') * 8 + (text[3] - '0');
            result += static_cast<char>(code);
            text.remove_prefix(4);
        } else {
            result += text[0];
            text.remove_prefix(1);
        }
    }
    return result;
}

// Whether the file system has a medium or a space of its own on this machine that can fill up.
bool is_worth_recording(const mount_line &line)
{
    // These are always full, or shared with other machines that may keep a lock for ever.
    static constexpr std::string_view left_out[] = {"squashfs", "iso9660", "erofs", "cramfs",
                                                    "romfs",    "gfs2",    "ocfs2"};
    // These have no number of a block device.
    static constexpr std::string_view of_many_devices[] = {"btrfs", "zfs", "bcachefs", "ubifs"};
    static constexpr std::string_view in_memory_points[] = {"/", "/tmp", "/var/tmp", "/run",
                                                            "/dev/shm"};
    if (is_one_of(line.type, left_out)) {
        return false;
    }
    if (line.type == "tmpfs") {
        return is_one_of(line.point, in_memory_points);
    }
    return !line.device.starts_with("0:") || is_one_of(line.type, of_many_devices) ||
           (line.type == "overlay" && line.point == "/");
}

// System calls take no longer paths, and device numbers are shorter, too.
bool fits(std::string_view device, std::string_view point)
{
    return point.starts_with('/') && point.size() < PATH_MAX && device.size() <= 21 &&
           device.find(':') != std::string_view::npos;
}

std::optional<mount_line> parse_line(std::string_view line)
{
    const auto id = parse_count(cut_word(line));
    cut_word(line);
    const std::string_view device = cut_word(line);
    const std::string_view root = cut_word(line);
    const std::string_view point = cut_word(line);
    const auto dash = line.find(" - ");
    if (!id || dash == std::string_view::npos || !fits(device, point)) {
        return std::nullopt;
    }
    std::string_view rest = line.substr(dash + 3);
    return mount_line{*id, device, root, point, cut_word(rest)};
}

bool is_better(const mounted &one, const mounted &other)
{
    if (one.whole != other.whole) {
        return one.whole;
    }
    return one.point.size() < other.point.size();
}

std::string plain_name(const mounted &mount)
{
    return mount.point == "/" ? "root" : name_part(std::string_view(mount.point).substr(1));
}

class mount_table
{
public:
    void add(mounted mount);
    std::vector<mounted> take() { return std::move(mounts_); }

private:
    std::vector<mounted> mounts_; // each device and each point once
};

// What was mounted at the same point before is hidden.
void mount_table::add(mounted mount)
{
    const auto hidden = std::find_if(mounts_.begin(), mounts_.end(),
                                     [&](const mounted &m) { return m.point == mount.point; });
    const auto same = std::find_if(mounts_.begin(), mounts_.end(),
                                   [&](const mounted &m) { return m.device == mount.device; });
    if (same != mounts_.end()) {
        if (is_better(mount, *same)) {
            *same = std::move(mount);
        }
    } else if (hidden != mounts_.end()) {
        *hidden = std::move(mount);
    } else if (mounts_.size() < most_file_systems) {
        mounts_.push_back(std::move(mount));
    }
}

} // namespace

std::vector<mounted> parse_mounts(std::string_view text)
{
    mount_table found;
    while (!text.empty()) {
        auto line = parse_line(cut(text, '\n'));
        if (line && is_worth_recording(*line)) {
            found.add(
                {line->id, std::string(line->device), unescaped(line->point), line->root == "/"});
        }
    }
    return found.take();
}

std::vector<std::string> names_of(const std::vector<mounted> &mounts)
{
    std::vector<std::string> names;
    std::set<std::string> taken;
    for (const mounted &mount : mounts) {
        std::string name = plain_name(mount);
        if (!taken.insert(name).second) {
            std::string device = mount.device;
            std::replace(device.begin(), device.end(), ':', '-');
            name += '+';
            name += name_part(device);
            taken.insert(name);
        }
        names.push_back(std::move(name));
    }
    return names;
}

} // namespace cli
