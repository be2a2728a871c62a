// The third stage of a recorder: two full current buffers and the open one. It lasts until the
// third buffer is full, after which the oldest buffer is summarised into a history. This file gives
// the exported functions of the stage their names and types, and the layout tells stage.hpp which
// members hold the buffers; the work itself is done there, once for all stages.

#include <vesk/vesk_zcf_state_ccc.h>

#include "recorder/stage.hpp"

static constexpr stage_layout<vesk_zcf_state_ccc, num_full_places(VESK_ZCF_STATE_CCC)> layout = {
    {{{&vesk_zcf_state_ccc::cbuf0_filename, "cbuf0_filename != ((void *)0)"},
      {&vesk_zcf_state_ccc::cbuf1_filename, "cbuf1_filename != ((void *)0)"}}},
    {&vesk_zcf_state_ccc::cbuf2, "cbuf2 != ((void *)0)"}};

vesk_zcf_state_ccc *vesk_zcf_state_ccc_create(const char *cbuf0_filename,
                                              const char *cbuf1_filename,
                                              const char *cbuf2_filename, uint32_t max_data_records)
{
    VESK_REQUIRE(cbuf0_filename != nullptr, "cbuf0_filename != ((void *)0)");
    VESK_REQUIRE(cbuf1_filename != nullptr, "cbuf1_filename != ((void *)0)");
    VESK_REQUIRE(cbuf2_filename != nullptr, "cbuf2_filename != ((void *)0)");
    VESK_REQUIRE(max_data_records > 0, "max_data_records > 0");
    return stage_create(layout, {cbuf0_filename, cbuf1_filename}, cbuf2_filename, max_data_records);
}

vesk_zcf_state_ccc *vesk_zcf_state_ccc_create_null(void)
{
    return stage_create_null<vesk_zcf_state_ccc>();
}

void vesk_zcf_state_ccc_destroy(vesk_zcf_state_ccc **state)
{
    stage_destroy(layout, state);
}

int vesk_zcf_state_ccc_write_telemetry_vector(vesk_zcf_state_ccc *state, const matrix *vector)
{
    return vesk_current_buffer_write_telemetry_vector(stage_get_open_buffer(layout, state), vector);
}

int vesk_zcf_state_ccc_write_event(vesk_zcf_state_ccc *state, const vesk_cb_record_event *event)
{
    return vesk_current_buffer_write_event(stage_get_open_buffer(layout, state), event);
}

const char *vesk_zcf_state_ccc_get_cbuf0_filename(const vesk_zcf_state_ccc *state)
{
    return stage_get_closed_filename(layout, state, 0);
}

const char *vesk_zcf_state_ccc_get_cbuf1_filename(const vesk_zcf_state_ccc *state)
{
    return stage_get_closed_filename(layout, state, 1);
}

const char *vesk_zcf_state_ccc_get_cbuf2_filename(const vesk_zcf_state_ccc *state)
{
    return stage_get_open_filename(layout, state);
}

int binary_serializer_write_vesk_zcf_state_ccc(const vesk_zcf_state_ccc *state, writer *target)
{
    return stage_write(layout, state, target);
}

int _vesk_zcf_state_ccc_read(vesk_zcf_state_ccc *state, reader *source, file_reading reading)
{
    return stage_read(layout, state, source, reading);
}

int binary_serializer_read_vesk_zcf_state_ccc(vesk_zcf_state_ccc *state, reader *source)
{
    return stage_read(layout, state, source, file_reading::in_pieces);
}
