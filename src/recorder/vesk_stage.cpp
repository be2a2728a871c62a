// The stage of a recorder, whatever its type: one table of the functions for each type, and one
// switch that finds the buffers of a stage. Nothing else in the recorder tells the types apart but
// the rotation.

#include <vesk/vesk.h>

#include "box/stage_places.hpp"
#include "recorder/recorder.hpp"
#include "recorder/stage_reading.hpp"
#include "support/precondition.hpp"

template <typename Stage, auto CreateNull, auto Destroy, auto Write, auto Read>
static constexpr stage_functions _functions_of(const char *missing, const char *missing_at_close)
{
    return {missing,
            missing_at_close,
            []() -> void * { return CreateNull(); },
            [](void *stage) {
                auto *typed = static_cast<Stage *>(stage);
                Destroy(&typed);
            },
            [](const void *stage, writer *target) {
                return Write(static_cast<const Stage *>(stage), target);
            },
            [](void *stage, reader *source, file_reading reading) {
                return Read(static_cast<Stage *>(stage), source, reading);
            }};
}

static constexpr stage_functions functions_of_c00 =
    _functions_of<vesk_zcf_state_c00, vesk_zcf_state_c00_create_null, vesk_zcf_state_c00_destroy,
                  binary_serializer_write_vesk_zcf_state_c00, _vesk_zcf_state_c00_read>(
        "vesk->c00 != ((void *)0)", "(*vesk)->c00 != ((void *)0)");
static constexpr stage_functions functions_of_cc0 =
    _functions_of<vesk_zcf_state_cc0, vesk_zcf_state_cc0_create_null, vesk_zcf_state_cc0_destroy,
                  binary_serializer_write_vesk_zcf_state_cc0, _vesk_zcf_state_cc0_read>(
        "vesk->cc0 != ((void *)0)", "(*vesk)->cc0 != ((void *)0)");
static constexpr stage_functions functions_of_ccc =
    _functions_of<vesk_zcf_state_ccc, vesk_zcf_state_ccc_create_null, vesk_zcf_state_ccc_destroy,
                  binary_serializer_write_vesk_zcf_state_ccc, _vesk_zcf_state_ccc_read>(
        "vesk->ccc != ((void *)0)", "(*vesk)->ccc != ((void *)0)");
static constexpr stage_functions functions_of_hcc =
    _functions_of<vesk_zcf_state_hcc, vesk_zcf_state_hcc_create_null, vesk_zcf_state_hcc_destroy,
                  binary_serializer_write_vesk_zcf_state_hcc, _vesk_zcf_state_hcc_read>(
        "vesk->hcc != ((void *)0)", "(*vesk)->hcc != ((void *)0)");

const stage_functions &_vesk_stage_functions(uint32_t state)
{
    switch (state) {
    case VESK_ZCF_STATE_C00:
        return functions_of_c00;
    case VESK_ZCF_STATE_CC0:
        return functions_of_cc0;
    case VESK_ZCF_STATE_CCC:
        return functions_of_ccc;
    case VESK_ZCF_STATE_HCC:
        break;
    default:
        VESK_REQUIRE(false, "0");
    }
    return functions_of_hcc;
}

void _vesk_set_stage(vesk *recorder, uint32_t type, void *stage)
{
    recorder->stage = stage;
    recorder->stage_type = type;
}

void _vesk_destroy_stage(vesk *recorder)
{
    if (recorder->stage != nullptr) {
        _vesk_stage_functions(stage_type(recorder)).destroy(recorder->stage);
    }
    _vesk_set_stage(recorder, 0, nullptr);
}

void _vesk_require_stage(const vesk *recorder, uint32_t state)
{
    VESK_REQUIRE(stage_fits(recorder, state), _vesk_stage_functions(state).missing);
}

// The stage, which must be live.
template <typename Stage>
static const Stage &_require_live(const Stage *state)
{
    VESK_REQUIRE(state->version == 1, "state->version == ((char) 1)");
    return *state;
}

stage_buffers _vesk_stage_buffers(const vesk *recorder, uint32_t state)
{
    _vesk_require_stage(recorder, state);
    switch (state) {
    case VESK_ZCF_STATE_C00:
        return {{}, _require_live(recorder->c00).cbuf0, "cbuf0 != ((void *)0)"};
    case VESK_ZCF_STATE_CC0: {
        const auto &[version, cbuf0_filename, cbuf1] = _require_live(recorder->cc0);
        return {{cbuf0_filename}, cbuf1, "cbuf1 != ((void *)0)"};
    }
    case VESK_ZCF_STATE_CCC: {
        const auto &[version, cbuf0_filename, cbuf1_filename, cbuf2] = _require_live(recorder->ccc);
        return {{cbuf0_filename, cbuf1_filename}, cbuf2, "cbuf2 != ((void *)0)"};
    }
    default: {
        const auto &[version, hbuf_filename, cbuf1_filename, cbuf2] = _require_live(recorder->hcc);
        return {{hbuf_filename, cbuf1_filename}, cbuf2, "cbuf2 != ((void *)0)"};
    }
    }
}
