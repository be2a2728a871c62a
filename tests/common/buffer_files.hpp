// The stored forms of buffer files, spelt out without the library.
#ifndef VESK_TESTS_COMMON_BUFFER_FILES_HPP
#define VESK_TESTS_COMMON_BUFFER_FILES_HPP

#include <algorithm>
#include <bit>
#include <cstdint>
#include <string>
#include <vector>

#include "common/memory_streams.hpp"
#include "common/zlib_bytes.hpp"

inline std::string stored_f32(float value)
{
    return stored_u32(std::bit_cast<uint32_t>(value));
}

inline std::string stored_string(const std::string &text)
{
    return stored_u32(static_cast<uint32_t>(text.size())) + text;
}

inline std::string stored_timestamp(uint32_t seconds)
{
    return '\1' + stored_u32(seconds) + stored_u32(0);
}

// What a buffer file begins with: kind 1 for raw samples, 2 for intervals.
inline std::string stored_buffer_header(uint32_t kind, uint32_t capacity)
{
    return stored_u32(kind) + '\1' + stored_u32(capacity);
}

// In both kinds of buffer.
inline std::string stored_names_record(uint32_t seconds, const std::vector<std::string> &names)
{
    std::string record = stored_u32(1) + '\1' + stored_timestamp(seconds) + '\1' +
                         stored_u32(static_cast<uint32_t>(names.size()));
    for (const std::string &name : names) {
        record += '\1' + stored_string(name);
    }
    return record;
}

inline std::string stored_values_record(uint32_t seconds, const std::vector<float> &values)
{
    std::string record = stored_u32(2) + '\1' + stored_timestamp(seconds) +
                         stored_u32(static_cast<uint32_t>(values.size()));
    for (const float value : values) {
        record += stored_f32(value);
    }
    return record;
}

inline std::string stored_event_body(uint32_t type, uint32_t seconds, const std::string &text)
{
    return '\1' + stored_u32(type) + stored_timestamp(seconds) + stored_string(text);
}

inline std::string stored_event_record(uint32_t type, uint32_t seconds, const std::string &text)
{
    return stored_u32(3) + stored_event_body(type, seconds, text);
}

// An event in a stream whose checksum ends with these one or two bytes.
inline std::string event_stream_that_ends_with(uint32_t type, uint32_t seconds,
                                               const std::string &ending)
{
    for (std::size_t length = 1;; ++length) {
        for (char last = 1; last < 'z'; ++last) {
            const std::string record =
                stored_event_record(type, seconds, std::string(length, 'z') + last);
            const uLong sum = adler32(1, reinterpret_cast<const Bytef *>(record.data()),
                                      static_cast<uInt>(record.size()));
            if (stored_u32(static_cast<uint32_t>(sum)).ends_with(ending)) {
                return compressed_stream(record);
            }
        }
    }
}

// A summary: count; least, greatest, first and last value; sums of the first four powers.
inline std::string stored_hist_value(uint32_t count, const std::vector<float> &eight)
{
    std::string form = '\1' + stored_u32(count);
    for (const float value : eight) {
        form += stored_f32(value);
    }
    return form;
}

// What a summary of these samples is, none of which may be missing.
inline std::string stored_summary(const std::vector<float> &samples)
{
    if (samples.empty()) {
        return stored_hist_value(0, std::vector<float>(8, 0.0F));
    }
    float least = samples[0];
    float greatest = samples[0];
    float sums[4] = {0, 0, 0, 0};
    for (const float v : samples) {
        least = std::min(least, v);
        greatest = std::max(greatest, v);
        float power = 1;
        for (float &sum : sums) {
            power *= v;
            sum += power;
        }
    }
    return stored_hist_value(
        static_cast<uint32_t>(samples.size()),
        {least, greatest, samples.front(), samples.back(), sums[0], sums[1], sums[2], sums[3]});
}

// Counts of the events of types 1 to 5.
struct event_counts {
    uint32_t type1 = 0;
    uint32_t type2 = 0;
    uint32_t type3 = 0;
    uint32_t type4 = 0;
    uint32_t type5 = 0;
};

// An interval with summaries that are already in stored form.
inline std::string stored_interval_record(uint32_t start, uint32_t end,
                                          const std::vector<std::string> &summaries,
                                          const event_counts &events = {})
{
    std::string record = stored_u32(2) + '\2' + stored_timestamp(start) + stored_timestamp(end) +
                         stored_u32(static_cast<uint32_t>(summaries.size()));
    for (const std::string &summary : summaries) {
        record += summary;
    }
    return record + '\1' + stored_u32(events.type1) + stored_u32(events.type4) +
           stored_u32(events.type2) + stored_u32(events.type3) + stored_u32(events.type5);
}

#endif
