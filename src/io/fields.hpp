// Records are written and read field by field, in order, without looking ahead. These two classes
// carry the running total and the first failure, so that a serializer reads like the table of its
// record.
#ifndef VESK_IO_FIELDS_HPP
#define VESK_IO_FIELDS_HPP

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include <vesk/binary_serializer_common.h>
#include <vesk/error.h>
#include <vesk/reader.h>
#include <vesk/vesk_limits.h>
#include <vesk/writer.h>

#include "io/reader_internal.hpp"
#include "io/writer_internal.hpp"
#include "support/big_endian.hpp"
#include "support/bits.hpp"

// The most entries of a list and the longest string that a stored form may have.
inline constexpr uint32_t max_stored_count = VESK_MAX_COUNT;

// The bytes of numbers that go to a stream in one call, and those that come from one: zlib inflates
// slower near the end of what is asked for.
inline constexpr uint32_t field_block_size = 2048;
inline constexpr uint32_t field_read_size = 8192;

// Writes fields until one fails; its result is then the result of the record.
class field_writer
{
public:
    explicit field_writer(writer *target) : target_(target) {}

    field_writer &bytes(const void *data, uint32_t n)
    {
        return add([&] { return writer_write_bytes(target_, data, n); });
    }
    field_writer &byte(uint8_t value) { return bytes(&value, sizeof value); }
    field_writer &u32(uint32_t value)
    {
        const uint32_t stored = big_endian(value);
        return bytes(&stored, sizeof stored);
    }
    field_writer &u64(uint64_t value)
    {
        const uint64_t stored = big_endian(value);
        return bytes(&stored, sizeof stored);
    }
    field_writer &f32(const float &value) { return u32(bits_of(value)); }
    field_writer &f64(const double &value) { return u64(bits_of(value)); }
    // `count` floats; bits(i) gives those of number i.
    template <typename Bits>
    field_writer &f32s(uint32_t count, Bits bits)
    {
        return numbers<uint32_t>(count, bits);
    }
    // `count` words; word(i) gives number i.
    template <typename Get>
    field_writer &u32s(uint32_t count, Get word)
    {
        return numbers<uint32_t>(count, word);
    }
    // `count` doubles.
    template <typename Bits>
    field_writer &f64s(uint32_t count, Bits bits)
    {
        return numbers<uint64_t>(count, bits);
    }
    // A nested form, by its own write function.
    template <typename T>
    field_writer &form(int (*write)(const T *, writer *), const T *object)
    {
        return add([&] { return write(object, target_); });
    }
    field_writer &string(const char *text)
    {
        return add([&] { return binary_serializer_write_string(text, target_); });
    }

    field_writer &fail(int code)
    {
        return add([code] { return code; });
    }

    bool failed() const { return result_ < 0; }
    // The sum of what the writer reported, or the first negative result.
    int result() const { return result_; }

private:
    // Numbers of the width of `Word` go to the library's own streams in blocks, which put the same
    // bytes on disk however they are cut: one call for each number would cost more than the number
    // itself. A caller's own writer gets the numbers one by one.
    template <typename Word, typename Bits>
    field_writer &numbers(uint32_t count, Bits bits)
    {
        constexpr uint32_t size = field_block_size / sizeof(Word);
        Word block[size];
        const uint32_t most = _writer_takes_blocks(target_) ? size : 1;
        for (uint32_t done = 0; done < count && !failed();) {
            const uint32_t n = std::min(count - done, most);
            for (uint32_t i = 0; i < n; ++i) {
                block[i] = big_endian(Word{bits(done + i)});
            }
            bytes(block, n * static_cast<uint32_t>(sizeof block[0]));
            done += n;
        }
        return *this;
    }

    template <typename Write>
    field_writer &add(Write write)
    {
        if (!failed()) {
            const int written = write();
            result_ = written < 0 ? written : result_ + written;
        }
        return *this;
    }

    writer *target_;
    int result_ = 0;
};

// Reads fields until one fails. The end of the data is clean (result 0) only before the first
// field; later it is QE_ERROR_TRUNCATED (-48). A field that is not read leaves its destination
// alone.
class field_reader
{
public:
    explicit field_reader(reader *source) : source_(source) {}

