// Compares the files of the folder to find out whether a page is still good.
#include "serve/live_page.hpp"

#include <algorithm>
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
                     std::function<bool()> is_to_end)
    : name_(std::move(name)), patterns_(std::move(patterns)), stream_(stream),
      is_to_end_(std::move(is_to_end))
{
}

reply live_page::get()
{
    const double begin = monotonic_seconds();
    if (may_be_made(begin) && (!page_ || !problem_.empty() || has_changed())) {
        try {
            make();
            problem_.clear();
        } catch (const failure &reason) {
            problem_ = printable(reason.what());
            page_.reset();
        }
        const double end = monotonic_seconds();
        next_making_ = end + std::max(shortest_pause, share * (end - begin));
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
    // Before the box is read: what changes meanwhile is a change.
    made_of_ = files_of(name_);
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
    if (!stream_.is_followed()) {
        stream_.set_ending(content->watch);
    }
    stream_.set_health(content->health);
    content->follows = stream_.id_of(content->read_to);
    auto page = std::make_shared<std::string>();
    write_page(*content, [&](std::string_view text) { page->append(text); });
    page_ = std::move(page);
    made_.push_back(page_);
}

} // namespace cli
