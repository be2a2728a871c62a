// Calculates reach and size of a box from its shape. The newest buffer that became history has H
// intervals; each older one was merged once more, so that it has half as many, down to one interval
// for all that is older. That makes floor(log2 H) buffers behind the newest.
#include "box/box_size.hpp"

#include <algorithm>
#include <bit>
#include <zlib.h>

namespace cli
{
namespace
{

// The forms of the records, as docs/file-format.md has them.
constexpr uint64_t names_head = 19;
constexpr uint64_t name_head = 5;
constexpr uint64_t sample_head = 18;
constexpr uint64_t value_size = 4;
constexpr uint64_t interval_head = 48; // with the counters of events
constexpr uint64_t summary_size = 37;
// The state file, its copy and the lock, each with a path of this command's longest.
constexpr uint64_t other_files = 16384;

double compressed_at_most(uint64_t size)
{
    return static_cast<double>(compressBound(static_cast<uLong>(size)));
}

double raw_file(const whole_shape &shape, const record_bytes &records)
{
    return records.names + shape.samples * records.sample;
}

double history_file(const whole_shape &shape, const record_bytes &records)
{
    return records.names + 2.0 * shape.intervals * records.interval;
}

} // namespace

record_bytes largest_records(std::span<const std::string> names)
{
    uint64_t text = names_head;
    for (const std::string &name : names) {
        text += name_head + name.size();
    }
    const uint64_t count = names.size();
    return {compressed_at_most(text), compressed_at_most(sample_head + count * value_size),
            compressed_at_most(interval_head + count * summary_size)};
}

reach raw_reach(const whole_shape &shape)
{
    return {shape.samples, uint64_t{2} * shape.samples};
}

reach history_reach(const whole_shape &shape)
{
    const auto merged = static_cast<uint64_t>(std::bit_width(shape.intervals)) - 1;
    const reach raw = raw_reach(shape);
    return {raw.least + (merged + 1) * shape.samples, raw.most + (merged + 1) * shape.samples};
}

uint64_t usual_bytes(const whole_shape &shape, const record_bytes &records)
{
    return static_cast<uint64_t>(2 * raw_file(shape, records) + history_file(shape, records)) +
           other_files;
}

uint64_t most_bytes(const whole_shape &shape, const record_bytes &records, uint64_t event_bytes)
{
    // Before the first history there are three raw buffers, later two and, while they take turns,
    // two histories. A recovery writes one raw buffer anew beside the others.
    const double raw = raw_file(shape, records) + static_cast<double>(event_bytes);
    const double history = history_file(shape, records);
    return static_cast<uint64_t>(3 * raw + std::max(raw, 2 * history)) + event_bytes + other_files;
}

} // namespace cli
