// A short life of readings whose stored bytes, taken for a float in the wrong order, are a
// signalling NaN: 3B 87 A5 7F is 0.0041395 and swapped 7F A5 87 3B. A machine that moves such a
// float through a register that quiets it, as those of the 80387 do, writes another number. The
// golden files below swapped_floats/ are the files after each chapter.
#ifndef VESK_TESTS_GOLDEN_SWAPPED_FLOATS_HPP
#define VESK_TESTS_GOLDEN_SWAPPED_FLOATS_HPP

#include <bit>
#include <cstdint>
#include <string>
#include <vector>

#include "common/telemetry.hpp"
#include "golden/recorded_life.hpp"

inline constexpr uint32_t swapped_floats_num_cb_samples = 8;
inline constexpr uint32_t swapped_floats_num_hb_intervals = 2;

inline const std::vector<life_chapter> &swapped_floats_chapters()
{
    static const std::vector<life_chapter> chapters = {
        {"swapped_floats/1-full", 0, 24},
        {"swapped_floats/2-rotated", 24, 25},
        {"swapped_floats/3-later", 25, 60},
    };
    return chapters;
}

// The bits of the reading of sensor k in vector i. The lowest byte is 7F or FF and the one above it
// 80 to BF: swapped, an exponent of ones and a fraction that begins with 0.
inline uint32_t swapped_floats_bits(uint32_t i, uint32_t k)
{
    static const uint32_t heads[] = {0x3b, 0x4c, 0xc2, 0x00, 0x12};
    const uint32_t second = (0x87 + 41 * i + 11 * k) & 0xff;
    const uint32_t third = 0x80 | ((0x25 + 7 * i + 3 * k) & 0x3f);
    const uint32_t last = (i + k) % 3 == 2 ? 0xff : 0x7f;
    return heads[k] << 24 | second << 16 | third << 8 | last;
}

inline owned_matrix swapped_floats_vector(int i)
{
    static const std::vector<std::string> names = {"small", "large", "negative", "denormal",
                                                   "tiny"};
    std::vector<reading> readings;
    for (uint32_t k = 0; k < names.size(); ++k) {
        const uint32_t bits = swapped_floats_bits(static_cast<uint32_t>(i), k);
        readings.push_back({names[k], static_cast<double>(std::bit_cast<float>(bits))});
    }
    return make_vector(life_time(i), readings);
}

// Writes the vectors of a chapter. Returns the first result that is not 0.
inline int live_swapped_floats(vesk *box, const life_chapter &chapter)
{
    for (int i = chapter.first_vector; i < chapter.end_of_vectors; ++i) {
        const int written = vesk_write_telemetry_vector(box, swapped_floats_vector(i).get());
        if (written != 0) {
            return written;
        }
    }
    return 0;
}

#endif
