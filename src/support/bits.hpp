// The bits of floating-point numbers, taken and given back where they lie in memory. A number that
// is passed by value may go through a register of the processor that quiets a signalling NaN (the
// x87 does), so numbers on their way to and from files travel as integers.
#ifndef VESK_SUPPORT_BITS_HPP
#define VESK_SUPPORT_BITS_HPP

#include <cfloat>
#include <cstdint>
#include <cstring>

// Results are the same on every machine only where no intermediate one has more digits than its
// type: on 32-bit x86 that asks for -msse2 -mfpmath=sse.
static_assert(FLT_EVAL_METHOD == 0, "arithmetic must be done in the types that are written");

inline uint32_t bits_of(const float &number)
{
    uint32_t bits = 0;
    memcpy(&bits, &number, sizeof bits);
    return bits;
}

inline uint64_t bits_of(const double &number)
{
    uint64_t bits = 0;
    memcpy(&bits, &number, sizeof bits);
    return bits;
}

inline void set_bits(float *number, uint32_t bits)
{
    memcpy(number, &bits, sizeof bits);
}

inline void set_bits(double *number, uint64_t bits)
{
    memcpy(number, &bits, sizeof bits);
}

#endif
