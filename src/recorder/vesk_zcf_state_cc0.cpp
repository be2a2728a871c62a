// The second stage of a recorder: a full current buffer and the open one. It lasts until the second
// buffer is full. This file gives the exported functions of the stage their names and types, and
// the layout tells stage.hpp which members hold the buffers; the work itself is done there, once
// for all stages.

#include <vesk/vesk_zcf_state_cc0.h>

#include "recorder/stage.hpp"

static constexpr stage_layout<vesk_zcf_state_cc0, num_full_places(VESK_ZCF_STATE_CC0)> layout = {
    {{{&vesk_zcf_state_cc0::cbuf0_filename, "cbuf0_filename != ((void *)0)"}}},
    {&vesk_zcf_state_cc0::cbuf1, "cbuf1 != ((void *)0)"}};

vesk_zcf_state_cc0 *vesk_zcf_state_cc0_create(const char *cbuf0_filename,
                                              const char *cbuf1_filename, uint32_t max_data_records)
{
    VESK_REQUIRE(cbuf0_filename != nullptr, "cbuf0_filename != ((void *)0)");
    VESK_REQUIRE(cbuf1_filename != nullptr, "cbuf1_filename != ((void *)0)");
    VESK_REQUIRE(max_data_records > 0, "max_data_records > 0");
    return stage_create(layout, {cbuf0_filename}, cbuf1_filename, max_data_records);
}

vesk_zcf_state_cc0 *vesk_zcf_state_cc0_create_null(void)
{
    return stage_create_null<vesk_zcf_state_cc0>();
}

void vesk_zcf_state_cc0_destroy(vesk_zcf_state_cc0 **state)
{
    stage_destroy(layout, state);
}

int vesk_zcf_state_cc0_write_telemetry_vector(vesk_zcf_state_cc0 *state, const matrix *vector)
{
    return vesk_current_buffer_write_telemetry_vector(stage_get_open_buffer(layout, state), vector);
}

int vesk_zcf_state_cc0_write_event(vesk_zcf_state_cc0 *state, const vesk_cb_record_event *event)
{
    return vesk_current_buffer_write_event(stage_get_open_buffer(layout, state), event);
}

const char *vesk_zcf_state_cc0_get_cbuf0_filename(const vesk_zcf_state_cc0 *state)
{
    return stage_get_closed_filename(layout, state, 0);
}

const char *vesk_zcf_state_cc0_get_cbuf1_filename(const vesk_zcf_state_cc0 *state)
{
    return stage_get_open_filename(layout, state);
}

int binary_serializer_write_vesk_zcf_state_cc0(const vesk_zcf_state_cc0 *state, writer *target)
{
    return stage_write(layout, state, target);
}

int _vesk_zcf_state_cc0_read(vesk_zcf_state_cc0 *state, reader *source, file_reading reading)
{
    return stage_read(layout, state, source, reading);
}

int binary_serializer_read_vesk_zcf_state_cc0(vesk_zcf_state_cc0 *state, reader *source)
{
    return stage_read(layout, state, source, file_reading::in_pieces);
}
