// Buffer files as the Python package decodes them: where it takes a file, the scanner finds in what
// it is shown the items of the file itself, at their places in the file.
#include <algorithm>
#include <span>
#include <string>
#include <vector>

#include <vesk/vesk_buffer.h>
#include <vesk/vesk_scan.h>

#include "common/zlib_streams.hpp"
#include "harness.hpp"
#include "stored_streams.hpp"

namespace
{

using byte_span = std::span<const unsigned char>;
using vesk_python::stored_streams;

// What an item says; the record in it follows from that.
struct seen_item {
    vesk_scan_kind kind;
    uint32_t buffer_kind;
    uint32_t capacity;
    uint64_t offset;
    uint64_t length;
    uint32_t stream;
    uint32_t content_offset;
    std::string content;
    int error;

    bool operator==(const seen_item &) const = default;
};

struct scan_of_file {
    const stored_streams *stored; // in which the file is scanned; null where it is the file itself
    std::vector<seen_item> items;
};

int see(const vesk_scan_item *found, void *context)
{
    auto *scan = static_cast<scan_of_file *>(context);
    const vesk_scan_item item = scan->stored != nullptr ? scan->stored->in_file(*found) : *found;
    std::string content;
    if (item.content != nullptr) {
        content.assign(reinterpret_cast<const char *>(item.content), item.content_length);
    }
    scan->items.push_back({item.kind, item.buffer_kind, item.capacity, item.offset, item.length,
                           item.stream, item.content_offset, std::move(content), item.error});
    return 0;
}

std::vector<seen_item> items_of(byte_span bytes, uint32_t kind, const stored_streams *stored)
{
    scan_of_file scan{stored, {}};
    expect_equal(0, vesk_scan_bytes(bytes.data(), bytes.size(), kind, see, &scan),
                 "content is scanned to its end");
    return std::move(scan.items);
}

bool is_row_of_streams(std::string_view input)
{
    const std::vector<zlib_stream> streams = split_zlib_streams(input);
    return std::all_of(streams.begin(), streams.end(),
                       [](const zlib_stream &stream) { return stream.complete; });
}

// Cut into pieces wherever it is long enough for two streams.
constexpr std::size_t least_piece = 32;

void run(std::string_view input)
{
    const byte_span file(reinterpret_cast<const unsigned char *>(input.data()), input.size());
    const auto stored = stored_streams::of(file, least_piece);
    // A flipped bit that changes nothing is damage for zlib alone.
    if (!stored || !is_row_of_streams(input)) {
        return;
    }
    for (const uint32_t kind : {VESK_BUFFER_TYPE_CURRENT, VESK_BUFFER_TYPE_HIST}) {
        expect(items_of(stored->bytes(), kind, &*stored) == items_of(file, kind, nullptr),
               "what is stored holds the items of the file");
    }
}

} // namespace

const fuzz_target target = {"stored_streams", input_form::zlib_streams, 8192, run};
