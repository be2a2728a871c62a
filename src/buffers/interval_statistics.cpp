// Folds samples into the statistics of an interval. Without memory for the columns, and where a
// sensor occurs twice in a sample, all goes into the list at once.
#include "buffers/interval_statistics.hpp"

#include <vesk/error.h>
#include <vesk/hist_value.h>

int interval_statistics::fold(const sensor_array *sensors, const float *values)
{
    if (!places_are_known_) {
        return fold_one_by_one(sensors, values);
    }
    if (!columns_are_ahead_) {
        columns_.load();
        columns_are_ahead_ = true;
    }
    columns_.update(values);
    return 0;
}

int interval_statistics::fold_one_by_one(const sensor_array *sensors, const float *values)
{
    const uint32_t n = sensor_array_get_size(sensors);
    const bool is_first = is_empty();
    const bool has_columns = columns_.reserve(n);
    sensor *const *sensor_list = sensor_array_get_sensors(sensors);
    for (uint32_t i = 0; i < n; ++i) {
        hist_value *summary = hist_value_list_add_if_not_present(&list_, sensor_list[i]);
        if (summary == nullptr) {
            return qe_get_last_error();
        }
        hist_value_update(summary, values[i]);
        if (has_columns) {
            columns_.places()[i] = summary;
        }
    }
    // As many as there are sensors, so each of them has one of its own.
    places_are_known_ = has_columns && is_first && hist_value_list_get_size(&list_) == n;
    return 0;
}

void interval_statistics::store_columns()
{
    if (columns_are_ahead_) {
        columns_.store();
        columns_are_ahead_ = false;
    }
}

void interval_statistics::sensors_change()
{
    store_columns();
    places_are_known_ = false;
}

void interval_statistics::clear()
{
    hist_value_list_clear(&list_);
    places_are_known_ = false;
    columns_are_ahead_ = false;
}

void interval_statistics::reset()
{
    hist_value_list_destruct(&list_);
    hist_value_list_init(&list_);
    places_are_known_ = false;
    columns_are_ahead_ = false;
}

const hist_value_list *interval_statistics::list()
{
    store_columns();
    return &list_;
}
