// For the implementations of readers; not exported.
#ifndef VESK_IO_READER_INTERNAL_HPP
#define VESK_IO_READER_INTERNAL_HPP

#include <vesk/reader.h>

// Makes `reader` live with the tag of its implementation, which then sets the implementation
// object and the three functions. Returns 0.
int _reader_init(reader *reader, uint32_t type);

// Marks `reader` dead; the implementation object is left alone.
void _reader_destruct(reader *reader);

#endif
