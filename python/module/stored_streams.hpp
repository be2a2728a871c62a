// A buffer file with its streams stored instead of compressed.
//
// zlib takes most of the time in which a box becomes a table. libdeflate decodes the streams of a
// recorder faster, and on several processors at once; the scanner of the library then only copies
// what is stored. It sees the same streams with the same content, so it finds the same items.
//
// There is one difference: libdeflate reads on over a flipped bit that makes a code which zlib
// knows no use for. Where that changes nothing, the checksum vouches for the content, and the
// stream counts as whole.
#ifndef VESK_PYTHON_STORED_STREAMS_HPP
#define VESK_PYTHON_STORED_STREAMS_HPP

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include <vesk/vesk_scan.h>

#include "growing_array.hpp"

namespace vesk_python
{

class stored_streams
{
public:
    // In smaller pieces than this the processors would wait for each other longer than they work.
    static constexpr std::size_t least_piece = 256 * 1024;

    // Nothing where some byte of @p file is in no complete stream, or where the content is so long
    // for its size that the scanner might refuse a part: then it has to look at the file itself. So
    // it has where there is no memory. No processor takes fewer bytes than @p least.
    static std::optional<stored_streams> of(std::span<const unsigned char> file,
                                            std::size_t least = least_piece);

    // What the scanner is to be shown.
    std::span<const unsigned char> bytes() const { return {bytes_.data(), bytes_.size()}; }
    // An item of it, placed where its stream lies in the file.
    vesk_scan_item in_file(const vesk_scan_item &item) const;

private:
    static std::optional<stored_streams> decoded(std::span<const unsigned char> file,
                                                 std::size_t least);

    growing_array<unsigned char> bytes_;
    // Where each stream begins in the file, and where the last one ends.
    growing_array<uint64_t> places_;
};

} // namespace vesk_python

#endif
