// What the implementations of readers share: how they make and end the record that a caller sees,
// and how they are told apart. Not exported.
#ifndef VESK_IO_READER_INTERNAL_HPP
#define VESK_IO_READER_INTERNAL_HPP

#include <cstdint>

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

// What the reader of a compressed stream of the library begins with: the bytes that it has inflated
// and not handed out yet.
inline constexpr uint32_t zlib_reader_block_size = 2048;
struct zlib_held_bytes {
    char version;  // 1 while live
    uint32_t next; // from here ...
    uint32_t end;  // ... to here
    uint32_t came; // what a read that failed could have had without failing
    uint8_t bytes[zlib_reader_block_size];
};

int _zlib_reader_read_bytes(void *implementation, void *buffer, uint32_t n);

// What a compressed stream of the library holds, but for the byte whose reading may tell more;
// *size is how much, 0 for other readers. Looking changes nothing, so that what is not as expected
// can still be read as it always is.
inline const uint8_t *_zlib_reader_peek(const reader *source, uint32_t *size)
{
    *size = 0;
    if (source == nullptr || source->fn_read_bytes != _zlib_reader_read_bytes ||
        source->version != 1) {
        return nullptr;
    }
    const auto *held = static_cast<const zlib_held_bytes *>(source->reader);
    if (held == nullptr || held->version != 1) {
        return nullptr;
    }
    const uint32_t n = held->end - held->next;
    *size = n > 0 ? n - 1 : 0;
    return held->bytes + held->next;
}

// Hands out `n` of those, which must be there.
inline void _zlib_reader_skip(reader *source, uint32_t n)
{
    static_cast<zlib_held_bytes *>(source->reader)->next += n;
}

// How many bytes of a read that failed would have come from a compressed stream of the library, had
// they been all that was asked for; 0 for other readers.
inline uint32_t _zlib_reader_came(const reader *source)
{
    return source->fn_read_bytes == _zlib_reader_read_bytes
               ? static_cast<const zlib_held_bytes *>(source->reader)->came
               : 0;
}

// The functions of the others of those.
int _raw_reader_read_bytes(void *implementation, void *buffer, uint32_t n);
int _memory_reader_read_bytes(void *implementation, void *buffer, uint32_t n);
int _reporting_reader_read_bytes(void *implementation, void *buffer, uint32_t n);

#endif
