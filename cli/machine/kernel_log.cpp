// Reads /dev/kmsg without ever waiting for it. Every part of a record is checked, because the file
// may be something else in a test or a container.
#include "machine/kernel_log.hpp"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>
#include <utility>

#include "process/failure.hpp"

namespace cli
{
namespace
{

// The kernel gives one record at a time, and an error where it is longer than the buffer: it is
// 8192 bytes at most.
constexpr std::size_t block_size = 16384;
// Lines that never end are thrown away in pieces of this size.
constexpr std::size_t longest_line = 65536;
// The records that one call reads at most: a flood of unwanted messages must not keep the recording
// from its samples.
constexpr int most_records_at_once = 500;

constexpr double seconds_in_minute = 60;

// Cuts a number and what ends it off @p text.
template <typename Number>
bool take_number(std::string_view &text, Number &number, std::string_view ends)
{
    const char *last = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), last, number);
    if (error != std::errc() || rest == last || ends.find(*rest) == std::string_view::npos) {
        return false;
    }
    text.remove_prefix(static_cast<std::size_t>(rest - text.data()) + 1);
    return true;
}

} // namespace

std::optional<kernel_message> parse_kernel_record(std::string_view line)
{
    const auto text = line.find(';');
    if (text == std::string_view::npos) {
        return std::nullopt;
    }
    std::string_view head = line.substr(0, text + 1);
    unsigned number = 0;
    uint64_t microseconds = 0;
    kernel_message message;
    if (!take_number(head, number, ",") || !take_number(head, message.sequence, ",") ||
        !take_number(head, microseconds, ",;")) {
        return std::nullopt;
    }
    message.priority = number % 8;
    message.facility = number / 8;
    message.seconds = static_cast<double>(microseconds) * 1e-6;
    message.text = line.substr(text + 1, longest_kernel_text);
    return message;
}

double wall_time_of(double stamp, const clock_reading &now, std::optional<double> drained)
{
    double age = std::max(now.monotonic - stamp, 0.0);
    if (drained) {
        age = std::min(age, std::max(now.monotonic - *drained, 0.0));
    }
    return now.wall - age;
}

kernel_log::kernel_log(const std::string &path, begin where)
    : path_(path), fd_(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC))
{
    if (fd_ < 0) {
        problem_ = with_errno(path_ + ": cannot be opened");
    } else if (where == begin::with_new) {
        (void)lseek(fd_, 0, SEEK_END);
    }
}

kernel_log::~kernel_log()
{
    if (fd_ >= 0) {
        close(fd_);
    }
}

void kernel_log::close_log(const std::string &problem)
{
    close(fd_);
    fd_ = -1;
    problem_ = problem;
}

// False when there is nothing to read now.
bool kernel_log::fill()
{
    unread_.erase(0, at_);
    at_ = 0;
    if (unread_.size() > longest_line) {
        unread_.clear();
        ++lost_;
    }
    const std::size_t before = unread_.size();
    unread_.resize(before + block_size);
    ssize_t count = 0;
    do {
        count = fd_ >= 0 ? read(fd_, unread_.data() + before, block_size) : 0;
        // Records were overwritten, and the next call gives the oldest that is left.
        overrun_ = overrun_ || (count < 0 && errno == EPIPE);
    } while (count < 0 && (errno == EINTR || errno == EPIPE));
    const int error = errno;
    unread_.resize(before + static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    if (fd_ >= 0 && count == 0) {
        close_log(path_ + ": has ended");
    } else if (count < 0 && error != EAGAIN) {
        errno = error;
        close_log(with_errno(path_ + ": cannot be read"));
    }
    return count > 0;
}

// The next whole line, without its end, or nothing.
std::string_view kernel_log::take_line()
{
    const auto end = unread_.find('\n', at_);
    if (end == std::string::npos) {
        return {};
    }
    const std::string_view line = std::string_view(unread_).substr(at_, end - at_);
    at_ = end + 1;
    return line.empty() ? std::string_view(" ") : line;
}

void kernel_log::count_lost(const kernel_message &message)
{
    if (overrun_) {
        const bool known = sequence_ && message.sequence > *sequence_ + 1;
        lost_ += known ? message.sequence - *sequence_ - 1 : 1;
        overrun_ = false;
    }
    sequence_ = message.sequence;
}

std::optional<kernel_message> kernel_log::next()
{
    drained_ = false;
    for (int i = 0; i < most_records_at_once; ++i) {
        const std::string_view line = take_line();
        if (line.empty()) {
            if (!fill()) {
                drained_ = true;
                return std::nullopt;
            }
            continue;
        }
        if (line.front() == ' ') {
            continue;
        }
        std::optional<kernel_message> message = parse_kernel_record(line);
        if (!message) {
            ++lost_;
            continue;
        }
        count_lost(*message);
        if (message->priority <= priority_warning) {
            return message;
        }
    }
    return std::nullopt;
}

uint64_t kernel_log::take_lost()
{
    return std::exchange(lost_, 0);
}

bool minute_quota::take(double monotonic)
{
    if (!begin_ || monotonic - *begin_ >= seconds_in_minute) {
        begin_ = monotonic;
        taken_ = 0;
    }
    if (taken_ == most_) {
        return false;
    }
    ++taken_;
    return true;
}

} // namespace cli
