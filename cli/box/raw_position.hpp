// A place among the raw samples and events of a box: recorders number their buffers upwards and
// only append to the newest one, so a file and a number of records name a place that stays the
// same.
#ifndef VESK_CLI_BOX_RAW_POSITION_HPP
#define VESK_CLI_BOX_RAW_POSITION_HPP

#include <cstdint>

#include "box/box.hpp"

namespace cli
{

struct raw_position {
    uint32_t file = 0;    // the number in its name
    uint64_t records = 0; // samples and events of it that lie before the place

    bool operator==(const raw_position &) const = default;
    bool is_before(const raw_position &other) const
    {
        return file != other.file ? file < other.file : records < other.records;
    }
};

// The number in "BASE.12.cbuf.z"; 0 when there is none.
uint32_t number_of_file(const stored_file &file);

// A sample with names that fit it.
bool is_sample(const vesk_scan_item &item);
// What a place counts: such a sample, or an event.
bool is_raw_record(const vesk_scan_item &item);

} // namespace cli

#endif
