// Measures the interfaces of the network from /proc/net/dev, and the signal of wireless ones from
// /proc/net/wireless. The parsers take the text of the file, so that they can be tested with texts
// of other machines.
#ifndef VESK_CLI_MACHINE_NETWORK_HPP
#define VESK_CLI_MACHINE_NETWORK_HPP

#include <string_view>

#include "machine/machine_files.hpp"
#include "machine/measurement.hpp"

namespace cli
{

// At most so many interfaces are measured.
constexpr std::size_t most_interfaces = 256;

// Interfaces that never carried anything are left out, and so are those of containers (veth).
void parse_network(std::string_view text, measurements &out);
void parse_wireless(std::string_view text, measurements &out);

void measure_network(const machine_files &files, measurements &out);
void measure_wireless(const machine_files &files, measurements &out);

} // namespace cli

#endif
