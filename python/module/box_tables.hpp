// The content of a box as tables: raw samples, intervals of the history, and events. A box is read
// once for each table, from files that are held open, so it may be written to meanwhile. No content
// ends the process; what cannot be read is told as the messages of cli/process/terminal.hpp.
#ifndef VESK_PYTHON_BOX_TABLES_HPP
#define VESK_PYTHON_BOX_TABLES_HPP

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "growing_array.hpp"

namespace vesk_python
{

// A moment, or its distance from the end of the box.
struct bound {
    int64_t seconds;
    bool from_end;
};

// What a table shall hold. Both ends belong to the span.
struct selection {
    std::vector<std::string> patterns; // of sensors; none chooses all
    bound start = {INT64_MIN, false};
    bound end = {INT64_MAX, false};
};

// Values stand row by row, with one for each sensor.
struct sample_table {
    std::vector<std::string> sensors;
    growing_array<int64_t> times;
    growing_array<float> values; // NaN where a sensor has none
};

// What an interval tells of one sensor. All but the count are NaN where that is 0.
struct summary {
    uint32_t count;
    float min;
    float mean;
    float max;
    float stddev;
    float skewness;
    float kurtosis;
    float first;
    float last;
};

struct history_table {
    std::vector<std::string> sensors;
    growing_array<int64_t> starts;  // of the first sample of each interval
    growing_array<int64_t> ends;    // of the last one
    growing_array<uint32_t> events; // five numbers a row: how many of each type
    growing_array<summary> values;
};

struct box_event {
    int64_t time;
    uint32_t type;
    std::string text;
    bool waits; // for a sample that it can follow, outside of the buffers
};

// @p name is that of a box, of its state file or of one buffer. They throw a failure when there is
// no such box, and when the patterns choose nothing.
sample_table read_samples(const std::string &name, const selection &wanted);
// An interval that the span begins or ends in belongs to it.
history_table read_history(const std::string &name, const selection &wanted);
// Of @p wanted only the span counts.
std::vector<box_event> read_events(const std::string &name, const selection &wanted);

} // namespace vesk_python

#endif
