// Decodes the streams of a file in pieces, each on a processor of its own. A piece begins wherever
// a complete stream does; where the one before it does not end just there, the whole is given up,
// as it is wherever anything is not as a recorder writes it.
//
// The content of a file is bounded so that no limit of the scanner is met that would not be met in
// the file: the costliest records are names of no letters, of five bytes and a unit of its budget
// each, and the file itself allows a unit for each of its bytes and 8,192 more.
#include "stored_streams.hpp"

#include <algorithm>
#include <cstring>
#include <future>
#include <libdeflate.h>
#include <memory>
#include <thread>
#include <vector>

namespace vesk_python
{
namespace
{

using byte_span = std::span<const unsigned char>;

constexpr std::size_t header_size = 2;
constexpr std::size_t checksum_size = 4;

constexpr std::size_t most_pieces = 4;

// Of a file, in bytes.
constexpr uint64_t most_content(std::size_t size)
{
    constexpr uint64_t for_each_byte = 4;
    constexpr uint64_t for_each_piece = 4096;
    return for_each_byte * size + for_each_piece;
}

class decoder
{
public:
    decoder() : room_(least_room), decompressor_(libdeflate_alloc_decompressor())
    {
        if (!decompressor_) {
            throw std::bad_alloc();
        }
    }

    // Whether a complete stream of at most so much content begins there. Its content lives until
    // the next call.
    bool decode(byte_span bytes, std::size_t most)
    {
        for (;;) {
            const libdeflate_result result = libdeflate_zlib_decompress_ex(
                decompressor_.get(), bytes.data(), bytes.size(), room_.data(),
                std::min(most, room_.size()), &length_, &size_);
            if (result != LIBDEFLATE_INSUFFICIENT_SPACE || room_.size() >= most) {
                return result == LIBDEFLATE_SUCCESS;
            }
            room_.resize(2 * room_.size());
        }
    }
    byte_span content() const { return {room_.data(), size_}; }
    // How many bytes the stream takes.
    std::size_t length() const { return length_; }

    static constexpr std::size_t least_room = 64 * 1024;
    // The scanner believes in eight times as much.
    static constexpr std::size_t most_room = 1024 * 1024;

private:
    struct release {
        void operator()(libdeflate_decompressor *one) const { libdeflate_free_decompressor(one); }
    };

