// Records as they lie in memory, read without trust: a record is measured before anything is made
// of it, and measuring looks at nothing that is not there.
#ifndef VESK_RECOVERY_RECORDS_HPP
#define VESK_RECOVERY_RECORDS_HPP

#include <bit>
#include <cstdint>
#include <string.h>

#include <vesk/vesk_buffer.h>
#include <vesk/vesk_cb_record.h>
#include <vesk/vesk_hb_record.h>
#include <vesk/vesk_scan.h>

#include "io/fields.hpp"
#include "support/big_endian.hpp"
#include "support/owner.hpp"

// Bytes that are taken field by field; once one is missing, all further ones are.
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

// One record with what was made of it.
struct scanned_record {
    vesk_scan_kind kind = VESK_SCAN_DAMAGE;
    int error = 0;
    owned<vesk_cb_record_sensor_names, vesk_cb_record_sensor_names_destroy> names;
    owned<vesk_cb_record_sensor_values, vesk_cb_record_sensor_values_destroy> values;
    owned<vesk_cb_record_event, vesk_cb_record_event_destroy> event;
    owned<vesk_hb_record_sensor_values, vesk_hb_record_sensor_values_destroy> interval;
};

// The length of the record that `bytes` begin with in a buffer of the given kind; 0 when they do
// not begin with a whole one.
std::size_t _vesk_measure_record(uint32_t buffer_kind, const unsigned char *bytes, std::size_t n);

// How many of the bytes are whole records, from the first byte on; `n` when they are nothing else.
std::size_t _vesk_measure_records(uint32_t buffer_kind, const unsigned char *bytes, std::size_t n);

// Whether `bytes` are nothing but whole records.
bool _vesk_are_records(uint32_t buffer_kind, const unsigned char *bytes, std::size_t n);

// Makes the record that was measured to be `n` bytes long. 0, or -22.
int _vesk_build_record(uint32_t buffer_kind, const unsigned char *bytes, std::size_t n,
                       scanned_record *record);

#endif
