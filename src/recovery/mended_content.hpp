// The content of one stream of a mended buffer, while it is put together.
//
// In: records, as they were found or as they should be. Out: their bytes in the stored form, in
// the order in which they came. Nothing is said or written here: that is up to the mender.
#ifndef VESK_RECOVERY_MENDED_CONTENT_HPP
#define VESK_RECOVERY_MENDED_CONTENT_HPP

#include <vesk/vesk_cb_record.h>
#include <vesk/vesk_hb_record.h>
#include <vesk/vesk_scan.h>

#include "io/fields.hpp"
#include "io/memory_writer.hpp"

// All functions return 0, or -22.
class mended_content
{
public:
    const byte_list &bytes() const { return bytes_; }
    void clear() { bytes_.clear(); }

    // What was found, as it is.
    int append(const vesk_scan_item &item)
    {
        return bytes_.append(item.content, item.content_length) ? 0 : QE_ERROR_NO_MEMORY;
    }
    int append(const mended_content &other)
    {
        return bytes_.append(other.bytes_.begin(), other.bytes_.size()) ? 0 : QE_ERROR_NO_MEMORY;
    }

    int append_header(uint32_t kind, uint32_t capacity)
    {
        return append_form(
            [=](field_writer fields) { return fields.u32(kind).byte(1).u32(capacity); });
    }
    int append(const vesk_cb_record_sensor_names *names)
    {
        return append_record(VESK_CB_RECORD_SENSOR_NAMES,
                             binary_serializer_write_vesk_cb_record_sensor_names, names);
    }
    int append(const vesk_cb_record_sensor_values *sample)
    {
        return append_record(VESK_CB_RECORD_SENSOR_VALUES,
                             binary_serializer_write_vesk_cb_record_sensor_values, sample);
    }
    int append(const vesk_hb_record_sensor_values *interval)
    {
        return append_record(VESK_HB_RECORD_SENSOR_VALUES,
                             binary_serializer_write_vesk_hb_record_sensor_values, interval);
    }
    int append(const vesk_cb_record_event *event)
    {
        return append_record(VESK_CB_RECORD_EVENT, binary_serializer_write_vesk_cb_record_event,
                             event);
    }

private:
    template <typename T>
    int append_record(uint32_t type, int (*write)(const T *, writer *), const T *record)
    {
        return append_form(
            [=](field_writer fields) { return fields.u32(type).form(write, record); });
    }
    template <typename Form>
    int append_form(Form form)
    {
        byte_list_writer target(&bytes_);
        const int written = form(field_writer(target.get())).result();
        return written < 0 ? written : 0;
    }

    byte_list bytes_;
};

#endif
