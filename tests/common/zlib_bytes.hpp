// Compressed data made by zlib itself, to compare with and to read from.
#ifndef VESK_TESTS_COMMON_ZLIB_BYTES_HPP
#define VESK_TESTS_COMMON_ZLIB_BYTES_HPP

#include <cstdint>
#include <string>
#include <zlib.h>

// One complete stream of the default level.
inline std::string compressed_stream(const std::string &content)
{
    uLongf size = compressBound(content.size());
    std::string stream(size, '\0');
    compress(reinterpret_cast<Bytef *>(stream.data()), &size,
             reinterpret_cast<const Bytef *>(content.data()), content.size());
    stream.resize(size);
    return stream;
}

// Bytes that cannot be compressed, the same in every run.
inline std::string noise(std::size_t size, uint32_t seed = 1)
{
    std::string bytes;
    for (std::size_t i = 0; i < size; ++i) {
        seed = seed * 1664525 + 1013904223;
        bytes += static_cast<char>(seed >> 24);
    }
    return bytes;
}

// Bytes that compress as telemetry does: slowly changing numbers.
inline std::string telemetry_like(std::size_t size, uint32_t seed = 1)
{
    std::string bytes;
    for (uint32_t i = 0; bytes.size() < size; ++i) {
        seed = seed * 1664525 + 1013904223;
        bytes += std::to_string(1000 + i / 7 + (seed >> 30)) + ",";
    }
    bytes.resize(size);
    return bytes;
}

#endif
