// The statistics of the interval that is being summarised: a list of hist values by sensor, in the
// order in which history stores them. Which of them a reading belongs to is looked up for the first
// sample of an interval; while the sensors stay the same, the samples behind it are folded into
// columns. Not exported.
#ifndef VESK_BUFFERS_INTERVAL_STATISTICS_HPP
#define VESK_BUFFERS_INTERVAL_STATISTICS_HPP

#include <vesk/hist_value_list.h>
#include <vesk/sensor_array.h>

#include "model/hist_columns.hpp"

class interval_statistics
{
public:
    interval_statistics() { hist_value_list_init(&list_); }
    interval_statistics(const interval_statistics &) = delete;
    interval_statistics &operator=(const interval_statistics &) = delete;
    ~interval_statistics() { hist_value_list_destruct(&list_); }

    // Folds one value a sensor. 0 or a negative code.
    int fold(const sensor_array *sensors, const float *values);
    // The next sample may have other sensors.
    void sensors_change();
    // Begins the next interval.
    void clear();
    // Forgets the sensors as well: the order of the list tells in which order they were met.
    void reset();

    bool is_empty() const { return hist_value_list_is_empty(&list_) != 0; }
    // All that was folded.
    const hist_value_list *list();

private:
    int fold_one_by_one(const sensor_array *sensors, const float *values);
    void store_columns();

    hist_value_list list_;
    hist_columns columns_;
    bool places_are_known_ = false;  // of the sensors at hand, in this interval
    bool columns_are_ahead_ = false; // of the list
};

#endif
