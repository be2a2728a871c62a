// Asks the file systems for their space through a helper process. If one does not answer in time,
// its helper is kept until it does, and a new helper asks for the others.
#include "machine/file_systems.hpp"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <limits>

#include "process/terminal.hpp"

namespace cli
{
namespace
{

constexpr double missing = std::numeric_limits<double>::quiet_NaN();

// A healthy disk answers in microseconds, a busy machine lets its processes wait for longer.
constexpr std::chrono::milliseconds time_limit(200);

// At most so many file systems may keep a process waiting. When there are as many, no other file
// system is asked.
constexpr std::size_t most_late = 4;

double percent(uint64_t part, uint64_t rest)
{
    const double whole = static_cast<double>(part) + static_cast<double>(rest);
    return whole > 0 ? 100 * static_cast<double>(part) / whole : missing;
}

uint64_t difference(uint64_t whole, uint64_t part)
{
    return whole > part ? whole - part : 0;
}

} // namespace

void measure_space(const std::string &name, const std::optional<space> &found, measurements &out)
{
    const std::string prefix = fmt::format("::fs.{}.", name);
    const auto add = [&](const char *what, double value) {
        out.push_back({prefix + what, gauge{found ? value : missing}});
    };
    const space values = found.value_or(space{});
    const uint64_t used = difference(values.total_bytes, values.free_bytes);
    const uint64_t used_inodes = difference(values.inodes, values.free_inodes);
    // Of what users may fill: the rest is kept for the administrator. As df counts it.
    add("used_percent", percent(used, values.available_bytes));
    add("used_bytes", static_cast<double>(used));
    add("available_bytes", static_cast<double>(values.available_bytes));
    // Some file systems make inodes as they are needed, and have no number of them.
    if (!found || values.inodes > 0) {
        add("used_inodes_percent", percent(used_inodes, values.free_inodes));
        add("used_inodes_count", static_cast<double>(used_inodes));
    }
    add("read_only_flag", values.read_only != 0 ? 1 : 0);
}

void file_system_source::measure(const machine_files &files, measurements &out)
{
    const std::string table = files.of_mounts();
    const auto text = files.read(table);
    const std::vector<mounted> mounts = parse_mounts(text ? *text : std::string());
    const std::vector<std::string> names = names_of(mounts);
    collect_late_answers();
    for (std::size_t i = 0; i < mounts.size(); ++i) {
        const std::string path = files.full_path(mounts[i].point);
        std::optional<space> found = ask(path);
        // Another file system that was mounted over this one hides it.
        if (found && files.root().empty() && found->mount_id != 0 &&
            found->mount_id != mounts[i].id) {
            continue;
        }
        const std::size_t first = out.size();
        measure_space(names[i], found, out);
        for (std::size_t j = first; j < out.size(); ++j) {
            out[j].source = path;
        }
    }
}

// File systems that have answered by now may be asked again.
void file_system_source::collect_late_answers()
{
    std::erase_if(late_, [&](const open_question &question) {
        if (!question.helper->wait(std::chrono::milliseconds(0))) {
            return false;
        }
        if (noted_.erase(question.path) > 0) {
            note(fmt::format("the file system at {} answers again", question.path));
        }
        return true;
    });
}

bool file_system_source::is_waited_for(const std::string &path) const
{
    return std::any_of(late_.begin(), late_.end(),
                       [&](const open_question &question) { return question.path == path; });
}

bool file_system_source::start_helper()
{
    if (helper_ == nullptr) {
        helper_ = std::make_unique<space_helper>(question_);
    }
    if (!helper_->is_there()) {
        helper_.reset();
    }
    return helper_ != nullptr;
}

std::optional<space> file_system_source::ask(const std::string &path)
{
    if (is_waited_for(path) || late_.size() >= most_late || !start_helper()) {
        return std::nullopt;
    }
    if (!helper_->ask(path)) {
        helper_.reset(); // something has ended the process; the next one is asked by a new one
        return std::nullopt;
    }
    const auto answer = helper_->wait(time_limit);
    if (!answer) {
        if (noted_.insert(path).second) {
            note(fmt::format("the file system at {} does not answer; its space is not recorded "
                             "until it does",
                             path));
        }
        late_.push_back({path, std::move(helper_)});
        return std::nullopt;
    }
    return answer->failed != 0 ? std::nullopt : answer;
}

} // namespace cli
