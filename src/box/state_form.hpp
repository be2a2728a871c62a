// What stands in a state file before the names of the stage's buffers.
#ifndef VESK_BOX_STATE_FORM_HPP
#define VESK_BOX_STATE_FORM_HPP

#include <cstdint>

#include "io/fields.hpp"

struct state_head {
    const char *filename;
    const char *state_filename;
    uint32_t state;
    uint32_t num_cb_samples;
    uint32_t num_hb_intervals;
    uint32_t num_samples_per_interval;
    uint32_t next_file_number;
};

inline void write_state_head(const state_head &head, field_writer *fields)
{
    fields->byte(1)
        .string(head.filename)
        .string(head.state_filename)
        .u32(head.state)
        .u32(head.num_cb_samples)
        .u32(head.num_hb_intervals)
        .u32(head.num_samples_per_interval)
        .u32(head.next_file_number);
}

#endif
