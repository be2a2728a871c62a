// Makes the records that fill up a buffer. Many of them share a stream, because one stream for each
// would take many times the space.
#include "recovery/padding.hpp"

#include <limits>

#include <vesk/vesk_buffer.h>

#include "support/object.hpp"
#include "support/owner.hpp"

int _vesk_write_padding(const padding &form, uint32_t n, mended_content *content,
                        mended_output *output)
{
    vesk_cb_record_sensor_values sample = {};
    vesk_hb_record_sensor_values interval = {};
    vesk_cb_record_sensor_values_init_null(&sample);
    vesk_hb_record_sensor_values_init_null(&interval);
    const owned_memory<float> nothing(allocate<float>(form.n_sensors));
    const owned_memory<hist_value> no_summaries(allocate<hist_value>(form.n_sensors));
    if (!nothing || !no_summaries) {
        return QE_ERROR_NO_MEMORY;
    }
    for (uint32_t i = 0; i < form.n_sensors; ++i) {
        nothing.get()[i] = std::numeric_limits<float>::quiet_NaN();
        hist_value_init(&no_summaries.get()[i]);
    }
    sample.n_sensors = interval.n_sensors = form.n_sensors;
    sample.values = nothing.get();
    interval.hvalues = no_summaries.get();
    for (timestamp *time : {&sample.timestamp, &interval.start, &interval.end}) {
        time->tv.tv_sec = static_cast<time_t>(form.time);
    }
    constexpr std::size_t stream_size = 65536;
    int result = 0;
    for (uint32_t i = 0; i < n && result == 0; ++i) {
        result = form.kind == VESK_BUFFER_TYPE_CURRENT ? content->append(&sample)
                                                       : content->append(&interval);
        if (result == 0 && content->bytes().size() >= stream_size) {
            result = output->write_stream(content);
        }
    }
    return result != 0 ? result : output->write_stream(content);
}
