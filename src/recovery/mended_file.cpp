// Writes a recovered buffer. Ranges of the old file are copied byte for byte, or are collected for
// FILE.torn; new content is compressed into one or more streams. Without an output nothing is read
// or written, so that planning a recovery runs the same code as carrying it out.
#include "recovery/mended_file.hpp"

#include <algorithm>
#include <fcntl.h>
#include <stdio.h>
#include <zlib.h>

#include "box/plain_file.hpp"
#include "support/object.hpp"

int mended_output::open_source(const char *filename)
{
    if (output_ == nullptr) {
        return 0;
    }
    // The name may stand for something else by now: a link must not be followed.
    source_ = _vesk_open_plain_file(filename, O_RDONLY);
    return source_ ? 0 : QE_ERROR_OPEN;
}

int mended_output::copy(uint64_t offset, uint64_t length, uint64_t price)
{
    price_ += price;
    return give(offset, length, &mended_output::write);
}

int mended_output::set_aside(uint64_t offset, uint64_t length)
{
    return give(offset, length, &mended_output::keep_torn);
}

int mended_output::write(const unsigned char *bytes, std::size_t n)
{
    written_ += n;
    return fwrite(bytes, 1, n, output_->buffer) == n ? 0 : QE_ERROR_IO;
}

int mended_output::keep_torn(const unsigned char *bytes, std::size_t n)
{
    return output_->torn.append(bytes, n) ? 0 : QE_ERROR_NO_MEMORY;
}

// Reads a piece of the file and passes it to `to`.
int mended_output::give(uint64_t offset, uint64_t length,
                        int (mended_output::*to)(const unsigned char *, std::size_t))
{
    if (output_ == nullptr) {
        return 0;
    }
    if (fseeko(source_.get(), static_cast<off_t>(offset), SEEK_SET) != 0) {
        return QE_ERROR_IO;
    }
    unsigned char piece[4096];
    while (length > 0) {
        const auto n = static_cast<std::size_t>(std::min<uint64_t>(length, sizeof piece));
        if (_vesk_read_some(source_.get(), piece, n) != n) {
            return QE_ERROR_IO;
        }
        const int given = (this->*to)(piece, n);
        if (given != 0) {
            return given;
        }
        length -= n;
    }
    return 0;
}

int mended_output::write_stream(mended_content *content)
{
    const byte_list &bytes = content->bytes();
    price_ += content->price();
    int result = 0;
    std::size_t begin = 0;
    for (const std::size_t end : content->part_ends()) {
        result = result != 0 ? result : write_compressed(bytes.begin() + begin, end - begin);
        begin = end;
    }
    if (result == 0) {
        result = write_compressed(bytes.begin() + begin, bytes.size() - begin);
    }
    content->clear();
    return result;
}

int mended_output::write_compressed(const unsigned char *bytes, std::size_t n)
{
    if (output_ == nullptr || n == 0) {
        return 0;
    }
    uLongf size = compressBound(static_cast<uLong>(n));
    const owned_memory<unsigned char> compressed(allocate<unsigned char>(size));
    if (!compressed || compress(compressed.get(), &size, bytes, static_cast<uLong>(n)) != Z_OK) {
        return QE_ERROR_NO_MEMORY;
    }
    return write(compressed.get(), size);
}

// By a stream that holds nothing, in as many blocks as it takes.
int mended_output::make_long_enough(uint64_t fixed_part)
{
    if (output_ == nullptr) {
        return 0;
    }
    constexpr unsigned char header[] = {0x78, 0x01};
    constexpr unsigned char block[] = {0, 0, 0, 0xff, 0xff};
    constexpr unsigned char last_block_and_checksum[] = {1, 0, 0, 0xff, 0xff, 0, 0, 0, 1};
    if (price_ <= written_ + fixed_part) {
        return 0;
    }
    int result = write(header, sizeof header);
    while (result == 0 && price_ > written_ + sizeof last_block_and_checksum + fixed_part) {
        result = write(block, sizeof block);
    }
    return result != 0 ? result : write(last_block_and_checksum, sizeof last_block_and_checksum);
}
