// The statistics of one sensor over a span of time. Samples and intervals of history go in, in the
// order of time; the count, the extremes, the moments, and the first and last value with their
// times come out.
#ifndef VESK_CLI_BOX_SENSOR_STATISTICS_HPP
#define VESK_CLI_BOX_SENSOR_STATISTICS_HPP

#include <cmath>
#include <cstdint>

#include "box/moments.hpp"

namespace cli
{

// The time of a value: of a sample that is only in the history, just the interval is known.
struct occasion {
    int64_t start = 0;
    int64_t end = 0;
};

class sensor_statistics
{
public:
    // To be called in the order of time. Missing readings and impossible intervals change nothing.
    void add(float value, int64_t time)
    {
        if (!std::isnan(value)) {
            note(value, value, value, value, {time, time});
            numbers_.add(value);
        }
    }
    void add(const interval_summary &interval, const occasion &when, const summing &how)
    {
        if (interval.count > 0 && moments::is_possible(interval)) {
            note(interval.min_value, interval.max_value, interval.first_value, interval.last_value,
                 when);
            numbers_.add(interval, how);
        }
    }

    const moments &numbers() const { return numbers_; }
    // The following values are meaningful only when numbers().count() is not 0.
    float least() const { return least_; }
    float greatest() const { return greatest_; }
    float first() const { return first_; }
    float last() const { return last_; }
    // The times of the first occurrence of each extreme.
    const occasion &when_least() const { return when_least_; }
    const occasion &when_greatest() const { return when_greatest_; }
    const occasion &when_first() const { return when_first_; }
    const occasion &when_last() const { return when_last_; }

private:
    void note(float least, float greatest, float first, float last, const occasion &when)
    {
        const bool is_first = numbers_.count() == 0;
        if (is_first) {
            first_ = first;
            when_first_ = when;
        }
        if (is_first || least < least_) {
            least_ = least;
            when_least_ = when;
        }
        if (is_first || greatest > greatest_) {
            greatest_ = greatest;
            when_greatest_ = when;
        }
        last_ = last;
        when_last_ = when;
    }

    moments numbers_;
    float least_ = 0;
    float greatest_ = 0;
    float first_ = 0;
    float last_ = 0;
    occasion when_least_;
    occasion when_greatest_;
    occasion when_first_;
    occasion when_last_;
};

} // namespace cli

#endif
