// Records are written and read field by field, in order, without looking ahead. These two classes
// carry the running total and the first failure, so that a serializer reads like the table of its
// record.
#ifndef VESK_IO_FIELDS_HPP
#define VESK_IO_FIELDS_HPP

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstdlib>
#include <iterator>

#include <vesk/binary_serializer_common.h>
#include <vesk/error.h>
#include <vesk/reader.h>
#include <vesk/writer.h>

#include "support/big_endian.hpp"

// The most entries of a list and the longest string that a stored form may have.
inline constexpr uint32_t max_stored_count = 10000;

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
    field_writer &f32(float value)
    {
        const float stored = hton_float(value);
        return bytes(&stored, sizeof stored);
    }
    field_writer &f64(double value)
    {
        const double stored = hton_double(value);
        return bytes(&stored, sizeof stored);
    }
    // `count` floats; value(i) gives number i.
    template <typename Value>
    field_writer &f32s(uint32_t count, Value value)
    {
        return numbers<uint32_t>(count, value);
    }
    // `count` doubles.
    template <typename Value>
    field_writer &f64s(uint32_t count, Value value)
    {
        return numbers<uint64_t>(count, value);
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
    // Numbers of the width of `Word` go out in blocks: every writer puts the same bytes on disk
    // however they are cut, and one call a number would cost more than the number.
    template <typename Word, typename Value>
    field_writer &numbers(uint32_t count, Value value)
    {
        Word block[2048 / sizeof(Word)];
        for (uint32_t done = 0; done < count && !failed();) {
            const uint32_t n = std::min<uint32_t>(count - done, std::size(block));
            for (uint32_t i = 0; i < n; ++i) {
                block[i] = big_endian(std::bit_cast<Word>(value(done + i)));
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
// field; later it is -48. A field that is not read leaves its destination alone.
class field_reader
{
public:
    explicit field_reader(reader *source) : source_(source) {}

    field_reader &bytes(void *data, uint32_t n)
    {
        return add([&] { return binary_serializer_read_bytes(data, n, source_); });
    }
    field_reader &byte(uint8_t *value) { return bytes(value, sizeof *value); }
    // The version byte that begins a form; -12 for any other than `expected`.
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
        float stored = 0;
        if (bytes(&stored, sizeof stored).ok()) {
            *value = ntoh_float(stored);
        }
        return *this;
    }
    // `count` floats.
    field_reader &f32s(float *values, uint32_t count) { return numbers<uint32_t>(values, count); }
    field_reader &f64(double *value)
    {
        double stored = 0;
        if (bytes(&stored, sizeof stored).ok()) {
            *value = ntoh_double(stored);
        }
        return *this;
    }
    // `count` doubles.
    field_reader &f64s(double *values, uint32_t count) { return numbers<uint64_t>(values, count); }
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
    // Numbers of the width of `Word`, in one piece where the reader is known to give the same bytes
    // as for one number at a time; the garbage reader draws its errors by the call.
    template <typename Word, typename Number>
    field_reader &numbers(Number *values, uint32_t count)
    {
        const bool whole = source_->type == READER_TYPE_RAW || source_->type == READER_TYPE_ZLIB;
        const uint32_t step = whole ? count : 1;
        for (uint32_t done = 0; done < count && ok(); done += step) {
            bytes(values + done, step * static_cast<uint32_t>(sizeof *values));
        }
        if (ok() && std::endian::native != std::endian::big) {
            for (uint32_t i = 0; i < count; ++i) {
                values[i] = std::bit_cast<Number>(big_endian(std::bit_cast<Word>(values[i])));
            }
        }
        return *this;
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
