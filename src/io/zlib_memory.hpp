// zlib's working memory, kept from one stream to the next. A record ends a stream, and a stream of
// deflate takes 268 KB: giving that back to the heap and asking for it again costs more than
// compressing a small record.
#ifndef VESK_IO_ZLIB_MEMORY_HPP
#define VESK_IO_ZLIB_MEMORY_HPP

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <zlib.h>

struct zlib_block {
    void *memory;
    size_t size;
    bool in_use;
};

// Starts zeroed. deflate takes five blocks and inflate two; blocks beyond the places are not kept.
struct zlib_memory {
    zlib_block blocks[8];
};

inline void *zlib_memory_take(void *opaque, uInt items, uInt item_size)
{
    auto *memory = static_cast<zlib_memory *>(opaque);
    const size_t size = static_cast<size_t>(items) * item_size;
    zlib_block *end = std::end(memory->blocks);
    zlib_block *block = std::find_if(memory->blocks, end, [=](const zlib_block &candidate) {
        return !candidate.in_use && (candidate.memory == nullptr || candidate.size >= size);
    });
    if (block == end) {
        return malloc(size);
    }
    if (block->memory == nullptr) {
        *block = {malloc(size), size, false};
    }
    block->in_use = block->memory != nullptr;
    return block->memory;
}

inline void zlib_memory_give_back(void *opaque, void *address)
{
    auto *memory = static_cast<zlib_memory *>(opaque);
    zlib_block *end = std::end(memory->blocks);
    zlib_block *block = std::find_if(memory->blocks, end, [=](const zlib_block &candidate) {
        return candidate.memory == address;
    });
    if (block == end) {
        free(address);
        return;
    }
    block->in_use = false;
}

// Lets the next stream of `stream` take its memory from `memory`.
inline void zlib_memory_attach(zlib_memory *memory, z_stream *stream)
{
    stream->zalloc = zlib_memory_take;
    stream->zfree = zlib_memory_give_back;
    stream->opaque = memory;
}

// Frees everything; no stream may be open.
inline void zlib_memory_release(zlib_memory *memory)
{
    for (zlib_block &block : memory->blocks) {
        free(block.memory);
        block = {};
    }
}

#endif
