// Points of series that wait to be sent by remote write, and the requests that are made of them.
#ifndef VESK_CLI_PUSH_COLLECTED_SERIES_HPP
#define VESK_CLI_PUSH_COLLECTED_SERIES_HPP

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <vector>

namespace cli
{

struct series_label {
    std::string name;
    std::string value;

    bool operator==(const series_label &other) const = default;
    bool operator<(const series_label &other) const
    {
        return std::tie(name, value) < std::tie(other.name, other.value);
    }
};
using series_labels = std::vector<series_label>; // in the order of their names

class collected_series
{
public:
    // @p labels are put into their order. A time that comes again in a series takes the place of
    // the first one.
    void add(series_labels labels, int64_t milliseconds, double value);
    void clear()
    {
        points_.clear();
        count_ = 0;
    }

    uint64_t count() const { return count_; }
    // All times of the points, in their order.
    std::vector<int64_t> times() const;
    // A compressed request with the points of these times, both of which belong to it.
    std::string request(int64_t from, int64_t to) const;

private:
    std::map<series_labels, std::map<int64_t, double>> points_;
    uint64_t count_ = 0;
};

// The number whose decimal form is the shortest that reads back as @p value in single precision:
// stores that keep decimals keep it in fewer digits.
double shortest_double(float value);

} // namespace cli

#endif
