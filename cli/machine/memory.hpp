// Measures memory, swap space and paging from /proc/meminfo and /proc/vmstat. The parsers take the
// text of the file, so that they can be tested with texts of other machines.
#ifndef VESK_CLI_MACHINE_MEMORY_HPP
#define VESK_CLI_MACHINE_MEMORY_HPP

#include <string_view>

#include "machine/machine_files.hpp"
#include "machine/measurement.hpp"

namespace cli
{

void parse_memory(std::string_view text, measurements &out);
void parse_paging(std::string_view text, measurements &out);

void measure_memory(const machine_files &files, measurements &out);

} // namespace cli

#endif
