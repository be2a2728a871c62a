// What the files of one box may cost together, beyond a multiple of their size.
//
// Every budget of the scanner has a part for each byte of the file and a fixed part, which small
// files need. The fixed part belongs to the whole box: its files share it evenly, so that a
// thousand small files cost no more than one, and no file can use up what another one needs. How
// much a file gets depends on nothing but the number of files, so two scans of the same file give
// the same result.
#ifndef VESK_RECOVERY_SCAN_LIMITS_HPP
#define VESK_RECOVERY_SCAN_LIMITS_HPP

#include <algorithm>
#include <cstddef>
#include <cstdint>

// Both are choices, far above what a box of a recorder needs: three buffers, two more for the
// length of a rotation and a few that were left behind share as one.
inline constexpr uint64_t fixed_part_of_box = 65536;
inline constexpr std::size_t usual_files_of_box = 8;

// The part of one among `files` files. A file that is scanned alone gets the part that it would
// have in a usual box, so that the scan finds what a recovery of the box finds.
inline constexpr uint64_t fixed_part_of_file(std::size_t files)
{
    return fixed_part_of_box / std::max(files, usual_files_of_box);
}

// The longest content of a stream of which `stored` bytes were read; more is damage. The first
// number is the names of 10,000 sensors of 800 letters each; a sample of 10,000 sensors takes 40 KB
// and an interval 370 KB. It bounds the memory that a short stream can ask for. Both numbers are
// choices: longer names are believed when they are stored at some length, while zeros, which shrink
// to a thousandth, are not.
inline constexpr uint64_t most_content(uint64_t stored)
{
    constexpr uint64_t for_each_stream = 8U << 20U;
    constexpr uint64_t for_each_byte = 32;
    return for_each_stream + for_each_byte * stored;
}

// How many records without values a buffer is filled up with, and how many values they have. A
// damaged header may state an enormous size, which must not fill the disk.
inline constexpr uint32_t most_padding = 10'000'000;
inline constexpr uint64_t most_padded_values = most_padding;

#endif
