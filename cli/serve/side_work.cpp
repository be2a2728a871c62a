// The other process writes into a file in memory and ends. It holds neither sockets nor files of
// this one: a client notices when its connection is closed here, and a port is free again.
#include "serve/side_work.hpp"

#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "process/failure.hpp"

namespace cli
{
namespace
{

constexpr int bytes_in_child = 3;
constexpr int end_in_child = 4;

bool write_all(int fd, const std::string &bytes)
{
    std::size_t written = 0;
    while (written < bytes.size()) {
        const ssize_t count = write(fd, bytes.data() + written, bytes.size() - written);
        if (count < 0 && errno != EINTR) {
            return false;
        }
        written += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    return true;
}

// Of all open files, only standard ones and the two are kept. They are moved up first, because one
// may have the number of the other.
bool keep_only(int bytes, int end)
{
    constexpr int above = 100;
    const int high_bytes = fcntl(bytes, F_DUPFD, above);
    const int high_end = fcntl(end, F_DUPFD, above);
    return high_bytes >= 0 && high_end >= 0 && dup2(high_bytes, bytes_in_child) >= 0 &&
           dup2(high_end, end_in_child) >= 0 && close_range(end_in_child + 1, ~0U, 0) == 0;
}

[[noreturn]] void work_and_end(const std::function<std::string()> &work, int bytes, int end,
                               pid_t parent)
{
    constexpr int done = 0;
    constexpr int failed = 1;
    // Who began it may be gone already.
    if (prctl(PR_SET_PDEATHSIG, SIGKILL) != 0 || getppid() != parent || !keep_only(bytes, end)) {
        _exit(failed);
    }
    try {
        _exit(write_all(bytes_in_child, work()) ? done : failed);
    } catch (...) {
        _exit(failed);
    }
}

} // namespace

side_work::side_work(const std::function<std::string()> &work)
    : bytes_(memfd_create("vesk-side-work", MFD_CLOEXEC))
{
    std::array<int, 2> ends = {-1, -1};
    if (!bytes_.is_open() || pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw failure(exit_failed, with_errno("a process of its own"));
    }
    end_ = file_descriptor(ends[0]);
    const file_descriptor other_end(ends[1]);
    const pid_t parent = getpid();
    process_ = fork();
    if (process_ < 0) {
        throw failure(exit_failed, with_errno("a process of its own"));
    }
    if (process_ == 0) {
        work_and_end(work, bytes_.get(), other_end.get(), parent);
    }
}

side_work::~side_work()
{
    if (process_ > 0) {
        (void)kill(process_, SIGKILL);
        collect();
    }
}

bool side_work::is_over() const
{
    pollfd end = {end_.get(), POLLIN, 0};
    return poll(&end, 1, 0) > 0;
}

void side_work::collect()
{
    while (waitpid(process_, &status_, 0) < 0 && errno == EINTR) {
    }
    process_ = -1;
}

std::optional<std::string> side_work::result()
{
    if (process_ > 0) {
        collect();
    }
    struct stat status = {};
    if (!WIFEXITED(status_) || WEXITSTATUS(status_) != 0 || fstat(bytes_.get(), &status) != 0) {
        return std::nullopt;
    }
    std::string bytes(static_cast<std::size_t>(status.st_size), '\0');
    std::size_t read = 0;
    while (read < bytes.size()) {
        const ssize_t count =
            pread(bytes_.get(), bytes.data() + read, bytes.size() - read, static_cast<off_t>(read));
        if (count == 0 || (count < 0 && errno != EINTR)) {
            return std::nullopt;
        }
        read += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    return bytes;
}

} // namespace cli
