// The two sizes that a recorder is created with, and the one rule for sizes of which a box can be
// made. Whatever reads sizes from a file or takes them from a caller asks here.
#ifndef VESK_BOX_BOX_SIZES_HPP
#define VESK_BOX_BOX_SIZES_HPP

#include <cstdint>

#include <vesk/vesk_limits.h>

struct recorder_sizes {
    uint32_t samples = 0;   // vectors in a current buffer
    uint32_t intervals = 0; // intervals that a full current buffer is summarised into

    friend bool operator==(const recorder_sizes &, const recorder_sizes &) = default;

    // Whether vesk_open() takes them. An odd number of intervals is read, although vesk_create()
    // refuses it.
    bool usable() const
    {
        return samples > 0 && samples % 2 == 0 && intervals > 0 && samples % intervals == 0;
    }

    // Whether the history of two current buffers can be made.
    bool history_fits() const { return intervals <= VESK_MAX_INTERVALS; }
};

#endif
