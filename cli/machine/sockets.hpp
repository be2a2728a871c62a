// Measures TCP, UDP and sockets from /proc/net/{snmp,snmp6,netstat,sockstat,sockstat6}. A table or
// a column that the kernel does not have gives no sensor.
#ifndef VESK_CLI_MACHINE_SOCKETS_HPP
#define VESK_CLI_MACHINE_SOCKETS_HPP

#include <cstdint>
#include <string_view>

#include "machine/machine_files.hpp"
#include "machine/measurement.hpp"

namespace cli
{

// "Tcp: ActiveOpens PassiveOpens ..." over "Tcp: 12 34 ...": the form of snmp and netstat.
void parse_protocols(std::string_view text, measurements &out);
// "Udp6InErrors   0" in each line: the form of snmp6.
void parse_protocols_6(std::string_view text, measurements &out);
// "TCP: inuse 5 orphan 0 ..." in each line. @p page_size is the unit of its memory.
void parse_sockets(std::string_view text, double page_size, measurements &out);

void measure_sockets(const machine_files &files, measurements &out);

} // namespace cli

#endif
