// The first stage of a recorder: one current buffer, open for writing. It lasts from the creation
// of a box until that buffer is full for the first time. This file gives the exported functions of
// the stage their names and types, and the layout tells stage.hpp which members hold the buffers;
// the work itself is done there, once for all stages.

#include <vesk/vesk_zcf_state_c00.h>

#include "recorder/stage.hpp"

static constexpr stage_layout<vesk_zcf_state_c00, num_full_places(VESK_ZCF_STATE_C00)> layout = {
    {}, {&vesk_zcf_state_c00::cbuf0, "cbuf0 != ((void *)0)"}};

vesk_zcf_state_c00 *vesk_zcf_state_c00_create(const char *cbuf_filename, uint32_t max_data_records)
{
    VESK_REQUIRE(cbuf_filename != nullptr, "cbuf_filename != ((void *)0)");
    VESK_REQUIRE(max_data_records > 0, "max_data_records > 0");
    return stage_create(layout, {}, cbuf_filename, max_data_records);
}

vesk_zcf_state_c00 *vesk_zcf_state_c00_create_null(void)
{
    return stage_create_null<vesk_zcf_state_c00>();
}

void vesk_zcf_state_c00_destroy(vesk_zcf_state_c00 **state)
{
    stage_destroy(layout, state);
}

int vesk_zcf_state_c00_write_telemetry_vector(vesk_zcf_state_c00 *state, const matrix *vector)
{
    return vesk_current_buffer_write_telemetry_vector(stage_get_open_buffer(layout, state), vector);
}

int vesk_zcf_state_c00_write_event(vesk_zcf_state_c00 *state, const vesk_cb_record_event *event)
{
    return vesk_current_buffer_write_event(stage_get_open_buffer(layout, state), event);
}

const char *vesk_zcf_state_c00_get_filename(const vesk_zcf_state_c00 *state)
{
    return stage_get_open_filename(layout, state);
}

int binary_serializer_write_vesk_zcf_state_c00(const vesk_zcf_state_c00 *state, writer *target)
{
    return stage_write(layout, state, target);
}

int _vesk_zcf_state_c00_read(vesk_zcf_state_c00 *state, reader *source, file_reading reading)
{
    return stage_read(layout, state, source, reading);
}

int binary_serializer_read_vesk_zcf_state_c00(vesk_zcf_state_c00 *state, reader *source)
{
    return stage_read(layout, state, source, file_reading::in_pieces);
}
