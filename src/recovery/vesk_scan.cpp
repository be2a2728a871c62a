// The scan of one buffer file: streams are taken apart into records, and what is none is told. The
// names, the capacity and the number of records so far tell which records the readers refuse.
//
// Where the next stream begins is told by the one before it: streams follow each other without a
// gap. Only where none can be decoded every byte from there on is tried that two bytes of a zlib
// header begin with, until a stream is complete and begins with a record (stream_decoder.cpp).
//
// Three budgets keep the work in proportion to the size of the file: the search is charged for what
// it decodes in vain (stream_decoder.hpp), and so is the search for records in the remains of a
// stream; the records that are made are charged by number and length (record_budget.hpp); and no
// stream may be longer than scan_limits.hpp allows. What they refuse is shown as damage.
#include <algorithm>
#include <string.h>

#include <vesk/vesk_scan.h>

#include "box/loaded_file.hpp"
#include "recovery/buffer_scan.hpp"
#include "recovery/byte_cursor.hpp"
#include "recovery/record_budget.hpp"
#include "recovery/scan_limits.hpp"
#include "recovery/stream_decoder.hpp"
#include "support/precondition.hpp"

namespace
{

// Decides where the header of a buffer is missing.
uint32_t kind_of(const char *filename)
{
    constexpr char suffix[] = ".hbuf.z";
    const std::size_t length = strlen(filename);
    const std::size_t tail = sizeof suffix - 1;
    return length >= tail && strcmp(filename + length - tail, suffix) == 0
               ? VESK_BUFFER_TYPE_HIST
               : VESK_BUFFER_TYPE_CURRENT;
}

// Shows a receiver the items of a file in order and keeps what governs them.
class buffer_scan
{
public:
    buffer_scan(uint32_t kind_by_name, const unsigned char *bytes, std::size_t size,
                std::size_t files_of_box, const item_receiver &receiver)
        : receiver_(receiver), kind_by_name_(kind_by_name),
          streams_(bytes, size, fixed_part_of_file(files_of_box)),
          budget_(size, fixed_part_of_file(files_of_box))
    {
    }

    int run()
    {
        file_piece piece = {};
        int result = 0;
        while (result == 0 && streams_.next(&piece)) {
            result = piece.content != nullptr ? show_stream(piece) : show_damage(piece);
        }
        return result == 0 && streams_.failed() ? QE_ERROR_NO_MEMORY : result;
    }

private:
    int show_damage(const file_piece &piece)
    {
        vesk_scan_item item = {};
        item.kind = VESK_SCAN_DAMAGE;
        item.offset = piece.offset;
        item.length = piece.length;
        item.stream = n_streams_;
        item.error = piece.error;
        return show(&item, nullptr);
    }

    int show_stream(const file_piece &piece)
    {
        const unsigned char *content = piece.content->begin();
        const std::size_t n = piece.content->size();
        vesk_scan_item item = {};
        item.offset = piece.offset;
        item.length = piece.length;
        item.stream = n_streams_++;
        budget_.begin_stream();
        std::size_t at = 0;
        int result = 0;
        if (item.stream == 0 && n > 0) {
            at = find_header(content, n);
            if (at > 0) {
                result = show_header(item, content, at);
            } else {
                buffer_kind_ = kind_by_name_;
            }
        }
        return result != 0 ? result : show_records(item, content, at, n);
    }

    // Shows the content of a stream from `at` on.
    int show_records(const vesk_scan_item &item, const unsigned char *content, std::size_t at,
                     std::size_t n)
    {
        int result = 0;
        while (at < n && result == 0) {
            std::size_t length = measure_record(content + at, n - at);
            int error = QE_ERROR_MALFORMED;
            if (length > 0) {
                scanned_record record;
                result = _vesk_build_record(buffer_kind_, content + at, length, &record);
                if (result == 0 && take_from_budget(record, length)) {
                    result = show_record(item, content, at, length, &record);
                    at += length;
                    continue;
                }
                // This record and those behind it in the stream are not shown.
                length = n - at;
                error = QE_ERROR_LIMIT;
            } else {
                length = measure_fragment(content + at, n - at);
            }
            if (result == 0) {
                result = show_fragment(item, content, at, length, error);
            }
            at += length;
        }
        return result;
    }

    bool take_from_budget(const scanned_record &record, std::size_t length)
    {
        return record.names
                   ? budget_.take_names(sensor_array_get_size(record.names->sensors), length)
                   : budget_.take_record(length,
                                         !budget_.is_free() && _vesk_is_without_values(record));
    }

    // The length of the header that the content of the first stream begins with, 0 when it has
    // none. A header may look like the beginning of a record: what makes whole records of the rest
    // is it.
    std::size_t find_header(const unsigned char *content, std::size_t n)
    {
        constexpr std::size_t header_size = 9;
        byte_cursor at(content, n);
        const uint32_t kind = at.u32();
        at.version(1);
        const uint32_t capacity = at.u32();
        if (!at.ok() || (kind != VESK_BUFFER_TYPE_CURRENT && kind != VESK_BUFFER_TYPE_HIST) ||
            capacity == 0) {
            return 0;
        }
        if (!_vesk_are_records(kind, content + header_size, n - header_size) &&
            _vesk_are_records(kind_by_name_, content, n)) {
            return 0;
        }
        return header_size;
    }

    int show_header(vesk_scan_item item, const unsigned char *content, std::size_t size)
    {
        byte_cursor at(content, size);
        buffer_kind_ = at.u32();
        at.version(1);
        capacity_ = at.u32();
        item.kind = VESK_SCAN_HEADER;
        item.content = content;
        item.content_length = static_cast<uint32_t>(size);
        budget_.allow_capacity(capacity_);
        item.error = capacity_ % 2 == 0 ? 0 : QE_ERROR_MALFORMED;
        return show(&item, nullptr);
    }

