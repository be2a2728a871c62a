// The content of one stream of a recovered buffer, while it is put together.
//
// In: records, as they were found or as they should be. Out: their bytes in the stored form, in
// the order in which they came, and where they may be divided into streams: what is added to a
// long stream must not make it longer than a scan believes. What a scan will charge for the records
// is added up, too. Nothing is said or written here: that is up to the mender.
#ifndef VESK_RECOVERY_MENDED_CONTENT_HPP
#define VESK_RECOVERY_MENDED_CONTENT_HPP

#include <vesk/vesk_cb_record.h>
#include <vesk/vesk_hb_record.h>
#include <vesk/vesk_scan.h>

#include "io/fields.hpp"
#include "io/memory_writer.hpp"
#include "recovery/record_budget.hpp"
#include "recovery/records.hpp"

// All functions return 0, or QE_ERROR_NO_MEMORY (-22).
class mended_content
{
public:
    const byte_list &bytes() const { return bytes_; }
    // The ends of records behind which another stream may begin, in order.
    const growing_list<std::size_t> &part_ends() const { return part_ends_; }
    // What a scan will charge for the content, at most.
    uint64_t price() const { return price_; }
    void clear()
    {
        bytes_.clear();
        part_ends_.clear();
        price_ = 0;
        has_free_record_ = false;
    }

    // What was found, as it is.
    int append(const vesk_scan_item &item)
    {
        const uint64_t length = item.content_length;
        if (item.kind == VESK_SCAN_SENSOR_NAMES) {
            charge_names(*item.names, length);
        } else if (item.kind != VESK_SCAN_HEADER) {
            charge_record(length, item.values     ? _vesk_is_without_values(*item.values)
                                  : item.interval ? _vesk_is_without_values(*item.interval)
                                                  : false);
        }
        return append(item.content, item.content_length);
    }
    // Names that were put together elsewhere.
    int append_names(const mended_content &names)
    {
        price_ += names.price_;
        return append(names.bytes_.begin(), names.bytes_.size());
    }

    int append_header(uint32_t kind, uint32_t capacity)
    {
        return append_form(
            [=](field_writer fields) { return fields.u32(kind).byte(1).u32(capacity); });
    }
    int append(const vesk_cb_record_sensor_names *names)
    {
        const std::size_t begin = bytes_.size();
        const int result =
            append_record(VESK_CB_RECORD_SENSOR_NAMES,
                          binary_serializer_write_vesk_cb_record_sensor_names, names);
        charge_names(*names, bytes_.size() - begin);
        return result;
    }
    int append(const vesk_cb_record_sensor_values *sample)
    {
        const std::size_t begin = bytes_.size();
        const int result =
            append_record(VESK_CB_RECORD_SENSOR_VALUES,
                          binary_serializer_write_vesk_cb_record_sensor_values, sample);
        charge_record(bytes_.size() - begin, _vesk_is_without_values(*sample));
        return result;
    }
    int append(const vesk_hb_record_sensor_values *interval)
    {
        const std::size_t begin = bytes_.size();
        const int result =
            append_record(VESK_HB_RECORD_SENSOR_VALUES,
                          binary_serializer_write_vesk_hb_record_sensor_values, interval);
        charge_record(bytes_.size() - begin, _vesk_is_without_values(*interval));
        return result;
    }
    int append(const vesk_cb_record_event *event)
    {
        const std::size_t begin = bytes_.size();
        const int result = append_record(VESK_CB_RECORD_EVENT,
                                         binary_serializer_write_vesk_cb_record_event, event);
        charge_record(bytes_.size() - begin, false);
        return result;
    }

private:
    int append(const unsigned char *bytes, std::size_t n)
    {
        return bytes_.append(bytes, n) ? end_record() : QE_ERROR_NO_MEMORY;
    }

    void charge_names(const vesk_cb_record_sensor_names &names, uint64_t length)
    {
        const uint32_t n = names.sensors != nullptr ? sensor_array_get_size(names.sensors) : 0;
        price_ += record_budget::price_of_names(n, length);
    }
    void charge_record(uint64_t length, bool is_padding)
    {
        price_ += has_free_record_ ? record_budget::price_of_record(length, is_padding) : 0;
        has_free_record_ = true;
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
    uint64_t price_ = 0;
    bool has_free_record_ = false;
};

#endif
