// Tells which machine this is and which boot of it. A recording writes this into a box, so that
// people who open the box later know where it is from.
#ifndef VESK_CLI_MACHINE_IDENTITY_HPP
#define VESK_CLI_MACHINE_IDENTITY_HPP

#include <string>

#include "text/own_events.hpp"

namespace cli
{

// From ROOT/proc/sys/kernel and ROOT/etc/machine-id. Without @p with_machine_id that file is not
// looked at.
machine_identity read_identity(const std::string &root, bool with_machine_id);

} // namespace cli

#endif
