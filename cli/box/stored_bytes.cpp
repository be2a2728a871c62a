// Opens a regular file of a box and reads it, or says in words why it cannot be read. What lies
// under the name is checked before and after it is opened, because opening a device may have
// effects and the name may change in between. The file stays open, so it can be read after a
// rotation has deleted it.
#include "box/stored_bytes.hpp"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "process/failure.hpp"

namespace cli
{
namespace
{

std::string words_for_mode(mode_t mode)
{
    switch (mode & S_IFMT) {
    case S_IFDIR:
        return "is a folder, not a file";
    case S_IFIFO:
        return "is a FIFO, not a file";
    case S_IFSOCK:
        return "is a socket, not a file";
    case S_IFLNK:
        return "is a link, not a file";
    default:
        return "is a device, not a file";
    }
}

int64_t nanoseconds(const struct timespec &time)
{
    constexpr int64_t second = 1'000'000'000;
    return static_cast<int64_t>(time.tv_sec) * second + time.tv_nsec;
}

} // namespace

exit_code code_for_errno(int error)
{
    switch (error) {
    case ENOENT:
    case ENOTDIR:
    case EISDIR:
    case EACCES:
    case EPERM:
    case ELOOP:
    case ENAMETOOLONG:
        return exit_unreadable;
    default:
        return exit_failed;
    }
}

std::string foreign_words(const std::string &path)
{
    struct stat status = {};
    if (lstat(path.c_str(), &status) != 0 || S_ISREG(status.st_mode)) {
        return {};
    }
    return words_for_mode(status.st_mode);
}

stored_bytes::stored_bytes(const std::string &path, links policy) : path_(path)
{
    // Opening a device may have effects, so the name is checked before it is opened, and the opened
    // file after it.
    if (const std::string foreign = policy == links::refuse ? foreign_words(path) : "";
        !foreign.empty()) {
        foreign_ = true;
        refuse(0, foreign);
        return;
    }
    const int no_links = policy == links::refuse ? O_NOFOLLOW : 0;
    do {
        fd_ = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC | no_links);
    } while (fd_ < 0 && errno == EINTR);
    if (fd_ < 0) {
        const int error = errno;
        refuse(error, error == ENOENT ? "is missing" : std::generic_category().message(error));
        return;
    }
    struct stat status = {};
    if (fstat(fd_, &status) != 0) {
        refuse(errno, std::generic_category().message(errno));
    } else if (!S_ISREG(status.st_mode)) {
        foreign_ = true;
        refuse(0, words_for_mode(status.st_mode));
    } else {
        seen_size_ = status.st_size;
        seen_time_ = status.st_mtim;
    }
}

stored_bytes::~stored_bytes()
{
    if (fd_ >= 0) {
        close(fd_);
    }
}

void stored_bytes::refuse(int error, const std::string &words)
{
    if (fd_ >= 0) {
        close(fd_);
        fd_ = -1;
    }
    error_ = error;
    problem_ = words;
}

bool stored_bytes::is_missing() const
{
    return error_ == ENOENT || error_ == ENOTDIR;
}

uint64_t stored_bytes::size() const
{
    struct stat status = {};
    if (fstat(fd_, &status) != 0) {
        throw read_failure(exit_failed, with_errno(path_));
    }
    return static_cast<uint64_t>(status.st_size);
}

bool stored_bytes::has_changed() const
{
    struct stat status = {};
    return fstat(fd_, &status) == 0 &&
           (status.st_size != seen_size_ || status.st_mtim.tv_sec != seen_time_.tv_sec ||
            status.st_mtim.tv_nsec != seen_time_.tv_nsec);
}

std::optional<file_stamp> stored_bytes::stamp() const
{
    struct stat status = {};
    if (fstat(fd_, &status) != 0) {
        return std::nullopt;
    }
    return file_stamp{status.st_dev, status.st_ino, status.st_size, nanoseconds(status.st_mtim),
                      nanoseconds(status.st_ctim)};
}

void stored_bytes::remember_times() const
{
    struct stat status = {};
    if (fstat(fd_, &status) == 0) {
        seen_size_ = status.st_size;
        seen_time_ = status.st_mtim;
    }
}

// 0 at the end of the file.
std::size_t stored_bytes::read_some(unsigned char *to, std::size_t size, uint64_t begin) const
{
    for (;;) {
        const ssize_t n = pread(fd_, to, size, static_cast<off_t>(begin));
        if (n >= 0) {
            return static_cast<std::size_t>(n);
        }
        if (errno != EINTR) {
            throw read_failure(exit_failed, with_errno(path_));
        }
    }
}

std::vector<unsigned char> stored_bytes::read(uint64_t begin) const
{
    constexpr std::size_t piece = 65536;
    constexpr uint64_t most_at_once = uint64_t(256) << 20U;
    remember_times();
    // Most files are read in one go, and one byte more tells that this was the end.
    const auto seen = static_cast<uint64_t>(seen_size_);
    const uint64_t expected = seen > begin ? seen - begin + 1 : piece;
    std::vector<unsigned char> bytes(static_cast<std::size_t>(std::min(expected, most_at_once)));
    std::size_t filled = 0;
    for (;;) {
        if (bytes.size() == filled) {
            bytes.resize(filled + piece + bytes.size() / 2);
        }
        const std::size_t n =
            read_some(bytes.data() + filled, bytes.size() - filled, begin + filled);
        if (n == 0) {
            break;
        }
        filled += n;
    }
    bytes.resize(filled);
    return bytes;
}

std::vector<unsigned char> stored_bytes::read_piece(uint64_t begin, std::size_t size) const
{
    std::vector<unsigned char> bytes(size);
    std::size_t filled = 0;
    while (filled < size) {
        const std::size_t n = read_some(bytes.data() + filled, size - filled, begin + filled);
        if (n == 0) {
            break;
        }
        filled += n;
    }
    bytes.resize(filled);
    return bytes;
}

} // namespace cli
