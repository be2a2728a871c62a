// Collects the values of some sensors. The samples of an interval of history are gone: two values,
// a deviation below and above the mean, stand in for them, which keep both numbers.
#include "box/side.hpp"

#include <algorithm>
#include <cmath>
#include <string_view>
#include <unordered_map>

namespace cli
{
namespace
{

constexpr uint64_t most_values = 4 * 1024 * 1024;

class collector : public row_visitor
{
public:
    collector(const summing &how, std::vector<side_sensor> &sensors,
              const std::vector<std::size_t> &places)
        : how_(how), sensors_(sensors), places_(places)
    {
    }

    void on_sample(const sample_row &row) override
    {
        for (std::size_t i = 0; i < places_.size(); ++i) {
            side_sensor &sensor = sensors_[places_[i]];
            sensor.numbers.add(row.values[i], row.time);
            if (std::isfinite(row.values[i])) {
                sensor.values.push_back({static_cast<double>(row.values[i]), 1});
            }
        }
    }
    void on_interval(const interval_row &row) override
    {
        for (std::size_t i = 0; i < places_.size(); ++i) {
            if (row.values[i] != nullptr && row.values[i]->count > 0) {
                side_sensor &sensor = sensors_[places_[i]];
                sensor.numbers.add(*row.values[i], {row.start, row.end}, how_);
                add(sensor, *row.values[i]);
            }
        }
    }

private:
    void add(side_sensor &sensor, const interval_summary &interval) const
    {
        const moments numbers(interval, how_);
        const double mean = numbers.mean();
        const double deviation = numbers.deviation().value;
        if (!std::isfinite(mean)) {
            return;
        }
        const double off = std::isfinite(deviation) ? deviation : 0;
        const double half = interval.count / 2.0;
        sensor.values.push_back({std::max(mean - off, numbers.least()), half});
        sensor.values.push_back({std::min(mean + off, numbers.greatest()), half});
    }

    summing how_;
    std::vector<side_sensor> &sensors_;
    const std::vector<std::size_t> &places_;
};

} // namespace

std::vector<side_sensor> side::read(const std::vector<std::string> &names)
{
    std::vector<side_sensor> sensors(names.size());
    std::unordered_map<std::string_view, std::size_t> wanted;
    for (std::size_t i = 0; i < names.size(); ++i) {
        wanted.emplace(names[i], i);
    }
    std::vector<std::size_t> chosen;
    std::vector<std::size_t> places;
    for (std::size_t i = 0; i < source_.sensors().size(); ++i) {
        if (const auto found = wanted.find(source_.sensors()[i]); found != wanted.end()) {
            chosen.push_back(i);
            places.push_back(found->second);
        }
    }
    collector rows(source_.how_summed(), sensors, places);
    source_.read(range_, chosen, rows);
    return sensors;
}

std::size_t side::room() const
{
    const uint64_t values = 1 + source_.samples() + 2 * source_.intervals();
    return static_cast<std::size_t>(std::max<uint64_t>(1, most_values / values));
}

} // namespace cli
