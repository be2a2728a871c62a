// Calls libsensors. Every function does nothing if the command was built without it, so callers
// need no conditional compilation.
#ifndef VESK_CLI_MACHINE_LIBSENSORS_HPP
#define VESK_CLI_MACHINE_LIBSENSORS_HPP

#include "machine/measurement.hpp"

namespace cli
{

bool libsensors_is_there();
// False when it cannot start, and then it needs no end.
bool libsensors_start();
void libsensors_end();
void libsensors_measure(measurements &out);

} // namespace cli

#endif
