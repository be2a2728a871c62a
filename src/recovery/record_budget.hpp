// How many records of a buffer file are made, so that a small file cannot ask for much work.
//
// In: the size of the file, the capacity that its header states, and each record as it is met. Out:
// whether it may be made. A recorder writes one sample, interval or event into a stream, and these
// are always free. Everything else is charged: a record one unit and one more for each kilobyte of
// it, sensors one unit each. The budget is one unit for each byte of the file, as many as the
// capacity (padding is many records in one stream), and 65,536.
//
// No buffer of a recorder meets it: the shortest stored name takes more than a byte of the file, a
// kilobyte of content cannot be stored in less than one byte, and padding ends at the capacity.
#ifndef VESK_RECOVERY_RECORD_BUDGET_HPP
#define VESK_RECOVERY_RECORD_BUDGET_HPP

#include <algorithm>
#include <cstdint>

#include "recovery/padding.hpp"

class record_budget
{
public:
    explicit record_budget(uint64_t file_size) : left_(file_size + for_each_file) {}

    void allow_capacity(uint32_t capacity) { left_ += std::min(capacity, most_padding); }

    void begin_stream() { is_free_ = true; }

    // A sample, an interval or an event. False when it may not be made.
    bool take_record(uint64_t length)
    {
        if (is_free_) {
            is_free_ = false;
            return true;
        }
        return charge(1 + length / bytes_of_a_unit);
    }
    // Names of so many sensors.
    bool take_names(uint32_t n, uint64_t length) { return charge(n + length / bytes_of_a_unit); }

private:
    static constexpr uint64_t for_each_file = 65536;
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
    bool is_free_ = true;
};

#endif
