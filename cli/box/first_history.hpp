// The step from three full buffers to the first history, in a child: it is the one step in which a
// disk that fails ends the process that records.
#ifndef VESK_CLI_BOX_FIRST_HISTORY_HPP
#define VESK_CLI_BOX_FIRST_HISTORY_HPP

#include <string>

#include <vesk/matrix.h>

namespace cli
{

// How a child ended: the result of the library and what errno was.
struct child_outcome {
    int result;
    int error;
};

// Opens the box on @p base, writes @p vector, which finds its open buffer full, and closes the box.
// The caller must not have it open. A child that died is a negative result like any other; what it
// did until then has to be looked up in the box.
child_outcome write_first_history(const std::string &base, const matrix *vector);

} // namespace cli

#endif
