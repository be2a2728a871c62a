// Multiplies sizes and detects overflow, which is easily reached on a 32-bit machine. Callers
// compute a size with this before they allocate, so that they never get less memory than they use.
#ifndef VESK_SUPPORT_CHECKED_SIZE_HPP
#define VESK_SUPPORT_CHECKED_SIZE_HPP

#include <concepts>

// Stores the product of all factors. False, with nothing stored, where `Size` cannot hold it.
template <std::unsigned_integral Size, std::unsigned_integral... Factors>
constexpr bool multiply_sizes(Size *product, Factors... factors)
{
    Size result = 1;
    if (!(... && !__builtin_mul_overflow(result, factors, &result))) {
        return false;
    }
    *product = result;
    return true;
}

// The same, rounded up to a multiple of `unit`.
template <std::unsigned_integral Size, std::unsigned_integral... Factors>
constexpr bool multiply_sizes_rounded(Size *product, Size unit, Factors... factors)
{
    Size exact = 0;
    Size above = 0;
    if (!multiply_sizes(&exact, factors...) || __builtin_add_overflow(exact, unit - 1, &above)) {
        return false;
    }
    *product = above / unit * unit;
    return true;
}

#endif
