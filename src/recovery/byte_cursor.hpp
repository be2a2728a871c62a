// Bytes in memory that are taken field by field, as the stored forms have them.
//
// In: any bytes, which must outlive the cursor. Out: the fields in order. Nothing is assumed about
// the bytes: once a field is missing or was refused, ok() is false, this and all further fields
// are 0 or null, and nothing behind the end is looked at.
#ifndef VESK_RECOVERY_BYTE_CURSOR_HPP
#define VESK_RECOVERY_BYTE_CURSOR_HPP

#include <bit>
#include <cstdint>
#include <string.h>

#include "io/fields.hpp"
#include "support/big_endian.hpp"

class byte_cursor
{
public:
    byte_cursor(const unsigned char *bytes, std::size_t n) : begin_(bytes), at_(bytes), left_(n) {}

    bool ok() const { return ok_; }
    std::size_t left() const { return left_; }
    std::size_t position() const { return static_cast<std::size_t>(at_ - begin_); }
    void fail() { ok_ = false; }

    // The next `n` bytes; null when they are not there.
    const unsigned char *take(std::size_t n)
    {
        if (!ok_ || n > left_) {
            ok_ = false;
            return nullptr;
        }
        const unsigned char *taken = at_;
        at_ += n;
        left_ -= n;
        return taken;
    }
    uint8_t byte()
    {
        const unsigned char *taken = take(1);
        return taken == nullptr ? uint8_t(0) : *taken;
    }
    uint32_t u32()
    {
        uint32_t stored = 0;
        if (const unsigned char *taken = take(sizeof stored)) {
            memcpy(&stored, taken, sizeof stored);
        }
        return big_endian(stored);
    }
    float f32() { return std::bit_cast<float>(u32()); }
    // A count or length, which must lie in lowest .. 10000.
    uint32_t count(uint32_t lowest)
    {
        const uint32_t n = u32();
        if (n < lowest || n > max_stored_count) {
            ok_ = false;
        }
        return ok_ ? n : 0;
    }
    // The version byte of a form.
    void version(uint8_t expected)
    {
        if (byte() != expected) {
            ok_ = false;
        }
    }

private:
    const unsigned char *begin_;
    const unsigned char *at_;
    std::size_t left_;
    bool ok_ = true;
};

#endif
