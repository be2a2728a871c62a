// Reads small files with plain system calls and without streams, because this is done several times
// for each process of the machine. The path may name anything: the read is bounded, never blocks,
// and gives an empty text for what cannot be opened.
#include "machine/small_file.hpp"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace cli
{

std::string read_small_file(const std::string &path, std::size_t most)
{
    const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) {
        return {};
    }
    std::string text(most, '\0');
    std::size_t size = 0;
    while (size < most) {
        const ssize_t count = read(fd, text.data() + size, most - size);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            break;
        }
        size += static_cast<std::size_t>(count);
    }
    close(fd);
    text.resize(size);
    return text;
}

std::string first_line_of(const std::string &path)
{
    std::string text = read_small_file(path);
    text.resize(std::min(text.size(), text.find('\n')));
    text.resize(text.find_last_not_of(" \t\r") + 1);
    return text;
}

} // namespace cli
