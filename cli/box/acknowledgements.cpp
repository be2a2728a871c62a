#include "box/acknowledgements.hpp"

#include <cerrno>
#include <charconv>
#include <fcntl.h>
#include <unistd.h>

#include "process/failure.hpp"
#include "text/value_text.hpp"

namespace cli
{
namespace
{

constexpr mode_t for_everybody = S_IRUSR | S_IWUSR | S_IRGRP | S_IWGRP | S_IROTH | S_IWOTH;

int open_for_lines(const std::string &where)
{
    int number = -1;
    const char *end = where.data() + where.size();
    const auto [rest, error] = std::from_chars(where.data(), end, number);
    if (error == std::errc() && rest == end) {
        return fcntl(number, F_DUPFD_CLOEXEC, 0);
    }
    return open(where.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, for_everybody);
}

} // namespace

acknowledgements::acknowledgements(const std::string &where) : name_(where)
{
    if (where.empty()) {
        return;
    }
    file_ = file_descriptor(open_for_lines(where));
    if (!file_.is_open()) {
        throw failure(exit_failed, with_errno("--acknowledge " + where));
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
        const ssize_t count = ::write(file_.get(), line.data() + written, line.size() - written);
        if (count < 0 && errno != EINTR) {
            throw failure(exit_failed, with_errno("--acknowledge " + name_));
        }
        written += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
}

} // namespace cli
