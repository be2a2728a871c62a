// What libproc2 does not give, read from /proc by hand. @p root stands before every path.
#ifndef VESK_CLI_MACHINE_PROC_FILES_HPP
#define VESK_CLI_MACHINE_PROC_FILES_HPP

#include <string>
#include <string_view>

#include "machine/measurement.hpp"

namespace cli
{

// ROOT/proc/net/dev. Interfaces that never carried anything are left out, and so are
// those of containers (veth).
void measure_network(const std::string &root, measurements &out);
void parse_network(std::string_view text, measurements &out);

// ROOT/proc/pressure/{cpu,io,memory,irq}; what the kernel has not is left out.
void measure_pressure(const std::string &root, measurements &out);
void parse_pressure(std::string_view resource, std::string_view text, measurements &out);

} // namespace cli

#endif
