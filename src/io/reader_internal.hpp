// What the implementations of readers share: how they make and end the record that a caller sees,
// and how they are told apart. Not exported.
#ifndef VESK_IO_READER_INTERNAL_HPP
#define VESK_IO_READER_INTERNAL_HPP

#include <vesk/reader.h>

// Makes `reader` live with the tag of its implementation, which then sets the implementation
// object and the three functions. Returns 0.
int _reader_init(reader *reader, uint32_t type);

// Marks `reader` dead; the implementation object is left alone.
void _reader_destruct(reader *reader);

// Whether numbers may be read in blocks from it: from a raw or a compressed stream of the library
// itself, from one over memory and from a reporting one, told by its function, since a caller may
// give his own any type.
// A caller's reader, and one that makes garbage, is asked for each number alone.
bool _reader_gives_blocks(const reader *reader);

// What a compressed stream of the library holds inflated already, but for the byte whose reading
// may tell more; *size is how much, 0 for other readers. Looking changes nothing, so that what is
// not as expected can still be read as it always is.
const uint8_t *_zlib_reader_peek(const reader *reader, uint32_t *size);
// Reads `n` bytes of those and returns how many that are.
int _zlib_reader_skip(reader *reader, uint32_t n);

// The functions of those four.
int _raw_reader_read_bytes(void *implementation, void *buffer, uint32_t n);
int _zlib_reader_read_bytes(void *implementation, void *buffer, uint32_t n);
int _memory_reader_read_bytes(void *implementation, void *buffer, uint32_t n);
int _reporting_reader_read_bytes(void *implementation, void *buffer, uint32_t n);

#endif
