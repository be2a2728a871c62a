// Reads small files of the kernel or the system in one go, bounded in size and without waiting.
// Most of these files exist only on some machines.
#ifndef VESK_CLI_MACHINE_SMALL_FILE_HPP
#define VESK_CLI_MACHINE_SMALL_FILE_HPP

#include <cstddef>
#include <string>
#include <string_view>

namespace cli
{

// What the kernel writes about one thing fits into a page.
constexpr std::size_t small_file_bytes = 4096;

struct file_text {
    std::string text; // empty where the file cannot be opened or read
    int error = 0;    // why it could not be opened, such as ENOENT; 0 where it was
};

// The first @p most bytes. Never waits: neither for a writer of a pipe nor for a terminal.
file_text read_file_text(const std::string &path, std::size_t most);

// The same where it does not matter why there is no text.
std::string read_small_file(const std::string &path, std::size_t most = small_file_bytes);

// The first line of @p text, without blanks at its end.
std::string_view first_line(std::string_view text);
// That of a small file.
std::string first_line_of(const std::string &path);

} // namespace cli

#endif
