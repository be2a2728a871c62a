// Reads small files of the kernel or the system in one go, bounded in size and without waiting. A
// file that is missing reads as an empty text, because most of these files exist only on some
// machines.
#ifndef VESK_CLI_MACHINE_SMALL_FILE_HPP
#define VESK_CLI_MACHINE_SMALL_FILE_HPP

#include <cstddef>
#include <string>

namespace cli
{

// The first @p most bytes, or nothing where there is no such file. Never waits: neither for a
// writer of a pipe nor for a terminal.
std::string read_small_file(const std::string &path, std::size_t most = 4096);

// The first line of it, without blanks at its end.
std::string first_line_of(const std::string &path);

} // namespace cli

#endif
