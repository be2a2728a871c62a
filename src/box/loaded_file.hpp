// A whole file in memory.
//
// In: a path. Out: all of the bytes of the regular file that it leads to, or the code of what went
// wrong.
#ifndef VESK_BOX_LOADED_FILE_HPP
#define VESK_BOX_LOADED_FILE_HPP

#include "box/plain_file.hpp"
#include "io/memory_writer.hpp"

// Puts all of a file, or the `most` bytes that it begins with, into the empty `store`. 0,
// QE_ERROR_OPEN (-40) also for a pipe, a device or a link that must not be followed, QE_ERROR_IO
// (-41) also for a folder, or QE_ERROR_NO_MEMORY (-22).
int _vesk_load_file(const char *filename, link_rule rule, std::size_t most, byte_list *store);

#endif
