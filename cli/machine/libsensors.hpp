// The calls of libsensors, all of which do nothing where the command was built without it.
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