    field_reader &bytes(void *data, uint32_t n)
    {
        uint32_t size = 0;
        const uint8_t *held = _zlib_reader_peek(source_, &size);
        if (n == 0 || n > size) {
            return add([&] { return binary_serializer_read_bytes(data, n, source_); });
        }
        return add([&] {
            memcpy(data, held, n);
            _zlib_reader_skip(source_, n);
            return static_cast<int>(n);
        });
    }
    field_reader &byte(uint8_t *value) { return bytes(value, sizeof *value); }
    // The version byte that begins a form; QE_ERROR_BAD_VERSION (-12) for any other than
    // `expected`.
    field_reader &version(uint8_t expected)
    {
        uint8_t found = expected;
        byte(&found);
        return found == expected ? *this : fail(QE_ERROR_BAD_VERSION);
    }
    field_reader &u32(uint32_t *value)
    {
        uint32_t stored = 0;
        if (bytes(&stored, sizeof stored).ok()) {
            *value = big_endian(stored);
        }
        return *this;
    }
    field_reader &f32(float *value)
    {
        uint32_t bits = 0;
        if (u32(&bits).ok()) {
            set_bits(value, bits);
        }
        return *this;
    }
    field_reader &u64(uint64_t *value)
    {
        uint64_t stored = 0;
        if (bytes(&stored, sizeof stored).ok()) {
            *value = big_endian(stored);
        }
        return *this;
    }
    field_reader &f64(double *value)
    {
        uint64_t bits = 0;
        if (u64(&bits).ok()) {
            set_bits(value, bits);
        }
        return *this;
    }
    // `count` floats.
    field_reader &f32s(float *values, uint32_t count)
    {
        return numbers<uint32_t>(count,
                                 [=](uint32_t i, uint32_t bits) { set_bits(values + i, bits); });
    }
    // `count` words; set(i, word) takes number i.
    template <typename Set>
    field_reader &u32s(uint32_t count, Set set)
    {
        return numbers<uint32_t>(count, set);
    }
    // `count` doubles.
    field_reader &f64s(double *values, uint32_t count)
    {
        return numbers<uint64_t>(count,
                                 [=](uint32_t i, uint64_t bits) { set_bits(values + i, bits); });
    }
    // A nested form, by its own read function, into an object that is already initialised.
    template <typename T, typename Read>
    field_reader &form(Read read, T *object)
    {
        return add([&] { return read(object, source_); });
    }
    // A string from malloc(), which the caller frees; null when it could not be read.
    field_reader &string(char **text)
    {
        return add([&] {
            int consumed = 0;
            *text = binary_serializer_read_string(source_, &consumed);
            return *text == nullptr ? qe_get_last_error() : consumed;
        });
    }
    // As string(), for a place that may hold an older text: that is freed once the new one is
    // there.
    field_reader &replace_string(char **place)
    {
        char *text = nullptr;
        if (string(&text).ok()) {
            free(*place);
            *place = text;
        }
        return *this;
    }

    // Bytes that were taken from the stream otherwise.
    field_reader &held(int consumed)
    {
        return add([=] { return consumed; });
    }

    field_reader &fail(int code)
    {
        if (ok()) {
            failure_ = code;
        }
        return *this;
    }

    // False after a failure and after the clean end.
    bool ok() const { return failure_ == 0 && !at_end_; }
    // The bytes consumed, 0 at the clean end, or the code of the first failure.
    int result() const { return failure_ < 0 ? failure_ : total_; }

private:
    // Numbers of the width of `Word`: in blocks from the library's own streams, which give the same
    // bytes as for one number at a time, else one by one (the garbage reader draws its errors by
    // the call). Where the data end or are damaged among them, those before that are kept.
    template <typename Word, typename Set>
    field_reader &numbers(uint32_t count, Set set)
    {
        constexpr uint32_t size = field_read_size / sizeof(Word);
        Word block[size];
        const uint32_t most = _reader_gives_blocks(source_) ? size : 1;
        for (uint32_t done = 0; done < count && ok();) {
            const uint32_t n = std::min(count - done, most);
            uint32_t came = 0;
            // Bytes that did not come must be zero before the garbage reader changes them.
            block[0] = 0;
            add([&] { return read_block(block, n * sizeof(Word), &came); });
            if (came == 0 && !ok()) {
                set_those_before_damage(block, done, set);
                return *this;
            }
            const uint32_t whole = came / sizeof(Word);
#pragma GCC unroll 8
            for (uint32_t i = 0; i < whole; ++i) {
                set(done + i, big_endian(block[i]));
            }
            done += n;
        }
        return *this;
    }

    template <typename Word, typename Set>
    [[gnu::noinline, gnu::cold]] void set_those_before_damage(const Word *block, uint32_t first,
                                                              Set set)
    {
        const uint32_t whole = _zlib_reader_came(source_) / sizeof(Word);
        for (uint32_t i = 0; i < whole; ++i) {
            set(first + i, big_endian(block[i]));
        }
    }

    // As binary_serializer_read_bytes(), telling also what came before the end.
    int read_block(void *block, uint32_t size, uint32_t *came)
    {
        const int nread = reader_read_bytes(source_, block, size);
        if (nread <= 0) {
            return nread;
        }
        *came = std::min(static_cast<uint32_t>(nread), size);
        return static_cast<uint32_t>(nread) == size ? nread : QE_ERROR_TRUNCATED;
    }

    template <typename Read>
    field_reader &add(Read read)
    {
        if (!ok()) {
            return *this;
        }
        const int consumed = read();
        if (consumed > 0) {
            total_ += consumed;
        } else if (consumed < 0) {
            failure_ = consumed;
        } else if (total_ == 0) {
            at_end_ = true;
        } else {
            failure_ = QE_ERROR_TRUNCATED;
        }
        return *this;
    }

    reader *source_;
    int total_ = 0;
    int failure_ = 0;
    bool at_end_ = false;
};

#endif
