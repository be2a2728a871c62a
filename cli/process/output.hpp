// Standard output, which belongs to data, and the three standard streams as a whole. Whoever prints
// does it through here or through terminal.hpp: a stream that takes nothing is a failure with an
// exit code, never an exception out of a handler.
#ifndef VESK_CLI_PROCESS_OUTPUT_HPP
#define VESK_CLI_PROCESS_OUTPUT_HPP

#include <string_view>

namespace cli
{

// The first act of the process. Descriptors 0 to 2 that are closed are taken, so that no file of a
// box ever becomes one of them: what is printed would end in the box. Using such a stream fails as
// it does with a closed one. A stream whose reader has gone is a failed write like any other, and
// so is a file that grows beyond what is allowed.
void secure_standard_streams();

// Prints on standard output. Throws a failure when it is refused.
void put(std::string_view text);

// What was printed has come to where it should, or the verb gives up.
void flush_output();

} // namespace cli

#endif
