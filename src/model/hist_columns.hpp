// The statistics of many sensors, a column for each of their fields, so that one sample is folded
// into all of them by a loop that takes several sensors at a time. The bits are those of
// hist_value_update(), see there for what is counted. Not exported.
#ifndef VESK_MODEL_HIST_COLUMNS_HPP
#define VESK_MODEL_HIST_COLUMNS_HPP

#include <cstddef>
#include <cstdint>

#include <vesk/hist_value.h>

#include "support/owner.hpp"

class hist_columns
{
public:
    // Room for `n` statistics; what was there is lost. False without memory.
    bool reserve(uint32_t n);
    // The hist value that statistic i is loaded from and stored to.
    hist_value **places() { return places_.get(); }

    void load();
    void store() const;
    // Folds one value into each statistic.
    void update(const float *values);

private:
    float *column(uint32_t i) const { return floats_.get() + std::size_t{i} * capacity_; }
    void update_some(uint32_t at, const float *values) const;

    uint32_t size_ = 0;
    uint32_t capacity_ = 0;
    owned_memory<hist_value *> places_;
    owned_memory<uint32_t> counts_;
    owned_memory<float> floats_; // as in hist_value_floats
};

#endif
