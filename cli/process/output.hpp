// Standard output, which belongs to data, and the three standard streams as a whole. Whoever prints
// does it through here or through terminal.hpp: a stream that takes nothing is a failure with an
// exit code, never an exception out of a handler.
#ifndef VESK_CLI_PROCESS_OUTPUT_HPP
#define VESK_CLI_PROCESS_OUTPUT_HPP

#include <string_view>

namespace cli
{

// To be called first in the process. If descriptors 0 to 2 are closed, they are opened, so that no
// file of a box ever gets one of these numbers and receives what is printed. Using such a stream
// fails as it does with a closed one. A stream whose reader has gone is a failed write like any
// other, and so is a file that grows beyond what is allowed.
void secure_standard_streams();

// Prints on standard output. Throws a failure when it is refused.
void put(std::string_view text);

// Flushes standard output. Throws a failure when it is refused.
void flush_output();

} // namespace cli

#endif
