// For the implementations of writers; not exported.
#ifndef VESK_IO_WRITER_INTERNAL_HPP
#define VESK_IO_WRITER_INTERNAL_HPP

#include <vesk/writer.h>

// Makes `writer` live with the tag of its implementation, which then sets the implementation
// object and the three functions. Returns 0.
int _writer_init(writer *writer, uint32_t type);

// Marks `writer` dead; the implementation object is left alone.
void _writer_destruct(writer *writer);

#endif
