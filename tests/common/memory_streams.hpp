// Readers and writers over memory, made for tests: they can end, run short or fail at any byte.
#ifndef VESK_TESTS_COMMON_MEMORY_STREAMS_HPP
#define VESK_TESTS_COMMON_MEMORY_STREAMS_HPP

#include <algorithm>
#include <climits>
#include <cstdint>
#include <stdlib.h>
#include <string.h>
#include <string>
#include <utility>
#include <vector>

#include <vesk/reader.h>
#include <vesk/writer.h>

// Gives a stream over `state` to an owner that destroys it: the library frees the stream and its
// implementation, which is therefore a cell of its own.
template <typename Stream, typename State>
Stream *lend_stream(State *state)
{
    auto *stream = static_cast<Stream *>(malloc(sizeof(Stream)));
    auto *cell = static_cast<State **>(malloc(sizeof(State *)));
    *cell = state;
    *stream = state->template stream<State **>(cell);
    return stream;
}

// A writer that keeps what it is given, and refuses with `failure` what would pass `capacity` bytes
// in all. Pass get() to functions that use a writer, and lend() to those that take it over.
class memory_writer
{
public:
    explicit memory_writer(std::size_t capacity = SIZE_MAX, int failure = -41)
        : capacity_(capacity), failure_(failure)
    {
        writer_ = stream<memory_writer *>(this);
    }
    memory_writer(const memory_writer &) = delete;
    memory_writer &operator=(const memory_writer &) = delete;

    writer *get() { return &writer_; }
    // The memory_writer must outlive what it lends.
    writer *lend() { return lend_stream<writer>(this); }

    // The n-th write from now on fails, however much room there is.
    void fail_at(int n) { writes_left_ = n; }

    const std::string &bytes() const { return bytes_; }
    // The sizes of the writes that were taken.
    const std::vector<uint32_t> &writes() const { return writes_; }
    int flushes() const { return flushes_; }
    // How many lent writers were destroyed.
    int destroyed() const { return destroyed_; }

    // The record of a writer whose implementation is `implementation`: this object or a cell that
    // points to it.
    template <typename Implementation>
    static writer stream(Implementation implementation)
    {
        writer w = {};
        w.version = 1;
        w.type = WRITER_TYPE_RAW;
        w.writer = implementation;
        w.fn_destruct = [](void *self) {
            ++of(static_cast<Implementation>(self))->destroyed_;
            return 0;
        };
        w.fn_write_bytes = [](void *self, const void *data, uint32_t n) {
            return of(static_cast<Implementation>(self))->write(data, n);
        };
        w.fn_flush = [](void *self) {
            ++of(static_cast<Implementation>(self))->flushes_;
            return 0;
        };
        return w;
    }

private:
    static memory_writer *of(memory_writer *self) { return self; }
    static memory_writer *of(memory_writer **cell) { return *cell; }

    int write(const void *data, uint32_t n)
    {
        if (writes_left_ > 0 && --writes_left_ == 0) {
            return failure_;
        }
        if (n > capacity_ - bytes_.size()) {
            return failure_;
        }
        bytes_.append(static_cast<const char *>(data), n);
        writes_.push_back(n);
        return static_cast<int>(n);
    }

    writer writer_ = {};
    std::string bytes_;
    std::vector<uint32_t> writes_;
    std::size_t capacity_;
    int failure_;
    int writes_left_ = 0;
    int flushes_ = 0;
    int destroyed_ = 0;
};

// A reader over given bytes. With `failure` set, that code comes instead of the end. Pass get() to
// functions that use a reader, and lend() to those that take it over.
class memory_reader
{
public:
    explicit memory_reader(std::string bytes, int failure = 0)
        : bytes_(std::move(bytes)), failure_(failure)
    {
        reader_ = stream<memory_reader *>(this);
    }
    memory_reader(const memory_reader &) = delete;
    memory_reader &operator=(const memory_reader &) = delete;

    reader *get() { return &reader_; }
    // The memory_reader must outlive what it lends.
    reader *lend() { return lend_stream<reader>(this); }

    // No read yields more than `n` bytes from now on.
    void limit_reads(uint32_t n) { most_ = n; }

    std::size_t consumed() const { return position_; }
    // The sizes that were asked for.
    const std::vector<uint32_t> &reads() const { return reads_; }
    // How many lent readers were destroyed.
    int destroyed() const { return destroyed_; }

    // The record of a reader whose implementation is `implementation`: this object or a cell that
    // points to it.
    template <typename Implementation>
    static reader stream(Implementation implementation)
    {
        reader r = {};
        r.version = 1;
        r.type = READER_TYPE_RAW;
        r.reader = implementation;
        r.fn_destruct = [](void *self) {
            ++of(static_cast<Implementation>(self))->destroyed_;
            return 0;
        };
        r.fn_read_bytes = [](void *self, void *buffer, uint32_t n) {
            return of(static_cast<Implementation>(self))->read(buffer, n);
        };
        r.fn_eof = [](void *self) {
            return static_cast<int>(of(static_cast<Implementation>(self))->eof_);
        };
        return r;
    }

private:
    static memory_reader *of(memory_reader *self) { return self; }
    static memory_reader *of(memory_reader **cell) { return *cell; }

    int read(void *buffer, uint32_t n)
    {
        reads_.push_back(n);
        const std::size_t wanted = std::min(n, most_);
        const std::size_t count = std::min(wanted, bytes_.size() - position_);
        if (count < wanted) {
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
    std::vector<uint32_t> reads_;
    std::size_t position_ = 0;
    uint32_t most_ = UINT32_MAX;
    int failure_;
    bool eof_ = false;
    int destroyed_ = 0;
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
