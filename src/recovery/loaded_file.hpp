// A whole file in memory.
//
// In: a path. Out: all of its bytes, or the code of what went wrong.
#ifndef VESK_RECOVERY_LOADED_FILE_HPP
#define VESK_RECOVERY_LOADED_FILE_HPP

#include "recovery/stream_decoder.hpp"

// Puts all of a file into the empty `store`. 0, -40, -41 or -22.
int _vesk_load_file(const char *filename, byte_list *store);

#endif
