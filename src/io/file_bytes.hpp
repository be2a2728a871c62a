// A whole file in memory. A read that a signal interrupts is repeated, and one that fails is told:
// the readers of the library take both for a broken precondition.
#ifndef VESK_IO_FILE_BYTES_HPP
#define VESK_IO_FILE_BYTES_HPP

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "io/memory_writer.hpp"

// Appends to `bytes` what is left to read of a file from which its stream has taken nothing yet, or
// the next `most` bytes of it. 0, QE_ERROR_IO (-41) when it cannot be read, or QE_ERROR_NO_MEMORY
// (-22).
int _vesk_read_to_end(FILE *file, byte_list *bytes, std::size_t most = SIZE_MAX);

#endif
