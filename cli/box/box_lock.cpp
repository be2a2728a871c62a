#include "box/box_lock.hpp"

#include <cerrno>
#include <charconv>
#include <ctime>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace cli
{
namespace
{

std::string lock_file_of(const std::string &base)
{
    return base + ".lock";
}

pid_t number_in(int fd)
{
    char text[32] = {};
    const ssize_t length = pread(fd, text, sizeof text, 0);
    pid_t number = 0;
    if (length > 0) {
        std::from_chars(text, text + length, number);
    }
    return number;
}

// Whoever lets go of a lock removes the file first, so what was opened may be gone from the folder.
bool is_still_there(int fd, const std::string &path)
{
    struct stat opened = {};
    struct stat named = {};
    return fstat(fd, &opened) == 0 && stat(path.c_str(), &named) == 0 &&
           opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

bool lock(int fd)
{
    constexpr int tries = 10;
    constexpr timespec between = {0, 20'000'000};
    for (int i = 1; flock(fd, LOCK_EX | LOCK_NB) != 0; ++i) {
        if (errno != EWOULDBLOCK || i == tries) {
            return false;
        }
        // Whoever only looks whether there is a writer holds it for a moment.
        nanosleep(&between, nullptr);
    }
    return true;
}

[[noreturn]] void refuse(const std::string &base, pid_t holder)
{
    throw box_in_use(holder > 0 ? fmt::format("{}: process {} is writing to the box", base, holder)
                                : fmt::format("{}: another process is writing to the box", base));
}

} // namespace

std::optional<pid_t> lock_holder(const std::string &base)
{
    const int fd = open(lock_file_of(base).c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return std::nullopt;
    }
    // A shared lock that is let go of at once; a writer that begins in this moment tries again.
    std::optional<pid_t> holder;
    if (flock(fd, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
        holder = number_in(fd);
    }
    close(fd);
    return holder;
}

box_lock::box_lock(const std::string &base) : path_(lock_file_of(base))
{
    for (;;) {
        fd_ = open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR);
        if (fd_ < 0) {
            throw failure(exit_failed,
                          with_errno(fmt::format("{}: {} cannot be opened", base, path_)));
        }
        if (!lock(fd_)) {
            const int error = errno;
            const pid_t holder = number_in(fd_);
            close(fd_);
            if (error == EWOULDBLOCK) {
                refuse(base, holder);
            }
            errno = error;
            throw failure(exit_failed, with_errno(path_));
        }
        if (is_still_there(fd_, path_)) {
            break;
        }
        close(fd_);
    }
    // For people only: on a full disk the number may be missing.
    const std::string number = fmt::format("{}\n", getpid());
    if (ftruncate(fd_, 0) == 0) {
        (void)!pwrite(fd_, number.data(), number.size(), 0);
    }
}

box_lock::~box_lock()
{
    unlink(path_.c_str());
    close(fd_);
}

} // namespace cli
