// What the readers of the state file share.
#ifndef VESK_RECOVERY_STATE_SCAN_HPP
#define VESK_RECOVERY_STATE_SCAN_HPP

#include <cstdint>

#include <vesk/vesk_limits.h>

// How many buffers a stage has; the open one comes last.
inline uint32_t names_of_stage(uint32_t state)
{
    return state == VESK_ZCF_STATE_C00 ? 1 : state == VESK_ZCF_STATE_CC0 ? 2 : 3;
}

#endif
