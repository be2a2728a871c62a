// Stores cursors as lines of text in files whose names are made of the box and the target. A new
// one is written beside the old one and takes its name when it is on the medium.
#include "push/cursor.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <string_view>
#include <sys/file.h>
#include <unistd.h>
#include <vector>
#include <zlib.h>

#include "box/event_channel.hpp"
#include "process/failure.hpp"
#include "push/percent.hpp"

namespace cli
{
namespace
{

constexpr std::size_t largest_file = 65536;
constexpr std::string_view first_line = "vesk push cursor 2\n";

// FNV-1a: names of files only, so that two boxes rarely meet; the content decides.
uint64_t hash_of(std::string_view text)
{
    uint64_t hash = 0xcbf29ce484222325U;
    for (const char c : text) {
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3U;
    }
    return hash;
}

unsigned long checksum_of(std::string_view text)
{
    return crc32(0, reinterpret_cast<const Bytef *>(text.data()), static_cast<uInt>(text.size()));
}

std::string file_name(const std::string &box, const std::string &target)
{
    return fmt::format("{:016x}{:016x}.cursor", hash_of(box), hash_of(target));
}

template <typename Number>
bool read_number(std::string_view text, Number &number)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size();
}

// The value behind "KEY " in the next line of @p rest.
std::optional<std::string_view> take_value(std::string_view &rest, std::string_view key)
{
    const std::size_t end = rest.find('\n');
    if (end == std::string_view::npos || !rest.starts_with(key) || rest.size() <= key.size() ||
        rest[key.size()] != ' ') {
        return std::nullopt;
    }
    const std::string_view value = rest.substr(key.size() + 1, end - key.size() - 1);
    rest.remove_prefix(end + 1);
    return value;
}

template <typename Number>
bool take_number(std::string_view &rest, std::string_view key, Number &number)
{
    const std::optional<std::string_view> value = take_value(rest, key);
    return value && read_number(*value, number);
}

std::string interval_text(const std::optional<known_interval> &interval)
{
    return interval ? fmt::format("{} {} {} {}", interval->file, interval->ordinal, interval->start,
                                  interval->end)
                    : "none";
}

// False for what is no interval, which "none" is not either.
bool read_interval(std::string_view text, known_interval &interval)
{
    const auto next = [&text](auto &number) {
        const std::string_view word = text.substr(0, text.find(' '));
        text.remove_prefix(std::min(text.size(), word.size() + 1));
        return read_number(word, number);
    };
    return next(interval.file) && next(interval.ordinal) && next(interval.start) &&
           next(interval.end);
}

bool take_interval(std::string_view &rest, std::string_view key,
                   std::optional<known_interval> &interval)
{
    const std::optional<std::string_view> value = take_value(rest, key);
    if (value && *value != "none") {
        return read_interval(*value, interval.emplace());
    }
    return value.has_value();
}

std::string content_of(int fd)
{
    std::string text(largest_file, '\0');
    std::size_t size = 0;
    while (size < text.size()) {
        const ssize_t count = ::read(fd, text.data() + size, text.size() - size);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            break;
        }
        size += static_cast<std::size_t>(count);
    }
    text.resize(size);
    return text;
}

void write_all(int fd, std::string_view text, const std::string &path)
{
    while (!text.empty()) {
        const ssize_t count = ::write(fd, text.data(), text.size());
        if (count < 0 && errno != EINTR) {
            throw failure(exit_failed, with_errno(path));
        }
        text.remove_prefix(count > 0 ? static_cast<std::size_t>(count) : 0);
    }
}

void make_folder(const std::string &folder)
{
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error) {
        throw failure(exit_failed, folder + ": " + error.message());
    }
}

} // namespace

std::string cursor_text(const push_cursor &cursor, const std::string &box,
                        const std::string &target)
{
    std::string text(first_line);
    text += fmt::format("box {}\ntarget {}\n", percent_encoded(box), percent_encoded(target));
    text +=
        fmt::format("file {}\nrecords {}\ntime {}\nhistory {}\nnewest {}\n"
                    "facts {}\n",
                    cursor.position.file, cursor.position.records, cursor.time, cursor.history_file,
                    interval_text(cursor.newest_interval), percent_encoded(cursor.facts));
    return text + fmt::format("crc32 {:08x}\n", checksum_of(text));
}

std::optional<push_cursor> cursor_in(const std::string &text, const std::string &box,
                                     const std::string &target)
{
    std::string_view rest = text;
    if (!rest.starts_with(first_line)) {
        return std::nullopt;
    }
    rest.remove_prefix(first_line.size());
    if (take_value(rest, "box") != percent_encoded(box) ||
        take_value(rest, "target") != percent_encoded(target)) {
        return std::nullopt;
    }
    push_cursor cursor;
    if (!take_number(rest, "file", cursor.position.file) ||
        !take_number(rest, "records", cursor.position.records) ||
        !take_number(rest, "time", cursor.time) ||
        !take_number(rest, "history", cursor.history_file) ||
        !take_interval(rest, "newest", cursor.newest_interval)) {
        return std::nullopt;
    }
    const std::optional<std::string_view> facts = take_value(rest, "facts");
    if (!facts) {
        return std::nullopt;
    }
    cursor.facts = percent_decoded(*facts);
    // The same cursor has one text only, so it need not be taken apart further.
    return cursor_text(cursor, box, target) == text ? std::optional(cursor) : std::nullopt;
}

cursor_file::cursor_file(const std::string &folder, const std::string &box,
                         const std::string &target)
    : box_(box), target_(target), path_(folder + "/" + file_name(box, target))
{
    make_folder(folder);
    const std::string lock = path_ + ".lock";
    file_descriptor file(
        open(lock.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600));
    if (!file.is_open()) {
        throw failure(exit_failed, with_errno(lock));
    }
    if (flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno == EWOULDBLOCK) {
            throw failure(exit_failed, box + ": another process is pushing it to " + target);
        }
        throw failure(exit_failed, with_errno(lock));
    }
    lock_ = file.release();
}

cursor_file::~cursor_file()
{
    (void)close(lock_);
}

std::optional<push_cursor> cursor_file::read() const
{
    const file_descriptor file(
        open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
    return file.is_open() ? cursor_in(content_of(file.get()), box_, target_) : std::nullopt;
}

void cursor_file::write(const push_cursor &cursor) const
{
    const std::string temporary = path_ + ".new";
    (void)unlink(temporary.c_str());
    const file_descriptor file(
        open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!file.is_open()) {
        throw failure(exit_failed, with_errno(temporary));
    }
    write_all(file.get(), cursor_text(cursor, box_, target_), temporary);
    if (fdatasync(file.get()) != 0 || rename(temporary.c_str(), path_.c_str()) != 0) {
        throw failure(exit_failed, with_errno(path_));
    }
}

std::string usual_cursor_folder()
{
    const auto value = [](const char *name) {
        const char *text = std::getenv(name);
        return std::string(text != nullptr ? text : "");
    };
    // A service may have several of them, separated by colons.
    const std::string of_service = value("STATE_DIRECTORY");
    if (!of_service.empty()) {
        return of_service.substr(0, of_service.find(':')) + "/push";
    }
    const std::string of_user = value("XDG_STATE_HOME");
    if (of_user.starts_with('/')) {
        return of_user + "/vesk/push";
    }
    const std::string home = value("HOME");
    if (home.empty()) {
        throw failure(exit_usage, "--state DIR is needed: there is no home folder to keep in mind "
                                  "how far a box is pushed");
    }
    return home + "/.local/state/vesk/push";
}

} // namespace cli
