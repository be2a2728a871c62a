// What is in a compressed file, found with zlib alone: the streams it is made of and where it
// breaks.
#ifndef VESK_TESTS_COMMON_ZLIB_STREAMS_HPP
#define VESK_TESTS_COMMON_ZLIB_STREAMS_HPP

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>
#include <zlib.h>

// One zlib stream and what it decompresses to, as far as it is there.
struct zlib_stream {
    std::size_t offset = 0;
    std::size_t length = 0;
    std::string content;
    bool complete = false; // the trailer was there and right
    bool damaged = false;  // zlib refused it
    // Whether zlib finds the damage while it gives out the last good byte, and not only when it is
    // asked for more.
    bool damage_shows_early = false;
};

// What inflate() says when it has room for just `size` bytes of the stream.
inline int inflate_into(std::string_view stream, std::size_t size)
{
    z_stream z = {};
    (void)inflateInit(&z);
    std::string room(size, '\0');
    z.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(stream.data()));
    z.avail_in = static_cast<uInt>(stream.size());
    z.next_out = reinterpret_cast<Bytef *>(room.data());
    z.avail_out = static_cast<uInt>(size);
    const int result = inflate(&z, Z_NO_FLUSH);
    (void)inflateEnd(&z);
    return result;
}

// Decompresses the stream at `offset`; one that ends early or is damaged takes the rest.
inline zlib_stream inflate_stream(std::string_view file, std::size_t offset)
{
    zlib_stream stream;
    stream.offset = offset;
    z_stream z = {};
    (void)inflateInit(&z);
    z.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(file.data() + offset));
    z.avail_in = static_cast<uInt>(file.size() - offset);
    int result = Z_OK;
    uInt room = 0;
    while (result == Z_OK && (z.avail_in > 0 || room == 0)) {
        char block[4096];
        z.next_out = reinterpret_cast<Bytef *>(block);
        z.avail_out = sizeof block;
        result = inflate(&z, Z_NO_FLUSH);
        room = z.avail_out;
        stream.content.append(block, sizeof block - room);
    }
    stream.complete = result == Z_STREAM_END;
    stream.damaged = result != Z_OK && result != Z_STREAM_END && result != Z_BUF_ERROR;
    stream.length = stream.complete ? z.total_in : file.size() - offset;
    (void)inflateEnd(&z);
    if (stream.damaged && !stream.content.empty()) {
        const int early = inflate_into(file.substr(offset), stream.content.size());
        stream.damage_shows_early = early != Z_OK && early != Z_BUF_ERROR;
    }
    return stream;
}

// All streams of a file, in order. Only the last may be incomplete or damaged.
inline std::vector<zlib_stream> split_zlib_streams(std::string_view file)
{
    std::vector<zlib_stream> streams;
    std::size_t offset = 0;
    while (offset < file.size()) {
        streams.push_back(inflate_stream(file, offset));
        offset += streams.back().length;
    }
    return streams;
}

// The decompressed contents of the streams, one string a stream.
inline std::vector<std::string> zlib_contents(std::string_view file)
{
    std::vector<std::string> contents;
    for (const zlib_stream &stream : split_zlib_streams(file)) {
        contents.push_back(stream.content);
    }
    return contents;
}

// One complete stream.
inline std::string deflate_stream(std::string_view content)
{
    uLongf size = compressBound(static_cast<uLong>(content.size()));
    std::string stream(size, '\0');
    (void)compress(reinterpret_cast<Bytef *>(stream.data()), &size,
                   reinterpret_cast<const Bytef *>(content.data()),
                   static_cast<uLong>(content.size()));
    stream.resize(size);
    return stream;
}

#endif
