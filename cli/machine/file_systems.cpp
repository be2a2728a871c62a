// Asks the file systems for their space through a helper process, all of them at once. If one of
// them does not answer in time, they are asked one by one for a while: the helper of one that does
// not answer is kept until it does, and a new helper asks the others.
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

// After a question to all that was not answered, so many times each is asked alone.
constexpr unsigned careful_times = 60;
static_assert(most_file_systems <= space_helper::most_paths);

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

void file_system_source::ask(const machine_files &files)
{
    const auto text = files.read(files.of_mounts());
    mounts_ = parse_mounts(text ? *text : std::string());
    paths_.clear();
    for (const mounted &mount : mounts_) {
        paths_.push_back(files.full_path(mount.point));
    }
    collect_late_answers();
    ask_at_once();
    is_asked_ = true;
}

void file_system_source::measure(const machine_files &files, measurements &out)
{
    if (!is_asked_) {
        ask(files);
    }
    is_asked_ = false;
    const std::vector<std::string> names = names_of(mounts_);
    const std::vector<std::optional<space>> found = answers();
    for (std::size_t i = 0; i < mounts_.size(); ++i) {
        // Another file system that was mounted over this one hides it.
        if (found[i] && files.root().empty() && found[i]->mount_id != 0 &&
            found[i]->mount_id != mounts_[i].id) {
            continue;
        }
        const std::size_t first = out.size();
        measure_space(names[i], found[i], out);
        for (std::size_t j = first; j < out.size(); ++j) {
            out[j].source = paths_[i];
        }
    }
}

// File systems that have answered by now may be asked again.
void file_system_source::collect_late_answers()
{
    if (held_ && held_->wait(std::chrono::milliseconds(0))) {
        held_.reset();
    }
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

// Where that does not work, nobody knows for which of them.
void file_system_source::ask_at_once()
{
    if (careful_ > 0) {
        --careful_;
    } else if (!paths_.empty() && !held_ && late_.empty() && start_helper() &&
               !helper_->ask(paths_)) {
        careful_ = careful_times;
        helper_.reset();
    }
}

std::vector<std::optional<space>> file_system_source::answers()
{
    std::vector<std::optional<space>> found(paths_.size());
    if (!answers_at_once(found)) {
        for (std::size_t i = 0; i < paths_.size(); ++i) {
            found[i] = ask_alone(paths_[i]);
        }
    }
    return found;
}

bool file_system_source::answers_at_once(std::vector<std::optional<space>> &found)
{
    if (!helper_ || !helper_->waits()) {
        return false;
    }
    const auto answers = helper_->wait(time_limit);
    if (!answers || answers->size() != found.size()) {
        careful_ = careful_times;
        if (helper_->waits()) {
            held_ = std::move(helper_);
        }
        helper_.reset();
        return false;
    }
    for (std::size_t i = 0; i < found.size(); ++i) {
        if ((*answers)[i].failed == 0) {
            found[i] = (*answers)[i];
        }
    }
    return true;
}

std::optional<space> file_system_source::ask_alone(const std::string &path)
{
    if (is_waited_for(path) || late_.size() >= most_late || !start_helper()) {
        return std::nullopt;
    }
    if (!helper_->ask({path})) {
        helper_.reset(); // something has ended the process; the next one is asked by a new one
        return std::nullopt;
    }
    const auto answers = helper_->wait(time_limit);
    if (!answers) {
        if (noted_.insert(path).second) {
            note(fmt::format("the file system at {} does not answer; its space is not recorded "
                             "until it does",
                             path));
        }
        late_.push_back({path, std::move(helper_)});
        return std::nullopt;
    }
    const bool is_told = !answers->empty() && answers->front().failed == 0;
    return is_told ? std::optional(answers->front()) : std::nullopt;
}

} // namespace cli
