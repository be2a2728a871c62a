// A reader of bytes that are in memory. Reading them cannot fail, so a caller that must not meet a
// failing medium in the middle of a record reads the whole file first (see file_bytes.hpp).
#ifndef VESK_IO_MEMORY_READER_HPP
#define VESK_IO_MEMORY_READER_HPP

#include <vesk/reader.h>

#include "io/memory_writer.hpp"

// Takes the content of `bytes`, which are empty afterwards. Null with QE_ERROR_NO_MEMORY (-22) in
// the cell without memory; `bytes` are untouched then.
reader *_memory_reader_create(byte_list *bytes);

#endif
