// The buffers of each stage, in the order in which a state file names them: oldest first, the open
// one last. This is the one place that tells how many a stage has and what each of them is.
#ifndef VESK_BOX_STAGE_PLACES_HPP
#define VESK_BOX_STAGE_PLACES_HPP

#include <cstdint>

#include <vesk/vesk_buffer.h>
#include <vesk/vesk_limits.h>

struct stage_place {
    uint32_t kind; // VESK_BUFFER_TYPE_CURRENT or VESK_BUFFER_TYPE_HIST
    bool is_open;  // it is being filled; the others are full
};

inline constexpr uint32_t max_places = 3;

struct stage_places {
    uint32_t n;
    stage_place places[max_places];
};

inline constexpr bool is_stage(uint32_t stage)
{
    return stage >= VESK_ZCF_STATE_C00 && stage <= VESK_ZCF_STATE_HCC;
}

// Returns no places for a number that is no stage.
inline constexpr stage_places places_of_stage(uint32_t stage)
{
    constexpr stage_place full = {VESK_BUFFER_TYPE_CURRENT, false};
    constexpr stage_place open = {VESK_BUFFER_TYPE_CURRENT, true};
    constexpr stage_place history = {VESK_BUFFER_TYPE_HIST, false};
    constexpr stage_place none = {0, false};
    switch (stage) {
    case VESK_ZCF_STATE_C00:
        return {1, {open, none, none}};
    case VESK_ZCF_STATE_CC0:
        return {2, {full, open, none}};
    case VESK_ZCF_STATE_CCC:
        return {3, {full, full, open}};
    case VESK_ZCF_STATE_HCC:
        return {3, {history, full, open}};
    default:
        return {0, {none, none, none}};
    }
}

// How many of the buffers of a stage are full: all but the open one, which is the last.
inline constexpr uint32_t num_full_places(uint32_t stage)
{
    return is_stage(stage) ? places_of_stage(stage).n - 1 : 0;
}

#endif
