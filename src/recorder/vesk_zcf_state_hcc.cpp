// The last stage, in which the recorder stays: a history buffer, a full current buffer and the open
// one. The history buffer is open only while the recorder moves on.

#include <vesk/vesk_zcf_state_hcc.h>

#include "recorder/stage.hpp"

static constexpr stage_layout<vesk_zcf_state_hcc, num_full_places(VESK_ZCF_STATE_HCC)> layout = {
    {{{&vesk_zcf_state_hcc::hbuf_filename, "hbuf_filename != ((void *)0)"},
      {&vesk_zcf_state_hcc::cbuf1_filename, "cbuf1_filename != ((void *)0)"}}},
    {&vesk_zcf_state_hcc::cbuf2, "cbuf2 != ((void *)0)"}};

vesk_zcf_state_hcc *vesk_zcf_state_hcc_create(const char *hbuf_filename, const char *cbuf1_filename,
                                              const char *cbuf2_filename, uint32_t max_data_records)
{
    VESK_REQUIRE(hbuf_filename != nullptr, "hbuf_filename != ((void *)0)");
    VESK_REQUIRE(cbuf1_filename != nullptr, "cbuf1_filename != ((void *)0)");
    VESK_REQUIRE(cbuf2_filename != nullptr, "cbuf2_filename != ((void *)0)");
    VESK_REQUIRE(max_data_records > 0, "max_data_records > 0");
    return stage_create(layout, {hbuf_filename, cbuf1_filename}, cbuf2_filename, max_data_records);
}

vesk_zcf_state_hcc *vesk_zcf_state_hcc_create_null(void)
{
    return stage_create_null<vesk_zcf_state_hcc>();
}

void vesk_zcf_state_hcc_destroy(vesk_zcf_state_hcc **state)
{
    stage_destroy(layout, state);
}

int vesk_zcf_state_hcc_write_telemetry_vector(vesk_zcf_state_hcc *state, const matrix *vector)
{
    return vesk_current_buffer_write_telemetry_vector(stage_get_open_buffer(layout, state), vector);
}

int vesk_zcf_state_hcc_write_event(vesk_zcf_state_hcc *state, const vesk_cb_record_event *event)
{
    return vesk_current_buffer_write_event(stage_get_open_buffer(layout, state), event);
}

const char *vesk_zcf_state_hcc_get_hbuf_filename(const vesk_zcf_state_hcc *state)
{
    return stage_get_closed_filename(layout, state, 0);
}

const char *vesk_zcf_state_hcc_get_cbuf1_filename(const vesk_zcf_state_hcc *state)
{
    return stage_get_closed_filename(layout, state, 1);
}

const char *vesk_zcf_state_hcc_get_cbuf2_filename(const vesk_zcf_state_hcc *state)
{
    return stage_get_open_filename(layout, state);
}

int binary_serializer_write_vesk_zcf_state_hcc(const vesk_zcf_state_hcc *state, writer *target)
{
    return stage_write(layout, state, target);
}

int _vesk_zcf_state_hcc_read(vesk_zcf_state_hcc *state, reader *source, file_reading reading)
{
    return stage_read(layout, state, source, reading);
}

int binary_serializer_read_vesk_zcf_state_hcc(vesk_zcf_state_hcc *state, reader *source)
{
    return stage_read(layout, state, source, file_reading::in_pieces);
}
