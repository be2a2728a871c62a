// Compares the files of the folder to find out whether a page is still good.
#include "serve/live_page.hpp"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fmt/format.h>
#include <sys/stat.h>
#include <system_error>

#include "page/page_writer.hpp"
#include "process/clock.hpp"
#include "process/failure.hpp"
#include "process/terminal.hpp"
#include "text/sensor_choice.hpp"

namespace cli
{
namespace
{

constexpr int service_unavailable = 503;
// Between two pages; what comes in between is told by the stream. A page that takes long to make is
// made rarely: a tenth of one processor at most.
constexpr double shortest_pause = 1;
constexpr double share = 9;
// Slow clients may still read older ones, each of them up to some 20 MB.
constexpr std::size_t most_pages = 4;

// Names, sizes and times of all files whose names begin with that of the box.
std::string files_of(const std::string &name)
{
    const std::filesystem::path path(name);
    const std::string begin = path.filename().string();
    const std::filesystem::path folder = path.has_parent_path() ? path.parent_path() : ".";
    std::vector<std::string> files;
    std::error_code error;
    for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error)) {
        const std::string file = entry->path().filename().string();
        struct stat status = {};
        if (file.starts_with(begin) && lstat(entry->path().c_str(), &status) == 0) {
            files.push_back(fmt::format("{} {} {} {}.{}", file, status.st_ino, status.st_size,
                                        status.st_mtim.tv_sec, status.st_mtim.tv_nsec));
        }
    }
    std::sort(files.begin(), files.end());
    std::string all;
    for (const std::string &file : files) {
        all += file + "\n";
    }
    return all;
}

reply page_reply(const shared_text &page)
{
    reply result;
    result.type = "text/html; charset=utf-8";
    result.body = page;
    return result;
}

} // namespace

live_page::live_page(std::string name, std::vector<std::string> patterns, box_stream &stream,
                     std::function<bool()> is_to_end, double patience)
    : name_(std::move(name)), patterns_(std::move(patterns)), stream_(stream),
      is_to_end_(std::move(is_to_end)), patience_(patience)
{
}

reply live_page::get()
{
    const double now = monotonic_seconds();
    take_made();
    if (!work_ && may_be_made(now) && (!page_ || !problem_.empty() || has_changed())) {
        begin_ = now;
        // Before the box is read: what changes meanwhile is a change.
        made_of_ = files_of(name_);
        // Without watchers, all who ask want this page.
        if (!is_slow_ || !stream_.is_followed() || !make_beside()) {
            make();
        }
    }
    if (work_) {
        reply late;
        late.is_late = true;
        return late;
    }
    return page_ ? page_reply(page_)
                 : error_reply(service_unavailable, "The box cannot be shown now: " + problem_);
}

bool live_page::may_be_made(double now) const
{
    return now >= next_making_;
}

bool live_page::has_changed()
{
    return files_of(name_) != made_of_ && pages_being_sent() < most_pages;
}

std::size_t live_page::pages_being_sent()
{
    made_.erase(
        std::remove_if(made_.begin(), made_.end(), [](const auto &page) { return page.expired(); }),
        made_.end());
    return made_.size();
}

void live_page::make()
{
    take(made([this](const page_content &content) {
        if (!stream_.is_followed()) {
            stream_.set_ending(content.watch);
        }
    }));
}

// False where the system has no process for it.
bool live_page::make_beside()
{
    try {
        work_ = std::make_unique<side_work>([this] {
            // What is damaged is told on the page, and by this process when it makes one.
            listen_to_messages([](std::string_view) {});
            return made([](const page_content &) {}).packed();
        });
        return true;
    } catch (const failure &) {
        return false;
    }
}

void live_page::take_made()
{
    if (work_ && work_->is_over()) {
        const std::optional<std::string> bytes = work_->result();
        work_.reset();
        take(bytes ? made_page::unpacked(*bytes)
                   : made_page{"the process that makes the page has died", "", false, ""});
    }
}

live_page::made_page live_page::made(const std::function<void(const page_content &)> &look) const
{
    made_page result;
    try {
        reading source(name_);
        if (source.code() == exit_unreadable) {
            throw failure(exit_unreadable, "nothing of it can be read");
        }
        const auto chosen = choose_sensors(source.sensors(), patterns_);
        const auto content = collect_page(source, name_, {}, chosen, [this] {
            if (is_to_end_()) {
                throw failure(exit_done, "the server ends");
            }
        });
        look(*content);
        result.health = content->health.words();
        result.is_whole = content->health.is_whole();
        content->follows = stream_.id_of(content->read_to);
        write_page(*content, [&](std::string_view text) { result.page.append(text); });
    } catch (const failure &reason) {
        result.problem = printable(reason.what());
    }
    return result;
}

void live_page::take(made_page made)
{
    problem_ = std::move(made.problem);
    page_.reset();
    if (problem_.empty()) {
        stream_.set_health(made.health, made.is_whole);
        page_ = std::make_shared<const std::string>(std::move(made.page));
        made_.push_back(page_);
    }
    const double end = monotonic_seconds();
    is_slow_ = end - begin_ > patience_;
    next_making_ = end + std::max(shortest_pause, share * (end - begin_));
}

// A line with the sizes of what follows.
std::string live_page::made_page::packed() const
{
    return fmt::format("{} {} {:d}\n{}{}{}", problem.size(), health.size(), is_whole, problem,
                       health, page);
}

live_page::made_page live_page::made_page::unpacked(const std::string &bytes)
{
    std::size_t sizes[3] = {};
    const char *at = bytes.data();
    const char *const end = at + bytes.size();
    for (std::size_t &size : sizes) {
        const auto read = std::from_chars(at, end, size);
        // Behind each number stands one character.
        at = std::min(read.ptr + 1, end);
    }
    const auto take = [&](std::size_t size) {
        const char *const from = at;
        at += std::min(size, static_cast<std::size_t>(end - at));
        return std::string(from, at);
    };
    made_page made;
    made.problem = take(sizes[0]);
    made.health = take(sizes[1]);
    made.is_whole = sizes[2] != 0;
    made.page = take(bytes.size());
    return made;
}

} // namespace cli
