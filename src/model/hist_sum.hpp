// How the sums of a hist value grow. Not exported.
#ifndef VESK_MODEL_HIST_SUM_HPP
#define VESK_MODEL_HIST_SUM_HPP

#include <bit>
#include <cmath>
#include <cstdint>

// Infinities of both signs add up to a NaN, which x86 makes with its sign set, other machines
// without.
#if defined(__x86_64__) || defined(__i386__)
inline constexpr bool makes_nans_of_x86 = true;
#else
inline constexpr bool makes_nans_of_x86 = false;
#endif

// History stores the sums, so they get the bits of x86 everywhere. A NaN that was there before
// stays.
inline float hist_sum(float sum, float addend)
{
    const float result = sum + addend;
    if constexpr (!makes_nans_of_x86) {
        if (std::isnan(result) && !std::isnan(sum) && !std::isnan(addend)) {
            return std::bit_cast<float>(UINT32_C(0xffc00000));
        }
    }
    return result;
}

#endif
