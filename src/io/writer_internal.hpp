// What the implementations of writers share: how they make and end the record that a caller sees,
// and how they are told apart. Not exported.
#ifndef VESK_IO_WRITER_INTERNAL_HPP
#define VESK_IO_WRITER_INTERNAL_HPP

#include <vesk/writer.h>

// Makes `writer` live with the tag of its implementation, which then sets the implementation
// object and the three functions. Returns 0.
int _writer_init(writer *writer, uint32_t type);

// Marks `writer` dead; the implementation object is left alone.
void _writer_destruct(writer *writer);

// Whether numbers may be written in blocks to it: to a raw or a compressed stream of the library
// itself and to a byte_list_writer, told by its function, since a caller may give his own any type.
// A caller's writer is given each number alone.
bool _writer_takes_blocks(const writer *writer);

// Forgets what a compressed stream of the library has not written yet, and that it failed, so that
// destroying it writes nothing and never aborts.
void _zlib_writer_abandon(writer *writer);

// The functions of the first two.
int _raw_writer_write_bytes(void *implementation, const void *buffer, uint32_t n);
int _zlib_writer_write_bytes(void *implementation, const void *buffer, uint32_t n);

#endif
