// How many records of a buffer file are made, so that a small file cannot ask for much work.
//
// In: the size of the file, its fixed part (see scan_limits.hpp), the capacity that its header
// states, and each record as it is met. Out: whether it may be made. A recorder writes one sample,
// interval or event into a stream, and these are always free. Everything else is charged: a record
// one unit and one more for each kilobyte of it, sensors one unit each. The budget is one unit for
// each byte of the file, and the fixed part. Padding is many records in one stream; it costs its
// kilobytes only, up to as many records as the capacity, because nothing of it is kept.
//
// No buffer of a recorder meets it: the shortest stored name takes more than a byte of the file, a
// kilobyte of content cannot be stored in less than one byte, and padding ends at the capacity.
#ifndef VESK_RECOVERY_RECORD_BUDGET_HPP
#define VESK_RECOVERY_RECORD_BUDGET_HPP

#include <algorithm>
#include <cstdint>

#include "recovery/scan_limits.hpp"

class record_budget
{
public:
    record_budget(uint64_t file_size, uint64_t fixed_part) : left_(file_size + fixed_part) {}

    void allow_capacity(uint32_t capacity) { padding_left_ = std::min(capacity, most_padding); }

    void begin_stream() { is_free_ = true; }

    // Whether the next record of the stream is the one that is free.
    bool is_free() const { return is_free_; }

    // A sample, an interval or an event. False when it may not be made.
    bool take_record(uint64_t length, bool is_padding)
    {
        if (is_free_) {
            is_free_ = false;
            return true;
        }
        if (is_padding && padding_left_ > 0) {
            --padding_left_;
            return charge(price_of_record(length, true));
        }
        return charge(price_of_record(length, false));
    }
    // Names of so many sensors.
    bool take_names(uint32_t n, uint64_t length) { return charge(price_of_names(n, length)); }

    // What is charged for them where they are not free.
    static uint64_t price_of_record(uint64_t length, bool is_padding)
    {
        return (is_padding ? 0 : 1) + length / bytes_of_a_unit;
    }
    static uint64_t price_of_names(uint32_t n, uint64_t length)
    {
        return n + length / bytes_of_a_unit;
    }

private:
    static constexpr uint64_t bytes_of_a_unit = 1024;

    bool charge(uint64_t units)
    {
        if (units > left_) {
            left_ = 0;
            return false;
        }
        left_ -= units;
        return true;
    }

    uint64_t left_;
    uint32_t padding_left_ = 0;
    bool is_free_ = true;
};

#endif
