// Decodes streams and searches for them. The search tries every place where a stream may begin;
// only its budget keeps it from decoding the rest of the file at each of these places.
#include "recovery/stream_decoder.hpp"

#include <algorithm>

#include <vesk/error.h>

#include "io/fields.hpp"
#include "io/zlib_format.hpp"
#include "recovery/scan_limits.hpp"

// --- one stream --------------------------------------------------------------------------------

stream_decoder::stream_decoder()
    : ready_(inflateInit_(&zstrm_, zlib_interface_version, zlib_stream_size) == Z_OK)
{
}

stream_decoder::~stream_decoder()
{
    if (ready_) {
        inflateEnd(&zstrm_);
    }
}

stream_end stream_decoder::decode(const unsigned char *bytes, std::size_t n)
{
    if (!ready_ || inflateReset(&zstrm_) != Z_OK) {
        return stream_end::no_memory;
    }
    content_.clear();
    length_ = 0;
    while (length_ < n) {
        const auto piece = static_cast<uInt>(std::min<std::size_t>(n - length_, 1U << 20));
        zstrm_.next_in = const_cast<Bytef *>(bytes + length_);
        zstrm_.avail_in = piece;
        const stream_end end = drain();
        length_ += piece - zstrm_.avail_in;
        if (end != stream_end::torn) {
            return end;
        }
    }
    return stream_end::torn;
}

// Decodes the input at hand; torn when the stream goes on behind it.
stream_end stream_decoder::drain()
{
    constexpr uInt room = 65536;
    do {
        unsigned char *out = content_.reserve(room);
        if (out == nullptr) {
            return stream_end::no_memory;
        }
        zstrm_.next_out = out;
        zstrm_.avail_out = room;
        const int result = inflate(&zstrm_, Z_NO_FLUSH);
        content_.add(room - zstrm_.avail_out);
        if (result == Z_STREAM_END) {
            return stream_end::complete;
        }
        if (result == Z_MEM_ERROR) {
            return stream_end::no_memory;
        }
        if ((result != Z_OK && result != Z_BUF_ERROR) ||
            content_.size() > most_content(zstrm_.total_in)) {
            return stream_end::bad;
        }
    } while (zstrm_.avail_out == 0 || zstrm_.avail_in > 0);
    return stream_end::torn;
}

// --- all streams -------------------------------------------------------------------------------

// The two bytes that begin a zlib stream: deflate, a window of at most 32 KB, no dictionary.
static bool _may_begin_stream(const unsigned char *bytes, std::size_t n)
{
    if (n < 2) {
        return false;
    }
    const unsigned header = bytes[0] * 256U + bytes[1];
    return (bytes[0] & 0x8fU) == 0x08 && header % 31 == 0 && (bytes[1] & 0x20U) == 0;
}

// A damaged stream of a recorder is decoded once in vain, and then again from each place in it
// where a stream might begin, which is one byte in a thousand. So 64 is a choice that leaves much
// room; where a file of 64 MB is one damaged place, searching it takes as long as decoding 4 GB.
uint64_t _vesk_search_budget(uint64_t size, uint64_t fixed_part)
{
    constexpr uint64_t for_each_byte = 64;
    return for_each_byte * size + fixed_part;
}

bool stream_search::charge(uint64_t n)
{
    budget_ -= std::min(budget_, n);
    return budget_ > 0;
}

// Bytes that were decoded without finding a stream are charged to the budget.
void stream_search::charge_decoding()
{
    (void)charge(uint64_t(decoder_.length()) + decoder_.content().size() + 1);
}

bool stream_search::next(file_piece *piece)
{
    if (at_ >= size_ || failed_) {
        return false;
    }
    const stream_end end = decode_at(at_);
    failed_ = end == stream_end::no_memory;
    if (end == stream_end::complete) {
        *piece = {at_, decoder_.length(), 0, &decoder_.content()};
    } else if (!failed_) {
        charge_decoding();
        bool gave_up = false;
        const std::size_t found = find_stream(at_ + 1, &gave_up);
        const int error = gave_up                   ? QE_ERROR_LIMIT
                          : end == stream_end::torn ? QE_ERROR_TRUNCATED
                                                    : QE_ERROR_IO;
        *piece = {at_, found - at_, error, nullptr};
    }
    if (failed_) {
        return false;
    }
    at_ += static_cast<std::size_t>(piece->length);
    return true;
}

// The stream at `at`. One that lost its last bytes passes for complete when those that follow
// happen to be the same: the next one begins in its checksum then, and it is torn.
stream_end stream_search::decode_at(std::size_t at)
{
    constexpr std::size_t checksum_size = 4;
    const stream_end end = decoder_.decode(bytes_ + at, size_ - at);
    const std::size_t behind = at + decoder_.length();
    if (end != stream_end::complete) {
        return end;
    }
    bool content_is_lost = false;
    for (std::size_t next = behind - checksum_size; next < behind && !is_spent(); ++next) {
        if (!_may_begin_stream(bytes_ + next, size_ - next)) {
            continue;
        }
        const stream_end found = decode_record(next);
        if (found != stream_end::bad) {
            return found == stream_end::complete ? stream_end::torn : found;
        }
        content_is_lost = true;
    }
    return content_is_lost ? decoder_.decode(bytes_ + at, size_ - at) : end;
}

// A complete stream that begins with a record, tagged or a bare event, as all streams of a buffer
// do; everything else is bad, and counts against the budget.
stream_end stream_search::decode_record(std::size_t at)
{
    const stream_end found = decoder_.decode(bytes_ + at, size_ - at);
    if (found == stream_end::no_memory ||
        (found == stream_end::complete && decoder_.content().size() > 0 &&
         decoder_.content().begin()[0] <= 1)) {
        return found;
    }
    charge_decoding();
    return stream_end::bad;
}

// Where the next complete stream begins, from `from` on; the size of the file when there is none.
std::size_t stream_search::find_stream(std::size_t from, bool *gave_up)
{
    for (std::size_t next = from; next < size_; ++next) {
        if (!_may_begin_stream(bytes_ + next, size_ - next)) {
            continue;
        }
        if (is_spent()) {
            *gave_up = true;
            return size_;
        }
        const stream_end found = decode_record(next);
        failed_ = failed_ || found == stream_end::no_memory;
        if (found == stream_end::complete || failed_) {
            return next;
        }
    }
    return size_;
}
