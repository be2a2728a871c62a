// The content of one stream of a recovered buffer, while it is put together.
//
// In: records, as they were found or as they should be. Out: their bytes in the stored form, in
// the order in which they came, and where they may be divided into streams: what is added to a
// long stream must not make it longer than a scan believes. Nothing is said or written here: that
// is up to the mender.
#ifndef VESK_RECOVERY_MENDED_CONTENT_HPP
#define VESK_RECOVERY_MENDED_CONTENT_HPP

#include <vesk/vesk_cb_record.h>
#include <vesk/vesk_hb_record.h>
#include <vesk/vesk_scan.h>

#include "io/fields.hpp"
#include "io/memory_writer.hpp"

// All functions return 0, or QE_ERROR_NO_MEMORY (-22).
class mended_content
{
public:
    const byte_list &bytes() const { return bytes_; }
    // The ends of records behind which another stream may begin, in order.
    const growing_list<std::size_t> &part_ends() const { return part_ends_; }
    void clear()
    {
        bytes_.clear();
        part_ends_.clear();
    }

    // What was found, as it is.
    int append(const vesk_scan_item &item) { return append(item.content, item.content_length); }
    int append(const mended_content &other)
    {
        return append(other.bytes_.begin(), other.bytes_.size());
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
    int append(const unsigned char *bytes, std::size_t n)
    {
        return bytes_.append(bytes, n) ? end_record() : QE_ERROR_NO_MEMORY;
    }

    int end_record()
    {
        // The length at which a stream is divided: far below what a scan accepts, and more than any
        // stream of a recorder has.
        constexpr std::size_t part_size = 1U << 20U;
        const std::size_t n = part_ends_.size();
        const std::size_t begin = n > 0 ? part_ends_[n - 1] : 0;
        const bool is_long = bytes_.size() - begin >= part_size;
        return !is_long || part_ends_.append(bytes_.size()) ? 0 : QE_ERROR_NO_MEMORY;
    }

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
        return written < 0 ? written : end_record();
    }

    byte_list bytes_;
    growing_list<std::size_t> part_ends_;
};

#endif
