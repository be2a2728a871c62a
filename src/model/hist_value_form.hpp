// The stored form of a hist value as bytes in memory, for those who lay out or take apart many at
// once. What the fields are stands in hist_value.cpp. Not exported.
#ifndef VESK_MODEL_HIST_VALUE_FORM_HPP
#define VESK_MODEL_HIST_VALUE_FORM_HPP

#include <cstdint>
#include <cstring>
#include <iterator>

#include <vesk/hist_value.h>

#include "support/big_endian.hpp"
#include "support/bits.hpp"

// The floats, in the order in which they are stored behind the version and the count.
inline constexpr float hist_value::*hist_value_floats[] = {
    &hist_value::min_value,   &hist_value::max_value,
    &hist_value::first_value, &hist_value::last_value,
    &hist_value::sum,         &hist_value::sum_squares,
    &hist_value::sum_cubes,   &hist_value::sum_fourth_powers,
};

// The count and the floats.
inline constexpr uint32_t hist_value_words = 1 + std::size(hist_value_floats);

inline constexpr uint8_t hist_value_version = 1;
inline constexpr uint32_t hist_value_bytes =
    sizeof hist_value_version + hist_value_words * sizeof(uint32_t);

inline uint32_t hist_value_word(const hist_value &hv, uint32_t i)
{
    return i == 0 ? hv.count : bits_of(hv.*hist_value_floats[i - 1]);
}

inline void hist_value_set_word(hist_value *hv, uint32_t i, uint32_t word)
{
    if (i == 0) {
        hv->count = word;
    } else {
        set_bits(&(hv->*hist_value_floats[i - 1]), word);
    }
}

inline void hist_value_store(const hist_value &hv, unsigned char *to)
{
    uint32_t words[hist_value_words];
    for (uint32_t i = 0; i < hist_value_words; ++i) {
        words[i] = big_endian(hist_value_word(hv, i));
    }
    to[0] = static_cast<unsigned char>(hv.version);
    memcpy(to + 1, words, sizeof words);
}

// False, and nothing is changed, when the version is another one.
inline bool hist_value_load(const unsigned char *from, hist_value *hv)
{
    if (from[0] != hist_value_version) {
        return false;
    }
    uint32_t words[hist_value_words];
    memcpy(words, from + 1, sizeof words);
    for (uint32_t i = 0; i < hist_value_words; ++i) {
        hist_value_set_word(hv, i, big_endian(words[i]));
    }
    return true;
}

#endif
