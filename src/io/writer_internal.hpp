// For the implementations of writers; not exported.
#ifndef VESK_IO_WRITER_INTERNAL_HPP
#define VESK_IO_WRITER_INTERNAL_HPP

#include <vesk/writer.h>

// Makes `writer` live with the tag of its implementation, which then sets the implementation
// object and the three functions. Returns 0.
int _writer_init(writer *writer, uint32_t type);

// Marks `writer` dead; the implementation object is left alone.
void _writer_destruct(writer *writer);

// Whether a raw or a compressed stream of the library itself is written, told by its function: a
// caller may give his own any type.
bool _writer_takes_blocks(const writer *writer);

// For that: what the two are written by.
int _raw_writer_write_bytes(void *implementation, const void *buffer, uint32_t n);
int _zlib_writer_write_bytes(void *implementation, const void *buffer, uint32_t n);

#endif
