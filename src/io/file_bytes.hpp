// A whole file in memory. A read that a signal interrupts is repeated, and one that fails is told:
// the readers of the library take both for a broken precondition.
#ifndef VESK_IO_FILE_BYTES_HPP
#define VESK_IO_FILE_BYTES_HPP

#include "io/memory_writer.hpp"

// Appends the content of `filename` to `bytes`. 0; QE_ERROR_OPEN (-40) when it cannot be opened or
// is no regular file; QE_ERROR_IO (-41) when it cannot be read; QE_ERROR_NO_MEMORY (-22) without
// memory.
int _vesk_read_file(const char *filename, byte_list *bytes);

#endif
