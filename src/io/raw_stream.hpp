// What the raw reader and the raw writer have in common: the stdio stream, and whether they close
// it or leave it to the caller.
#ifndef VESK_IO_RAW_STREAM_HPP
#define VESK_IO_RAW_STREAM_HPP

#include <cstdint>
#include <cstdio>

#include "support/object.hpp"

struct raw_stream {
    char version;
    FILE *fp;
    uint32_t flags;
};

// Flag: the stdio stream belongs to the caller.
inline constexpr uint32_t raw_stream_keep_open = 1;

inline raw_stream *raw_stream_create(FILE *fp, uint32_t flags)
{
    auto *stream = allocate<raw_stream>();
    if (stream != nullptr) {
        *stream = {1, fp, flags};
    }
    return stream;
}

// Closes the stdio stream unless it is the caller's, and zeroes the object.
inline int raw_stream_destruct(raw_stream *stream)
{
    const bool keep_open = (stream->flags & raw_stream_keep_open) != 0;
    const int result = keep_open ? 0 : fclose(stream->fp);
    *stream = {};
    return result;
}

#endif
