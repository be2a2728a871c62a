#include "text/line_source.hpp"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "process/failure.hpp"

namespace cli
{
namespace
{

constexpr std::size_t buffer_size = 128 * 1024;
// Far above what 10000 sensors need: a file without line ends must not fill the memory.
constexpr std::size_t longest_line = 16 * 1024 * 1024;

} // namespace

line_source::line_source(const std::string &path)
    : name_(path == "-" ? "<stdin>" : path), buffer_(buffer_size)
{
    const int fd = path == "-" ? dup(STDIN_FILENO) : open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        throw failure(exit_failed, with_errno(name_));
    }
    struct stat status = {};
    if (fstat(fd, &status) == 0) {
        if (S_ISDIR(status.st_mode)) {
            close(fd);
            throw failure(exit_failed, name_ + ": is a directory");
        }
        size_ = S_ISREG(status.st_mode) ? status.st_size : -1;
    }
    file_.reset(gzdopen(fd, "rb"));
    if (!file_) {
        close(fd);
        throw failure(exit_failed, name_ + ": " + words_for(-22));
    }
}

void line_source::fail(const std::string &reason) const
{
    throw bad_input(name_, line_number_ + 1, reason);
}

bool line_source::fill()
{
    position_ = 0;
    filled_ = 0;
    const int count = gzread(file_.get(), buffer_.data(), static_cast<unsigned>(buffer_.size()));
    if (count > 0) {
        filled_ = static_cast<std::size_t>(count);
        return true;
    }
    int error = Z_OK;
    const char *text = gzerror(file_.get(), &error);
    if (error == Z_ERRNO) {
        fail(with_errno("cannot be read on"));
    } else if (error == Z_BUF_ERROR) {
        fail("the gzip data ends too early");
    } else if (error != Z_OK && error != Z_STREAM_END) {
        fail(std::string("the gzip data is damaged: ") + text);
    }
    return false;
}

bool line_source::next(std::string_view &line)
{
    joined_.clear();
    for (;;) {
        if (position_ == filled_ && !fill()) {
            if (joined_.empty()) {
                return false;
            }
            ended_inside_line_ = true;
            line = joined_;
            break;
        }
        const char *begin = buffer_.data() + position_;
        const std::size_t rest = filled_ - position_;
        const auto *end = static_cast<const char *>(memchr(begin, '\n', rest));
        const std::size_t length = end != nullptr ? static_cast<std::size_t>(end - begin) : rest;
        position_ += length + (end != nullptr ? 1 : 0);
        if (joined_.size() + length > longest_line) {
            fail("the line is longer than 16 MiB");
        }
        if (end != nullptr && joined_.empty()) {
            line = {begin, length};
            break;
        }
        joined_.append(begin, length);
        if (end != nullptr) {
            line = joined_;
            break;
        }
    }
    ++line_number_;
    if (line.ends_with('\r')) {
        line.remove_suffix(1);
    }
    return true;
}

double line_source::fraction() const
{
    const auto offset = gzoffset(file_.get());
    if (size_ <= 0 || offset < 0) {
        return -1;
    }
    return static_cast<double>(offset) / static_cast<double>(size_);
}

} // namespace cli
