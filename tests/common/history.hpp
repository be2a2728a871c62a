// Lists of summaries in one line.
#ifndef VESK_TESTS_COMMON_HISTORY_HPP
#define VESK_TESTS_COMMON_HISTORY_HPP

#include <string>
#include <vector>

#include <vesk/hist_value.h>
#include <vesk/hist_value_list.h>
#include <vesk/sensor.h>

#include "support/owner.hpp"

using owned_hist_list = owned<hist_value_list, hist_value_list_destroy>;

// A sensor and its samples in an interval.
struct samples_of {
    std::string sensor;
    std::vector<float> samples;
};

// The list holds the sensors in the order of their hashes: of names of one letter, alphabetically.
inline owned_hist_list make_list(const std::vector<samples_of> &sensors)
{
    owned_hist_list list(hist_value_list_create());
    for (const samples_of &one : sensors) {
        sensor *added = sensor_create(one.sensor.c_str());
        hist_value *summary = hist_value_list_add_if_not_present(list.get(), added);
        for (const float value : one.samples) {
            hist_value_update(summary, value);
        }
        sensor_destroy(&added);
    }
    return list;
}

#endif
