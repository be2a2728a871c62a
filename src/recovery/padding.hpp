// Makes records without values, which fill a buffer up to its capacity.
//
// In: the kind of the buffer, for how many sensors, and the time that the records get. Out: as many
// records as are asked for, in streams of some size. They add nothing to any statistic: samples of
// NaN, intervals of no samples.
#ifndef VESK_RECOVERY_PADDING_HPP
#define VESK_RECOVERY_PADDING_HPP

#include <cstdint>

#include "recovery/mended_file.hpp"

struct padding {
    uint32_t kind; // VESK_BUFFER_TYPE_CURRENT or VESK_BUFFER_TYPE_HIST
    uint32_t n_sensors;
    int64_t time;
};

// Writes `n` such records behind what `content` holds already. 0, QE_ERROR_IO (-41) or
// QE_ERROR_NO_MEMORY (-22).
int _vesk_write_padding(const padding &form, uint32_t n, mended_content *content,
                        mended_output *output);

#endif
