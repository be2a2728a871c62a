// Reads a file or standard input, plain or gzip, and returns bytes as soon as they arrive. The form
// is recognised by the first two bytes. zlib unpacks from a buffer here instead of by its file
// functions, since these would wait until their buffer is full and delay the lines of a pipe.
#include "text/text_input.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vesk/error.h>

#include "process/failure.hpp"

namespace cli
{
namespace
{

constexpr std::size_t raw_size = 64 * 1024;
// Seconds; a request to end cuts it short.
constexpr double longest_wait = 3600;
// zlib: the largest window, and a gzip wrapper around it.
constexpr int gzip_window = 15 + 16;
constexpr unsigned char gzip_magic[] = {0x1f, 0x8b};

int open_input(const std::string &path)
{
    return path == "-" ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0)
                       : open(path.c_str(), O_RDONLY | O_CLOEXEC);
}

} // namespace

text_input::text_input(const std::string &path, const stop_request *stop)
    : name_(path == "-" ? "<stdin>" : path), stop_(stop), raw_(raw_size)
{
    fd_ = open_input(path);
    if (fd_ < 0) {
        throw failure(exit_failed, with_errno(name_));
    }
    struct stat status = {};
    if (fstat(fd_, &status) == 0) {
        if (S_ISDIR(status.st_mode)) {
            close(fd_);
            throw failure(exit_failed, name_ + ": is a directory");
        }
        size_ = S_ISREG(status.st_mode) ? status.st_size : -1;
    }
}

text_input::~text_input()
{
    if (stream_is_open_) {
        inflateEnd(&stream_);
    }
    close(fd_);
}

// Reads the bytes that have arrived, and waits if there are none. A signal interrupts the wait, but
// only a request to stop ends it.
ssize_t text_input::wait_and_read()
{
    for (;;) {
        if (stop_ != nullptr && stop_->wait(longest_wait, {fd_})) {
            errno = EINTR;
            return -1;
        }
        const ssize_t count = ::read(fd_, raw_.data() + end_, raw_.size() - end_);
        if (count >= 0 || errno != EINTR) {
            return count;
        }
    }
}

// False at the end of the data and where it cannot be read on.
bool text_input::more(std::string &problem)
{
    if (at_end_) {
        return false;
    }
    if (begin_ > 0) {
        std::copy(raw_.begin() + static_cast<std::ptrdiff_t>(begin_),
                  raw_.begin() + static_cast<std::ptrdiff_t>(end_), raw_.begin());
        end_ -= begin_;
        begin_ = 0;
    }
    const ssize_t count = wait_and_read();
    if (count < 0) {
        problem = with_errno("cannot be read on");
        return false;
    }
    at_end_ = count == 0;
    end_ += static_cast<std::size_t>(count);
    taken_ += count;
    return count > 0;
}

// True when the two bytes that begin gzip data are next. Plain text differs with its first byte.
bool text_input::begins_member(std::string &problem)
{
    while (end_ == begin_ || (end_ - begin_ == 1 && raw_[begin_] == gzip_magic[0])) {
        if (!more(problem)) {
            return false;
        }
    }
    return raw_[begin_] == gzip_magic[0] && raw_[begin_ + 1] == gzip_magic[1];
}

bool text_input::tell_form(std::string &problem)
{
    const bool is_gzip = begins_member(problem);
    if (!problem.empty()) {
        return false;
    }
    form_ = is_gzip ? form::gzip : form::plain;
    if (!is_gzip) {
        return true;
    }
    stream_is_open_ = inflateInit2(&stream_, gzip_window) == Z_OK;
    if (!stream_is_open_) {
        problem = words_for(QE_ERROR_NO_MEMORY);
    }
    return stream_is_open_;
}

std::size_t text_input::take_plain(std::span<char> target)
{
    const std::size_t count = std::min(target.size(), end_ - begin_);
    std::memcpy(target.data(), raw_.data() + begin_, count);
    begin_ += count;
    return count;
}

// Unpacks until there is something, or the member ends, or nothing more comes.
std::size_t text_input::unpack(std::span<char> target, std::string &problem)
{
    stream_.next_out = reinterpret_cast<unsigned char *>(target.data());
    stream_.avail_out = static_cast<unsigned>(target.size());
    while (stream_.avail_out == target.size()) {
        // zlib may still hold output that needs no further input.
        stream_.next_in = raw_.data() + begin_;
        stream_.avail_in = static_cast<unsigned>(end_ - begin_);
        const int result = inflate(&stream_, Z_SYNC_FLUSH);
        begin_ = end_ - stream_.avail_in;
        if (result == Z_STREAM_END) {
            form_ = form::behind_gzip;
            break;
        }
        if (result != Z_OK && result != Z_BUF_ERROR) {
            problem = std::string("the gzip data is damaged: ") +
                      (stream_.msg != nullptr ? stream_.msg : zError(result));
            break;
        }
        const bool is_hungry = stream_.avail_out == target.size() && begin_ == end_;
        if (is_hungry && !more(problem)) {
            problem = problem.empty() ? "the gzip data ends too early" : problem;
            break;
        }
    }
    return target.size() - stream_.avail_out;
}

std::size_t text_input::read(std::span<char> target, std::string &problem)
{
    if (form_ == form::unknown && !tell_form(problem)) {
        return 0;
    }
    for (;;) {
        if (form_ == form::plain) {
            return begin_ < end_ || more(problem) ? take_plain(target) : 0;
        }
        if (form_ == form::behind_gzip) {
            // Another member may follow; anything else behind the last one does not count.
            if (!begins_member(problem) || inflateReset(&stream_) != Z_OK) {
                return 0;
            }
            form_ = form::gzip;
        }
        const std::size_t count = unpack(target, problem);
        if (count > 0 || !problem.empty()) {
            return count;
        }
    }
}

double text_input::fraction() const
{
    if (size_ <= 0) {
        return -1;
    }
    return static_cast<double>(taken_) / static_cast<double>(size_);
}

} // namespace cli