    std::vector<unsigned char> room_;
    std::unique_ptr<libdeflate_decompressor, release> decompressor_;
    std::size_t length_ = 0;
    std::size_t size_ = 0;
};

// The streams from one byte of a file up to another.
struct piece {
    byte_span file;
    std::size_t begin;
    std::size_t end;
    growing_array<unsigned char> stored = {};
    growing_array<uint64_t> places = {};
    bool is_whole = false; // streams and nothing else, the last of which ends at the end
};

// Appends a stream that stores @p content, in blocks as long as their two bytes of length allow.
void store(byte_span content, const unsigned char *checksum, growing_array<unsigned char> &to)
{
    constexpr std::size_t most_of_block = 65535;
    constexpr std::size_t block_header = 5;
    const std::size_t blocks =
        std::max<std::size_t>(1, (content.size() + most_of_block - 1) / most_of_block);
    unsigned char *at =
        to.extend(header_size + blocks * block_header + content.size() + checksum_size);
    *at++ = 0x78;
    *at++ = 0x01;
    for (std::size_t i = 0; i < blocks; ++i) {
        const std::size_t n = std::min(content.size(), most_of_block);
        const auto low = static_cast<unsigned char>(n & 0xffU);
        const auto high = static_cast<unsigned char>(n >> 8U);
        *at++ = i + 1 == blocks ? 1 : 0;
        *at++ = low;
        *at++ = high;
        *at++ = static_cast<unsigned char>(~low);
        *at++ = static_cast<unsigned char>(~high);
        at = std::copy_n(content.data(), n, at);
        content = content.subspan(n);
    }
    std::memcpy(at, checksum, checksum_size);
}

void decode(piece &one)
{
    decoder streams;
    uint64_t left = most_content(one.end - one.begin);
    std::size_t at = one.begin;
    while (at < one.end) {
        if (!streams.decode(one.file.subspan(at), decoder::most_room) ||
            streams.content().size() > left) {
            return;
        }
        left -= streams.content().size();
        one.places.add(at);
        at += streams.length();
        store(streams.content(), one.file.data() + at - checksum_size, one.stored);
    }
    one.is_whole = at == one.end;
}

// Whatever goes wrong, the file can be scanned as it is.
void decode_or_give_up(piece &one) noexcept
{
    try {
        decode(one);
    } catch (...) {
        one.is_whole = false;
    }
}

bool may_begin_stream(byte_span bytes)
{
    const unsigned header = bytes[0] * 256U + bytes[1];
    return (bytes[0] & 0x8fU) == 0x08 && header % 31 == 0 && (bytes[1] & 0x20U) == 0;
}

// Where the first complete stream from @p from on begins; the end of the file where none is found
// in the first places that look like one. One byte in a thousand does.
std::size_t find_stream(byte_span file, std::size_t from, decoder &streams)
{
    constexpr std::size_t most_length = 256 * 1024;
    int tries = 256;
    for (std::size_t at = from; at + header_size <= file.size() && tries > 0; ++at) {
        const byte_span rest = file.subspan(at);
        if (may_begin_stream(rest)) {
            if (streams.decode(rest.first(std::min(rest.size(), most_length)),
                               decoder::least_room)) {
                return at;
            }
            --tries;
        }
    }
    return file.size();
}

std::vector<piece> pieces_of(byte_span file, std::size_t least)
{
    const std::size_t processors = std::max(1U, std::thread::hardware_concurrency());
    const std::size_t count =
        std::max<std::size_t>(1, std::min({processors, most_pieces, file.size() / least}));
    decoder streams;
    std::vector<piece> pieces;
    std::size_t begin = 0;
    for (std::size_t i = 1; i <= count && begin < file.size(); ++i) {
        const std::size_t from = std::max(begin + 1, file.size() / count * i);
        const std::size_t end = i == count ? file.size() : find_stream(file, from, streams);
        pieces.push_back({file, begin, end});
        begin = end;
    }
    return pieces;
}

// The last of them in this thread.
void decode_all(std::vector<piece> &pieces)
{
    std::vector<std::future<void>> others;
    others.reserve(pieces.size());
    for (std::size_t i = 0; i + 1 < pieces.size(); ++i) {
        // Where no thread can be had, the piece is decoded when it is waited for.
        others.push_back(std::async(std::launch::async | std::launch::deferred, decode_or_give_up,
                                    std::ref(pieces[i])));
    }
    decode_or_give_up(pieces.back());
    for (const std::future<void> &other : others) {
        other.wait();
    }
}

template <typename Value>
void append(const growing_array<Value> &from, growing_array<Value> &to)
{
    std::copy_n(from.data(), from.size(), to.extend(from.size()));
}

} // namespace

std::optional<stored_streams> stored_streams::of(byte_span file, std::size_t least)
{
    try {
        return file.empty() ? std::nullopt : decoded(file, least);
    } catch (...) {
        return std::nullopt;
    }
}

std::optional<stored_streams> stored_streams::decoded(byte_span file, std::size_t least)
{
    std::vector<piece> pieces = pieces_of(file, least);
    decode_all(pieces);
    if (!std::all_of(pieces.begin(), pieces.end(), [](const piece &one) { return one.is_whole; })) {
        return std::nullopt;
    }
    stored_streams all;
    all.bytes_ = std::move(pieces.front().stored);
    all.places_ = std::move(pieces.front().places);
    for (auto one = pieces.begin() + 1; one != pieces.end(); ++one) {
        append(one->stored, all.bytes_);
        append(one->places, all.places_);
        *one = {};
    }
    all.places_.add(file.size());
    return all;
}

vesk_scan_item stored_streams::in_file(const vesk_scan_item &item) const
{
    const std::size_t stream = std::min<std::size_t>(item.stream, places_.size() - 2);
    vesk_scan_item placed = item;
    placed.offset = places_[stream];
    placed.length = places_[stream + 1] - places_[stream];
    return placed;
}

} // namespace vesk_python
