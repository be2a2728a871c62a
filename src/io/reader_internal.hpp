// For the implementations of readers; not exported.
#ifndef VESK_IO_READER_INTERNAL_HPP
#define VESK_IO_READER_INTERNAL_HPP

#include <vesk/reader.h>

// Makes `reader` live with the tag of its implementation, which then sets the implementation
// object and the three functions. Returns 0.
int _reader_init(reader *reader, uint32_t type);

// Marks `reader` dead; the implementation object is left alone.
void _reader_destruct(reader *reader);

// Whether a raw or a compressed stream of the library itself is read, told by its function: a
// caller may give his own any type.
bool _reader_gives_blocks(const reader *reader);

// For that: what the two are read by.
int _raw_reader_read_bytes(void *implementation, void *buffer, uint32_t n);
int _zlib_reader_read_bytes(void *implementation, void *buffer, uint32_t n);

#endif
