// What the compressing writer and the decompressing reader agree on: the size of the blocks in
// which they work, and the version of zlib's interface that both ask for.
#ifndef VESK_IO_ZLIB_FORMAT_HPP
#define VESK_IO_ZLIB_FORMAT_HPP

#include <cstdint>
#include <zlib.h>

// Input and output move in blocks of this size.
inline constexpr uint32_t zlib_block_size = 2048;

// The interface of zlib that is asked for, and the size of its stream structure, which the
// initialisers compare with their own.
inline constexpr char zlib_interface_version[] = "1.2.2";
inline constexpr int zlib_stream_size = static_cast<int>(sizeof(z_stream));

#endif
