// Watches a folder with inotify. Any failure only means that nobody tells.
#include "box/folder_watch.hpp"

#include <array>
#include <cerrno>
#include <sys/inotify.h>
#include <unistd.h>

namespace cli
{

folder_watch::folder_watch(const std::string &base) : fd_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC))
{
    if (fd_ < 0) {
        return;
    }
    const std::size_t slash = base.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : base.substr(0, slash + 1);
    constexpr uint32_t events = IN_MODIFY | IN_CREATE | IN_MOVED_TO | IN_DELETE;
    if (inotify_add_watch(fd_, folder.c_str(), events) < 0) {
        (void)close(fd_);
        fd_ = -1;
    }
}

folder_watch::~folder_watch()
{
    if (fd_ >= 0) {
        (void)close(fd_);
    }
}

void folder_watch::forget() const
{
    std::array<char, 4096> events;
    ssize_t count = 0;
    do {
        count = fd_ < 0 ? 0 : read(fd_, events.data(), events.size());
    } while (count > 0 || (count < 0 && errno == EINTR));
}

} // namespace cli
