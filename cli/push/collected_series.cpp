// Makes messages of remote write, with protobuf and snappy.
#include "push/collected_series.hpp"

#include <algorithm>
#include <charconv>
#include <snappy.h>

#include "process/failure.hpp"
#include "push/remote_write.pb.h"

namespace cli
{

void collected_series::add(series_labels labels, int64_t milliseconds, double value)
{
    std::sort(labels.begin(), labels.end());
    const bool is_new = points_[std::move(labels)].insert_or_assign(milliseconds, value).second;
    count_ += is_new ? 1 : 0;
}

std::vector<int64_t> collected_series::times() const
{
    std::set<int64_t> all;
    for (const auto &[labels, points] : points_) {
        for (const auto &[time, value] : points) {
            all.insert(time);
        }
    }
    return {all.begin(), all.end()};
}

std::string collected_series::request(int64_t from, int64_t to) const
{
    vesk::remote::WriteRequest message;
    for (const auto &[labels, points] : points_) {
        const auto end = points.upper_bound(to);
        auto point = points.lower_bound(from);
        if (point == end) {
            continue;
        }
        vesk::remote::TimeSeries *series = message.add_timeseries();
        for (const series_label &each : labels) {
            vesk::remote::Label *label = series->add_labels();
            label->set_name(each.name);
            label->set_value(each.value);
        }
        for (; point != end; ++point) {
            vesk::remote::Sample *sample = series->add_samples();
            sample->set_timestamp(point->first);
            sample->set_value(point->second);
        }
    }
    const std::string whole = message.SerializeAsString();
    std::string compressed;
    snappy::Compress(whole.data(), whole.size(), &compressed);
    return compressed;
}

double shortest_double(float value)
{
    char text[32];
    const auto [end, error] = std::to_chars(std::begin(text), std::end(text), value);
    double result = static_cast<double>(value);
    if (error == std::errc()) {
        std::from_chars(std::begin(text), end, result);
    }
    return result;
}

} // namespace cli
