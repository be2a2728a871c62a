// Readers and writers over memory, made for tests: they can end, run short or fail at any byte.
#ifndef VESK_TESTS_COMMON_MEMORY_STREAMS_HPP
#define VESK_TESTS_COMMON_MEMORY_STREAMS_HPP

#include <algorithm>
#include <climits>
#include <cstdint>
#include <string.h>
#include <string>

#include <vesk/reader.h>
#include <vesk/writer.h>

// A writer that keeps what it is given, and refuses with `failure` what would pass `capacity` bytes
// in all. Pass get() to the library; never hand it to somebody who destroys it.
class memory_writer
{
public:
    explicit memory_writer(std::size_t capacity = SIZE_MAX, int failure = -41)
        : capacity_(capacity), failure_(failure)
    {
        writer_.version = 1;
        writer_.type = WRITER_TYPE_RAW;
        writer_.writer = this;
        writer_.fn_destruct = [](void *) { return 0; };
        writer_.fn_write_bytes = [](void *self, const void *data, uint32_t n) {
            return static_cast<memory_writer *>(self)->write(data, n);
        };
        writer_.fn_flush = [](void *self) {
            ++static_cast<memory_writer *>(self)->flushes_;
            return 0;
        };
    }
    memory_writer(const memory_writer &) = delete;
    memory_writer &operator=(const memory_writer &) = delete;

    writer *get() { return &writer_; }
    const std::string &bytes() const { return bytes_; }
    int flushes() const { return flushes_; }

private:
    int write(const void *data, uint32_t n)
    {
        if (n > capacity_ - bytes_.size()) {
            return failure_;
        }
        bytes_.append(static_cast<const char *>(data), n);
        return static_cast<int>(n);
    }

    writer writer_ = {};
    std::string bytes_;
    std::size_t capacity_;
    int failure_;
    int flushes_ = 0;
};

// A reader over given bytes. With `failure` set, that code comes instead of the end.
class memory_reader
{
public:
    explicit memory_reader(std::string bytes, int failure = 0)
        : bytes_(std::move(bytes)), failure_(failure)
    {
        reader_.version = 1;
        reader_.type = READER_TYPE_RAW;
        reader_.reader = this;
        reader_.fn_destruct = [](void *) { return 0; };
        reader_.fn_read_bytes = [](void *self, void *buffer, uint32_t n) {
            return static_cast<memory_reader *>(self)->read(buffer, n);
        };
        reader_.fn_eof = [](void *self) {
            return static_cast<int>(static_cast<memory_reader *>(self)->eof_);
        };
    }
    memory_reader(const memory_reader &) = delete;
    memory_reader &operator=(const memory_reader &) = delete;

    reader *get() { return &reader_; }
    std::size_t consumed() const { return position_; }

private:
    int read(void *buffer, uint32_t n)
    {
        const std::size_t count = std::min<std::size_t>(n, bytes_.size() - position_);
        if (count < n) {
            if (failure_ < 0) {
                return failure_;
            }
            eof_ = true;
        }
        memcpy(buffer, bytes_.data() + position_, count);
        position_ += count;
        return static_cast<int>(count);
    }

    reader reader_ = {};
    std::string bytes_;
    std::size_t position_ = 0;
    int failure_;
    bool eof_ = false;
};

// Stored forms, spelt out: from_hex("00 00 00 02").
inline std::string from_hex(const std::string &text)
{
    std::string bytes;
    std::string digits;
    for (const char c : text) {
        if (isxdigit(static_cast<unsigned char>(c)) != 0) {
            digits += c;
        }
        if (digits.size() == 2) {
            bytes += static_cast<char>(std::stoi(digits, nullptr, 16));
            digits.clear();
        }
    }
    return bytes;
}

// A 32-bit number in stored order.
inline std::string stored_u32(uint32_t value)
{
    return {static_cast<char>(value >> 24), static_cast<char>(value >> 16),
            static_cast<char>(value >> 8), static_cast<char>(value)};
}

#endif
