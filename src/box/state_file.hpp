// The form of a state file and of its copy. What stands before the names of the buffers:
//
//   version                     1 byte, 1
//   filename                    string, the base name
//   state_filename              string, the name of the state file
//   state                       4 bytes, the stage
//   num_cb_samples              4 bytes
//   num_hb_intervals            4 bytes
//   num_samples_per_interval    4 bytes
//   next_file_number            4 bytes
//
// then the form of the stage: a version byte, 1, and the names of its buffers as strings. The copy
// has 8 bytes more: "VSKC", and the CRC-32 of everything before it, because nothing else tells
// whether a byte of it has changed. A copy by an older release ends without them.
#ifndef VESK_BOX_STATE_FILE_HPP
#define VESK_BOX_STATE_FILE_HPP

#include <cstddef>
#include <cstdint>

#include <vesk/vesk_limits.h>

#include "io/fields.hpp"
#include "io/memory_writer.hpp"

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

inline constexpr std::size_t copy_checksum_size = 8;

// No state file is longer: two versions, five counts and at most five strings. What follows the
// form means nothing and is not read, so that a file that only claims to be long costs nothing.
inline constexpr std::size_t most_state_bytes =
    2 + 5 * sizeof(uint32_t) + 5 * (sizeof(uint32_t) + VESK_MAX_COUNT) + copy_checksum_size;

// Makes a copy of the state file `bytes`. False without memory.
bool _vesk_append_copy_checksum(byte_list *bytes);

enum class copy_checksum { absent, right, wrong };

// What the checksum of a copy says of its bytes. `state_size` is the size of the form of the state
// file that they begin with, 0 when they begin with none.
copy_checksum _vesk_check_copy(const unsigned char *bytes, std::size_t n, std::size_t state_size);

#endif
