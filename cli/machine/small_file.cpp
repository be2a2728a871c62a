// Reads small files with plain system calls and without streams, because one look at the machine
// opens some hundred files, and a few more for each process. The path may name anything: the read
// is bounded, never blocks, and takes memory only for what is there.
#include "machine/small_file.hpp"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace cli
{

file_text read_file_text(const std::string &path, std::size_t most)
{
    const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) {
        return {{}, errno};
    }
    std::string text;
    std::size_t filled = 0;
    while (filled < most) {
        text.resize(std::min(most, filled + std::max(filled, small_file_bytes)));
        const ssize_t count = read(fd, text.data() + filled, text.size() - filled);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            break;
        }
        filled += static_cast<std::size_t>(count);
    }
    close(fd);
    text.resize(filled);
    return {std::move(text), 0};
}

std::string read_small_file(const std::string &path, std::size_t most)
{
    return read_file_text(path, most).text;
}

std::string_view first_line(std::string_view text)
{
    const std::string_view line = text.substr(0, text.find('\n'));
    return line.substr(0, line.find_last_not_of(" \t\r") + 1);
}

std::string first_line_of(const std::string &path)
{
    return std::string(first_line(read_small_file(path)));
}

} // namespace cli
