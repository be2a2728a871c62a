// Measures tables of the kernel that can become full: open files, and connections that the firewall
// tracks. A full table makes programs fail in ways that are hard to explain afterwards.
#ifndef VESK_CLI_MACHINE_KERNEL_TABLES_HPP
#define VESK_CLI_MACHINE_KERNEL_TABLES_HPP

#include <string_view>

#include "machine/machine_files.hpp"
#include "machine/measurement.hpp"

namespace cli
{

void parse_open_files(std::string_view text, measurements &out);

void measure_open_files(const machine_files &files, measurements &out);
void measure_conntrack(const machine_files &files, measurements &out);

} // namespace cli

#endif
