// Takes and releases the lock on BASE.lock, and finds out which process has it. The lock itself is
// flock(), which the kernel releases when a process dies. The process number in the file serves
// only the messages, so the file may be left behind, be empty or be removed by somebody at any
// time.
#include "box/box_lock.hpp"

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <fmt/format.h>
#include <fstream>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace cli
{
namespace
{

// A lock file never holds more than the number of a process.
constexpr off_t longest_lock_file = 32;
// The holder removes the file when it releases the lock, which may happen between opening and
// locking it; then it is opened again.
constexpr int most_openings = 100;

std::string lock_file_of(const std::string &base)
{
    return base + ".lock";
}

pid_t number_in(int fd)
{
    char text[longest_lock_file] = {};
    const ssize_t length = pread(fd, text, sizeof text, 0);
    pid_t number = 0;
    if (length > 0) {
        std::from_chars(text, text + length, number);
    }
    return number;
}

// True when the name still refers to the opened file, false when it refers to nothing or to another
// file. Throws a failure when the name cannot be looked at.
bool is_still_there(int fd, const std::string &path)
{
    struct stat opened = {};
    struct stat named = {};
    const bool failed =
        fstat(fd, &opened) != 0 || (lstat(path.c_str(), &named) != 0 && errno != ENOENT);
    if (failed) {
        throw failure(exit_failed, with_errno(path));
    }
    return opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

// Refuses a file that no writer of this command made: it must be neither locked nor written to.
void require_lock_file(int fd, const std::string &path)
{
    struct stat status = {};
    const bool known = fstat(fd, &status) == 0;
    if (!known || !S_ISREG(status.st_mode) || status.st_nlink > 1 ||
        status.st_size > longest_lock_file) {
        throw failure(exit_failed, path + ": is no lock file");
    }
}

bool lock(int fd)
{
    constexpr int tries = 10;
    constexpr timespec between = {0, 20'000'000};
    for (int i = 1; flock(fd, LOCK_EX | LOCK_NB) != 0; ++i) {
        if ((errno != EWOULDBLOCK && errno != EINTR) || i == tries) {
            return false;
        }
        // A process that only looks for a writer holds the lock for a moment, so locking is tried
        // again.
        nanosleep(&between, nullptr);
    }
    return true;
}

[[noreturn]] void refuse(const std::string &base, pid_t holder)
{
    throw box_in_use(holder > 0 ? fmt::format("{}: process {} is writing to the box", base, holder)
                                : fmt::format("{}: another process is writing to the box", base));
}

// Finds the process that has locked the file with this inode number, by the list of the kernel,
// whose lines are "1: FLOCK  ADVISORY  WRITE 1234 08:01:5678 0 EOF". Devices are not compared: not
// every file system has the same number in both places. False when there is no list.
bool find_in_kernel_list(ino_t inode, std::optional<pid_t> &holder)
{
    std::ifstream list("/proc/locks");
    std::string line;
    while (std::getline(list, line)) {
        char kind[16] = {};
        int process = 0;
        unsigned long long number = 0;
        const int fields =
            std::sscanf(line.c_str(), "%*s %15s %*s %*s %d %*x:%*x:%llu", kind, &process, &number);
        if (fields == 3 && std::string_view(kind) == "FLOCK" && number == inode) {
            holder = process;
        }
    }
    return list.eof();
}

// Removes a lock file of another user that this process may not open, if no process has locked it.
// Throws otherwise.
void remove_foreign(const std::string &base, const std::string &path)
{
    const int error = errno;
    struct stat named = {};
    std::optional<pid_t> holder;
    if (lstat(path.c_str(), &named) == 0 && S_ISREG(named.st_mode) &&
        find_in_kernel_list(named.st_ino, holder)) {
        if (holder) {
            refuse(base, *holder);
        }
        if (unlink(path.c_str()) == 0 || errno == ENOENT) {
            return;
        }
    }
    errno = error;
    throw failure(exit_failed, with_errno(fmt::format("{}: {} cannot be opened", base, path)));
}

std::string why_not_opened(const std::string &base, const std::string &path)
{
    if (errno == ELOOP) {
        return fmt::format("{}: {} is a link, and no lock file", base, path);
    }
    if (errno == ENOENT) {
        return fmt::format("{}: its folder does not exist; make it first", base);
    }
    return with_errno(fmt::format("{}: {} cannot be opened", base, path));
}

int open_lock_file(const std::string &path)
{
    return open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC,
                S_IRUSR | S_IWUSR);
}

} // namespace

std::optional<pid_t> lock_holder(const std::string &base)
{
    const std::string path = lock_file_of(base);
    std::optional<pid_t> holder;
    struct stat named = {};
    if (lstat(path.c_str(), &named) != 0 || !S_ISREG(named.st_mode)) {
        return holder;
    }
    const int fd = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) {
        find_in_kernel_list(named.st_ino, holder);
        return holder;
    }
    // This takes a shared lock and releases it at once; a writer that starts at this moment tries
    // again.
    if (flock(fd, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
        holder = number_in(fd);
    }
    close(fd);
    return holder;
}

box_lock::box_lock(const std::string &base) : base_(base), path_(lock_file_of(base))
{
    take_or_release();
}

box_lock::~box_lock()
{
    try {
        if (fd_ >= 0 && is_held()) {
            unlink(path_.c_str());
        }
    } catch (const failure &) {
        // The file stays. It does no harm, because only a lock on it counts.
    }
    release();
}

void box_lock::release()
{
    if (fd_ >= 0) {
        close(fd_);
        fd_ = -1;
    }
}

bool box_lock::is_held() const
{
    return fd_ >= 0 && is_still_there(fd_, path_);
}

void box_lock::retake()
{
    release();
    take_or_release();
}

// After a failure the file is closed: it belongs to another process, and is_held() must not take it
// for this lock's own.
void box_lock::take_or_release()
{
    try {
        take();
    } catch (...) {
        release();
        throw;
    }
}

void box_lock::take()
{
    for (int i = 0; i < most_openings; ++i) {
        if (try_to_take()) {
            // The number only serves messages for people, so it may be missing on a full disk.
            const std::string number = fmt::format("{}\n", getpid());
            if (ftruncate(fd_, 0) == 0) {
                (void)!pwrite(fd_, number.data(), number.size(), 0);
            }
            return;
        }
        release();
    }
    throw failure(exit_failed, fmt::format("{}: {} does not stay", base_, path_));
}

// False when the file was removed in between, so that another attempt may succeed.
bool box_lock::try_to_take()
{
    fd_ = open_lock_file(path_);
    if (fd_ < 0 && errno == EACCES) {
        remove_foreign(base_, path_);
        return false;
    }
    if (fd_ < 0) {
        throw failure(exit_failed, why_not_opened(base_, path_));
    }
    require_lock_file(fd_, path_);
    if (lock(fd_)) {
        return is_still_there(fd_, path_);
    }
    if (errno == EWOULDBLOCK) {
        refuse(base_, number_in(fd_));
    }
    throw failure(exit_failed, with_errno(path_));
}

} // namespace cli
