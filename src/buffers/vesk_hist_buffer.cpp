// A file of interval summaries. After the kind and the header (see vesk_buffer.cpp) come records:
//
//     size  field
//        4  type: 1 sensor names, 2 one interval
//           body, see vesk_hb_record.cpp
//
// The first record names sensors, and so does one before an interval whose sensors differ, in
// number, identity or order, from those of the interval before.
#include <vesk/hist_value_list.h>
#include <vesk/vesk_hist_buffer.h>

#include "buffers/buffer_file.hpp"
#include "io/plain_open.hpp"

static void _require_live(const vesk_hist_buffer *hbuf)
{
    VESK_REQUIRE(hbuf != nullptr, "hbuf != ((void *)0)");
    VESK_REQUIRE(hbuf->version == 1, "hbuf->version == ((char) 1)");
}

static vesk_hist_buffer *_create(const char *filename, uint32_t max_data_records,
                                 create_file create)
{
    VESK_REQUIRE(filename != nullptr, "filename != ((void *)0)");
    VESK_REQUIRE(max_data_records != 0, "max_data_records != 0");
    auto *hbuf = create_buffer<vesk_hist_buffer>(filename, max_data_records, create);
    if (hbuf == nullptr) {
        return nullptr;
    }
    const int written = write_file_header(hbuf);
    if (written < 0) {
        vesk_hist_buffer_close(&hbuf);
        qe_set_last_error(written);
    }
    return hbuf;
}

vesk_hist_buffer *vesk_hist_buffer_create(const char *filename, uint32_t max_data_records)
{
    return _create(filename, max_data_records, create_any_file);
}

vesk_hist_buffer *_vesk_hist_buffer_create_in(const char *filename, uint32_t max_data_records,
                                              create_file create)
{
    return _create(filename, max_data_records, create);
}

vesk_hist_buffer *_vesk_hist_buffer_create_plain(const char *filename, uint32_t max_data_records)
{
    return _create(filename, max_data_records, _vesk_overwrite_plain_file);
}

vesk_hist_buffer *_vesk_hist_buffer_open(const char *path, reader *source, FILE *fp)
{
    return open_buffer<vesk_hist_buffer>(path, source, fp);
}

vesk_hist_buffer *vesk_hist_buffer_open_for_read_write(const char *filename)
{
    VESK_REQUIRE(filename != nullptr, "filename != ((void *)0)");
    return take_buffer_of_kind<vesk_hist_buffer>(vesk_buffer_open_for_read_write(filename));
}

vesk_hist_buffer *_vesk_hist_buffer_open_plain(const char *filename, file_reading reading)
{
    return take_buffer_of_kind<vesk_hist_buffer>(_vesk_buffer_open_plain(filename, reading));
}

void vesk_hist_buffer_close(vesk_hist_buffer **hbuf)
{
    VESK_REQUIRE(hbuf != nullptr, "hbuf != ((void *)0)");
    VESK_REQUIRE(*hbuf != nullptr, "*hbuf != ((void *)0)");
    VESK_REQUIRE((*hbuf)->writer != nullptr, "(*hbuf)->writer != ((void *)0)");
    VESK_REQUIRE((*hbuf)->filename != nullptr, "(*hbuf)->filename != ((void *)0)");
    release_buffer(*hbuf);
    *hbuf = nullptr;
}

static int _vesk_hb_have_sensors_changed(const vesk_hist_buffer *hbuf,
                                         const hist_value_list *hvlist)
{
    if (hbuf->hb_rec_sensors_last == nullptr) {
        return 1;
    }
    const sensor_array *known = vesk_hb_record_sensor_names_get_sensors(hbuf->hb_rec_sensors_last);
    return hist_value_list_are_sensors_equal(hvlist, known) ? 0 : 1;
}

int vesk_hist_buffer_write_interval(vesk_hist_buffer *hbuf, const timestamp *start,
                                    const timestamp *end, const hist_value_list *hvlist,
                                    const vesk_hb_record_events *events)
{
    _require_live(hbuf);
    VESK_REQUIRE(start != nullptr, "start != ((void *)0)");
    VESK_REQUIRE(end != nullptr, "end != ((void *)0)");
    VESK_REQUIRE(hvlist != nullptr, "hvlist != ((void *)0)");
    VESK_REQUIRE(hbuf->writer != nullptr, "hbuf->writer != ((void *)0)");
    if (is_full(hbuf)) {
        return QE_ERROR_FULL;
    }
    if (_vesk_hb_have_sensors_changed(hbuf, hvlist) != 0) {
        const int result =
            append_names(hbuf, [&] { return vesk_hb_record_sensor_names_create(start, hvlist); });
        if (result < 0) {
            return result;
        }
    }
    return append_values(hbuf, [&](vesk_hb_record_sensor_values *values) {
        return vesk_hb_record_sensor_values_init(values, start, end, hvlist, events);
    });
}

int _vesk_hist_buffer_read_next(vesk_hist_buffer *hbuf, vesk_hb_record *rec)
{
    _require_live(hbuf);
    VESK_REQUIRE(hbuf->reader != nullptr, "hbuf->reader != ((void *)0)");
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    return read_next_record(hbuf, rec);
}

int vesk_hist_buffer_read_record(vesk_hist_buffer *hbuf, vesk_hb_record *rec)
{
    _require_live(hbuf);
    VESK_REQUIRE(hbuf->reader != nullptr, "hbuf->reader != ((void *)0)");
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    return read_counted_record(hbuf, rec);
}

int vesk_hist_buffer_get_number_empty_intervals(const vesk_hist_buffer *hbuf)
{
    _require_live(hbuf);
    if (hbuf->num_data_records > hbuf->max_data_records) {
        return QE_ERROR_MALFORMED;
    }
    return static_cast<int>(hbuf->max_data_records - hbuf->num_data_records);
}

vesk_hb_record_sensor_names *vesk_hist_buffer_get_sensor_working_set(const vesk_hist_buffer *hbuf)
{
    _require_live(hbuf);
    return hbuf->hb_rec_sensors_last;
}

int binary_serializer_write_vesk_hist_buffer(const vesk_hist_buffer *hbuf, writer *target)
{
    _require_live(hbuf);
    VESK_REQUIRE(target != nullptr, "writer != ((void *)0)");
    return write_buffer_header(hbuf, target);
}

int binary_serializer_read_vesk_hist_buffer(vesk_hist_buffer *hbuf, reader *source)
{
    _require_live(hbuf);
    VESK_REQUIRE(source != nullptr, "reader != ((void *)0)");
    return read_buffer_header(hbuf, source);
}
