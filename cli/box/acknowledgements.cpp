// Writes one line for each vector that is in the box to a file, a pipe or a descriptor. Nobody may
// be reading the pipe, so every wait for it ends when a signal asks the process to stop.
#include "box/acknowledgements.hpp"

#include <cerrno>
#include <charconv>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "process/failure.hpp"
#include "text/value_text.hpp"

namespace cli
{
namespace
{

constexpr mode_t for_everybody = S_IRUSR | S_IWUSR | S_IRGRP | S_IWGRP | S_IROTH | S_IWOTH;
constexpr double between_tries = 0.05; // seconds

bool is_fifo(const std::string &path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 && S_ISFIFO(status.st_mode);
}

} // namespace

acknowledgements::acknowledgements(const std::string &where, const stop_request &stop)
    : stop_(stop), name_(where)
{
    if (where.empty()) {
        return;
    }
    int number = -1;
    const char *end = where.data() + where.size();
    const auto [rest, error] = std::from_chars(where.data(), end, number);
    if (error == std::errc() && rest == end) {
        file_ = file_descriptor(fcntl(number, F_DUPFD_CLOEXEC, 0));
    } else {
        open_file();
    }
    if (!file_.is_open()) {
        throw failure(exit_failed, with_errno("--acknowledge " + where));
    }
}

// An open() that waits for a reader could miss a signal that comes just before it.
void acknowledgements::open_file()
{
    for (;;) {
        file_ = file_descriptor(open(
            name_.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_NONBLOCK | O_CLOEXEC, for_everybody));
        if (file_.is_open() || errno != ENXIO || !is_fifo(name_)) {
            return;
        }
        if (stop_.wait(between_tries)) {
            throw failure(exit_failed,
                          "--acknowledge " + name_ + ": interrupted before anybody read the FIFO");
        }
    }
}

void acknowledgements::add(int64_t time)
{
    if (!file_.is_open()) {
        return;
    }
    const std::string line = format_time(time) + "\n";
    std::size_t written = 0;
    while (written < line.size()) {
        if (!stop_.wait_to_write(file_.get())) {
            return;
        }
        const ssize_t count = ::write(file_.get(), line.data() + written, line.size() - written);
        if (count < 0 && errno != EINTR && errno != EAGAIN) {
            throw failure(exit_failed, with_errno("--acknowledge " + name_));
        }
        written += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
}

} // namespace cli
