// The primitive stored forms, all big-endian:
//
//   form    layout
//   bytes   n raw bytes, n fixed by the record
//   string  length L (4 bytes), then L bytes of text without terminator; L is 1..10000, and 0 can
//           be written but not read
//   float   IEEE 754 single precision, 4 bytes
//   double  IEEE 754 double precision, 8 bytes
#include <bit>
#include <cstring>

#include <vesk/binary_serializer_common.h>
#include <vesk/error.h>

#include "io/fields.hpp"
#include "support/big_endian.hpp"
#include "support/object.hpp"
#include "support/owner.hpp"
#include "support/precondition.hpp"

int binary_serializer_read_bytes(void *buffer, uint32_t buflen, reader *r)
{
    VESK_REQUIRE(buffer != nullptr, "buffer != ((void *)0)");
    VESK_REQUIRE(buflen > 0, "buflen > 0");
    VESK_REQUIRE(r != nullptr, "reader != ((void *)0)");
    const int nread = reader_read_bytes(r, buffer, buflen);
    const bool is_short = nread > 0 && static_cast<uint32_t>(nread) != buflen;
    return is_short ? QE_ERROR_TRUNCATED : nread;
}

int binary_serializer_write_string(const char *str, writer *w)
{
    VESK_REQUIRE(str != nullptr, "str != ((void *)0)");
    VESK_REQUIRE(w != nullptr, "writer != ((void *)0)");
    const size_t length = strlen(str);
    if (length > max_stored_count) {
        return QE_ERROR_LIMIT;
    }
    const auto stored_length = static_cast<uint32_t>(length);
    return field_writer(w).u32(stored_length).bytes(str, stored_length).result();
}

// Reads the length of a string. Returns 0 or the code of the failure.
static int _read_length(reader *r, uint32_t *length)
{
    uint32_t stored = 0;
    const int nread = reader_read_bytes(r, &stored, sizeof stored);
    if (nread < 0) {
        return nread;
    }
    if (nread == 0) {
        VESK_REQUIRE(reader_eof(r), "reader_eof (reader)");
        return QE_ERROR_END_OF_RECORDS;
    }
    if (static_cast<uint32_t>(nread) != sizeof stored) {
        return QE_ERROR_TRUNCATED;
    }
    *length = big_endian(stored);
    // A length of 0 wraps around and is too long, too.
    return *length - 1 < max_stored_count ? 0 : QE_ERROR_MALFORMED;
}

// Fills `text` with `length` bytes and a terminator. Returns 0 or the code of the failure.
static int _read_text(reader *r, char *text, uint32_t length)
{
    const int nread = binary_serializer_read_bytes(text, length, r);
    VESK_REQUIRE(nread != 0, "nread != 0");
    if (nread < 0) {
        return nread;
    }
    text[length] = '\0';
    return strlen(text) == length ? 0 : QE_ERROR_MALFORMED;
}

char *binary_serializer_read_string(reader *r, int *nread)
{
    VESK_REQUIRE(r != nullptr, "reader != ((void *)0)");
    if (nread != nullptr) {
        *nread = 0;
    }
    uint32_t length = 0;
    int result = _read_length(r, &length);
    if (result < 0) {
        qe_set_last_error(result);
        return nullptr;
    }
    owned_memory<char> text(allocate<char>(size_t{length} + 1));
    if (!text) {
        return nullptr;
    }
    result = _read_text(r, text.get(), length);
    if (result < 0) {
        qe_set_last_error(result);
        return nullptr;
    }
    if (nread != nullptr) {
        *nread = static_cast<int>(sizeof length + length);
    }
    return text.release();
}

// Between host order and stored order, either way, by bits: a value that the processor converts or
// computes with could lose the bits of a NaN.
static float _stored_order(float value)
{
    return std::bit_cast<float>(big_endian(std::bit_cast<uint32_t>(value)));
}

static double _stored_order(double value)
{
    return std::bit_cast<double>(big_endian(std::bit_cast<uint64_t>(value)));
}

float hton_float(float f)
{
    return _stored_order(f);
}

float ntoh_float(float f)
{
    return _stored_order(f);
}

double hton_double(double d)
{
    return _stored_order(d);
}

double ntoh_double(double d)
{
    return _stored_order(d);
}
