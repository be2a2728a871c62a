// Which column of a record holds which of the sensors that are asked for. Records name their
// sensors only when these change, so the answer is kept as long as the names stay.
#ifndef VESK_CLI_BOX_COLUMN_MAP_HPP
#define VESK_CLI_BOX_COLUMN_MAP_HPP

#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include <vesk/sensor_array.h>

#include "box/box.hpp"

namespace cli
{

class column_map
{
public:
    // @p sensors with the numbers @p chosen are places 0, 1, 2, … of a row.
    column_map(const std::vector<std::string> &sensors, const std::vector<std::size_t> &chosen)
        : size_(chosen.size())
    {
        for (std::size_t i = 0; i < chosen.size(); ++i) {
            places_.emplace(sensors[chosen[i]], i);
        }
    }

    std::size_t size() const { return size_; }
    // Columns of @p names that are asked for, with their places.
    const std::vector<std::pair<std::size_t, std::size_t>> &
    columns(const vesk_cb_record_sensor_names &names)
    {
        if (!array_ || sensor_array_is_equal(array_.get(), names.sensors) == 0) {
            array_.reset(sensor_array_copy(names.sensors));
            columns_.clear();
            const std::vector<std::string> texts = sensor_names(names);
            for (std::size_t i = 0; i < texts.size(); ++i) {
                if (const auto place = places_.find(texts[i]); place != places_.end()) {
                    columns_.emplace_back(i, place->second);
                }
            }
        }
        return columns_;
    }

private:
    struct release {
        void operator()(sensor_array *array) const { sensor_array_destroy(&array); }
    };

    std::size_t size_;
    std::unordered_map<std::string, std::size_t> places_;
    std::unique_ptr<sensor_array, release> array_;
    std::vector<std::pair<std::size_t, std::size_t>> columns_;
};

} // namespace cli

#endif