    int show_record(vesk_scan_item item, const unsigned char *content, std::size_t at,
                    std::size_t length, scanned_record *record)
    {
        item.kind = record->kind;
        item.content = content + at;
        item.content_offset = static_cast<uint32_t>(at);
        item.content_length = static_cast<uint32_t>(length);
        item.values = record->values.get();
        item.event = record->event.get();
        item.interval = record->interval.get();
        if (record->kind == VESK_SCAN_SENSOR_NAMES) {
            names_.reset(record->names.release());
        }
        item.error = refusal(*record);
        ++records_;
        return show(&item, record);
    }

    // The code with which the readers of the buffers refuse a record, 0 when they take it.
    int refusal(const scanned_record &record)
    {
        const uint32_t n = record.values     ? record.values->n_sensors
                           : record.interval ? record.interval->n_sensors
                                             : 0;
        if (n > 0) {
            ++data_records_;
        }
        if (record.error != 0) {
            return record.error;
        }
        if (records_ == 0 && record.kind != VESK_SCAN_SENSOR_NAMES) {
            return QE_ERROR_UNKNOWN_KIND;
        }
        if (n > 0 && (!names_ || sensor_array_get_size(names_->sensors) != n ||
                      (capacity_ > 0 && data_records_ > capacity_))) {
            return QE_ERROR_MALFORMED;
        }
        return 0;
    }

    // The length of the record that the content begins with, 0 where there is none. What was
    // abandoned may take the beginning of the record behind it for its own end; then no record
    // follows it, but whole ones begin inside of it.
    std::size_t measure_record(const unsigned char *content, std::size_t n)
    {
        const std::size_t length = _vesk_measure_record(buffer_kind_, content, n);
        if (length == 0 || length == n ||
            _vesk_measure_record(buffer_kind_, content + length, n - length) > 0) {
            return length;
        }
        return measure_fragment(content, n) < length ? 0 : length;
    }

    // How much of the content is no record: up to where nothing but whole records follow.
    std::size_t measure_fragment(const unsigned char *content, std::size_t n)
    {
        for (std::size_t length = 1; length < n && !streams_.is_spent(); ++length) {
            const std::size_t rest = n - length;
            const std::size_t records =
                content[length] <= 1 ? _vesk_measure_records(buffer_kind_, content + length, rest)
                                     : 0;
            if (records == rest) {
                return length;
            }
            // A walk over whole records that ends in something else is charged for its bytes, each
            // time that one begins.
            (void)streams_.charge(uint64_t(records) + 1);
        }
        return n;
    }

    int show_fragment(vesk_scan_item item, const unsigned char *content, std::size_t at,
                      std::size_t length, int error)
    {
        item.kind = VESK_SCAN_DAMAGE;
        item.content = content + at;
        item.content_offset = static_cast<uint32_t>(at);
        item.content_length = static_cast<uint32_t>(length);
        item.error = error;
        return show(&item, nullptr);
    }

    int show(vesk_scan_item *item, const scanned_record *record)
    {
        item->buffer_kind = buffer_kind_;
        item->capacity = capacity_;
        item->names = names_.get();
        return receiver_.take(*item, record, receiver_.context);
    }

    const item_receiver &receiver_;
    uint32_t kind_by_name_;
    stream_search streams_;
    record_budget budget_;
    owned<vesk_cb_record_sensor_names, vesk_cb_record_sensor_names_destroy> names_;
    uint32_t buffer_kind_ = 0;
    uint32_t capacity_ = 0;
    uint32_t n_streams_ = 0;
    uint64_t records_ = 0;
    uint64_t data_records_ = 0;
};

} // namespace

int _vesk_scan_items(const char *filename, link_rule rule, std::size_t files_of_box,
                     const item_receiver &receiver)
{
    byte_list file;
    const int loaded = _vesk_load_file(filename, rule, SIZE_MAX, &file);
    if (loaded < 0 || file.size() == 0) {
        return loaded;
    }
    return buffer_scan(kind_of(filename), file.begin(), file.size(), files_of_box, receiver).run();
}

namespace
{

struct public_visit {
    vesk_scan_visitor visit;
    void *context;
};

int show_publicly(const vesk_scan_item &item, const scanned_record * /*record*/, void *visit)
{
    const auto *to = static_cast<const public_visit *>(visit);
    return to->visit(&item, to->context);
}

} // namespace

int vesk_scan_buffer(const char *filename, vesk_scan_visitor visit, void *context)
{
    VESK_REQUIRE(filename != nullptr, "filename != ((void *)0)");
    VESK_REQUIRE(visit != nullptr, "visit != ((void *)0)");
    public_visit to = {visit, context};
    return _vesk_scan_items(filename, link_rule::follow, 1, {show_publicly, &to});
}

int vesk_scan_bytes(const unsigned char *bytes, size_t size, uint32_t buffer_kind,
                    vesk_scan_visitor visit, void *context)
{
    VESK_REQUIRE(bytes != nullptr || size == 0, "bytes != ((void *)0) || size == 0");
    VESK_REQUIRE(buffer_kind == VESK_BUFFER_TYPE_CURRENT || buffer_kind == VESK_BUFFER_TYPE_HIST,
                 "buffer_kind == VESK_BUFFER_TYPE_CURRENT || buffer_kind == VESK_BUFFER_TYPE_HIST");
    VESK_REQUIRE(visit != nullptr, "visit != ((void *)0)");
    public_visit to = {visit, context};
    const item_receiver receiver = {show_publicly, &to};
    return buffer_scan(buffer_kind, bytes, size, 1, receiver).run();
}
