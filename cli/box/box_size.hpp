// How far back a box of some shape reaches and how many bytes it takes on the disk, calculated
// from the sizes of its records. Nothing is read or written here.
#ifndef VESK_CLI_BOX_BOX_SIZE_HPP
#define VESK_CLI_BOX_BOX_SIZE_HPP

#include <cstdint>
#include <span>
#include <string>

#include "box/box_shape.hpp"

namespace cli
{

// What one record of each kind takes in a file, in bytes.
struct record_bytes {
    double names = 0;
    double sample = 0;
    double interval = 0;
};

// What the records of these sensors take when nothing in them can be compressed.
record_bytes largest_records(std::span<const std::string> names);

// The samples before the newest one that a box keeps once it has a history: at least so many right
// after its buffers took turns, at most so many before that.
struct reach {
    uint64_t least = 0;
    uint64_t most = 0;
};

// In full detail.
reach raw_reach(const whole_shape &shape);
// Until the oldest interval, which sums up all that is older.
reach history_reach(const whole_shape &shape);

// A box that has its history, full, without events.
uint64_t usual_bytes(const whole_shape &shape, const record_bytes &records);
// All files at the moment when they take the most: while buffers take turns, or while the open one
// is written anew after a crash. With @p event_bytes for each buffer that holds raw samples, and
// for the events that wait.
uint64_t most_bytes(const whole_shape &shape, const record_bytes &records, uint64_t event_bytes);

} // namespace cli

#endif
