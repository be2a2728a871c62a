// A reader over a descriptor that tells a failing medium from the end of a file: a read that fails
// gives QE_ERROR_IO (-41), where the raw reader shows an end. Not exported.
#ifndef VESK_IO_REPORTING_READER_HPP
#define VESK_IO_REPORTING_READER_HPP

#include <vesk/reader.h>

// Reads on where `descriptor` is, which stays the caller's. Null, with the last error set, without
// memory.
reader *_reporting_reader_create(int descriptor);

#endif
