// The scanner over any content of a buffer file: it never aborts, hides nothing and invents
// nothing.
#include <algorithm>
#include <string>
#include <vector>

#include <vesk/vesk_buffer.h>
#include <vesk/vesk_scan.h>

#include "common/model_buffer_reader.hpp"
#include "common/zlib_streams.hpp"
#include "harness.hpp"
#include "scan_bounds.hpp"

namespace
{
// What the items of one scan say, checked against the bytes of the file.
class observer
{
public:
    explicit observer(std::string_view file) : file_(file) {}

    void see(const vesk_scan_item &item)
    {
        ++items_;
        expect(item.offset >= position_, "items come in file order");
        expect(item.offset + item.length <= file_.size() && item.length > 0,
               "an item lies in the file");
        if (item.kind == VESK_SCAN_DAMAGE && item.content_length == 0) {
            see_gap(item);
        } else {
            see_content(item);
        }
    }
    // The whole file must have been shown, but for streams without content.
    void finish()
    {
        end_stream();
        skip_empty_streams(file_.size());
        expect_equal(static_cast<long long>(file_.size()), static_cast<long long>(position_),
                     "every byte of the file is in an item");
    }
    uint32_t items() const { return items_; }
    uint32_t samples() const { return samples_; }
    bool is_damaged() const { return damaged_; }

private:
    void see_gap(const vesk_scan_item &item)
    {
        end_stream();
        skip_empty_streams(static_cast<std::size_t>(item.offset));
        expect(item.content == nullptr && item.error < 0, "damage has no content but a reason");
        expect_equal(static_cast<long long>(position_), static_cast<long long>(item.offset),
                     "damage begins where what was good ends");
        position_ = static_cast<std::size_t>(item.offset + item.length);
        damaged_ = true;
    }

    void see_content(const vesk_scan_item &item)
    {
        if (!in_stream_ || item.offset != stream_.offset) {
            end_stream();
            skip_empty_streams(static_cast<std::size_t>(item.offset));
            expect_equal(static_cast<long long>(position_), static_cast<long long>(item.offset),
                         "streams follow each other");
            stream_ = inflate_stream(file_, static_cast<std::size_t>(item.offset));
            in_stream_ = true;
            expect(stream_.complete, "only complete streams are shown");
        }
        expect_equal(static_cast<long long>(stream_.length), static_cast<long long>(item.length),
                     "a stream has its length");
        expect_equal(static_cast<long long>(content_end_), item.content_offset,
                     "the content is shown without gaps");
        expect(item.content_length > 0 &&
                   item.content_offset + item.content_length <= stream_.content.size(),
               "an item lies in its stream");
        const std::string_view content(reinterpret_cast<const char *>(item.content),
                                       item.content_length);
        expect(stream_.content.compare(item.content_offset, item.content_length, content) == 0,
               "the content is that of the stream");
        content_end_ += item.content_length;
        see_record(item);
    }

    void see_record(const vesk_scan_item &item)
    {
        const bool is_sample = item.kind == VESK_SCAN_SENSOR_VALUES;
        const bool is_event = item.kind == VESK_SCAN_EVENT || item.kind == VESK_SCAN_BARE_EVENT;
        const bool is_interval = item.kind == VESK_SCAN_INTERVAL;
        expect((item.values != nullptr) == is_sample, "a sample has values");
        expect((item.event != nullptr) == is_event, "an event is one");
        expect((item.interval != nullptr) == is_interval, "an interval is one");
        if (is_sample) {
            expect(item.values->values != nullptr && item.values->n_sensors > 0,
                   "a sample holds its floats");
        }
        if ((is_sample || is_interval) && item.error == 0) {
            expect(item.names != nullptr, "names govern a record");
            expect_equal(sensor_array_get_size(item.names->sensors),
                         is_sample ? item.values->n_sensors : item.interval->n_sensors,
                         "a record has as many values as it has names");
        }
        samples_ += is_sample || is_interval ? 1 : 0;
        damaged_ = damaged_ || item.kind == VESK_SCAN_DAMAGE;
    }

    void end_stream()
    {
        if (in_stream_) {
            expect_equal(static_cast<long long>(stream_.content.size()),
                         static_cast<long long>(content_end_), "all of a stream is shown");
            position_ = stream_.offset + stream_.length;
        }
        in_stream_ = false;
        content_end_ = 0;
    }

    void skip_empty_streams(std::size_t end)
    {
        while (position_ < end) {
            const zlib_stream stream = inflate_stream(file_, position_);
            if (!stream.complete || !stream.content.empty()) {
                return;
            }
            position_ += stream.length;
        }
    }

    std::string_view file_;
    std::size_t position_ = 0; // behind what was shown
    bool in_stream_ = false;
    zlib_stream stream_;
    std::size_t content_end_ = 0; // behind what was shown of the stream
    uint32_t items_ = 0;
    uint32_t samples_ = 0;
    bool damaged_ = false;
};
} // namespace

static int _see(const vesk_scan_item *item, void *context)
{
    static_cast<observer *>(context)->see(*item);
    return 0;
}

static int _ignore(const vesk_scan_item * /*item*/, void * /*context*/)
{
    return 0;
}

static int _stop(const vesk_scan_item * /*item*/, void * /*context*/)
{
    return 7;
}

// Whether the readers of the buffers take the file whole and no record lies in two streams.
static bool _is_whole(uint32_t kind, std::string_view file)
{
    constexpr std::size_t most_streams = 32;
    const std::vector<zlib_stream> streams = split_zlib_streams(file);
    return !streams.empty() && streams.size() <= most_streams &&
           std::all_of(streams.begin(), streams.end(), [=](const zlib_stream &stream) {
               model_buffer_reader model(file.substr(0, stream.offset + stream.length));
               return model.read_all(kind) == 0 && model.is_whole();
           });
}

static void _scan(const char *name, std::string_view input)
{
    put_file(name, input);
    const guard_rules bounds = {.largest_block = std::size_t{1} << 26,
                                .most_memory = most_memory_of_a_scan(input.size()),
                                .most_inflated = most_inflated_by_a_scan(input.size())};
    guarded(bounds, [&] {
        expect_equal(0, vesk_scan_buffer(name, _ignore, nullptr), "a file is scanned in bounds");
    });
    observer seen(input);
    const guard_rules rules = {.largest_block = std::size_t{1} << 26};
    guarded(rules, [&] {
        expect_equal(0, vesk_scan_buffer(name, _see, &seen), "a file is scanned to its end");
        expect_equal(seen.items() > 0 ? 7 : 0, vesk_scan_buffer(name, _stop, nullptr),
                     "the visitor ends the scan");
    });
    seen.finish();
    for (const uint32_t kind : {VESK_BUFFER_TYPE_CURRENT, VESK_BUFFER_TYPE_HIST}) {
        if (_is_whole(kind, input)) {
            model_buffer_reader model(input);
            expect_equal(0, model.read_all(kind), "a whole file can be read");
            if (model.values() > input.size()) {
                continue; // more samples than a recorder puts into as many bytes are shown in part
            }
            expect_equal(model.values(), seen.samples(), "all records are found");
            expect(!seen.is_damaged(), "a whole file has no damage");
        }
    }
}

static void _run(std::string_view input)
{
    for (const char *name : {"r.1.cbuf.z", "r.1.hbuf.z"}) {
        _scan(name, input);
    }
}

const fuzz_target target = {"scan", input_form::zlib_streams, 8192, _run};
