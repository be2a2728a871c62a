// A hash of texts that come from files, for tables in which they are found again.
//
// The author of such a file must not be able to choose names that all fall into one place of a
// table, which would make each look-up a walk over all of them. So the hash begins with a number
// that differs from process to process. It decides only where an entry lies in memory, never what
// is found, shown or stored.
#ifndef VESK_SUPPORT_TEXT_HASH_HPP
#define VESK_SUPPORT_TEXT_HASH_HPP

#include <cstddef>
#include <cstdint>
#include <string.h>
#include <sys/auxv.h>

// The 16 random bytes that Linux gives each process; 0 where there are none.
inline uint64_t text_hash_seed()
{
    uint64_t seed = 0;
    const auto *random = reinterpret_cast<const void *>(getauxval(AT_RANDOM));
    if (random != nullptr) {
        memcpy(&seed, random, sizeof seed);
    }
    return seed;
}

// FNV-1a from a random beginning. The steps at the end let every bit of the sum reach the low ones,
// which choose the place in a table.
inline uint64_t hash_text(const char *text, std::size_t length)
{
    constexpr uint64_t offset_basis = 14695981039346656037U;
    constexpr uint64_t prime = 1099511628211U;
    static const uint64_t begin = offset_basis ^ text_hash_seed();
    uint64_t sum = begin;
    for (std::size_t i = 0; i < length; ++i) {
        sum = (sum ^ static_cast<unsigned char>(text[i])) * prime;
    }
    sum ^= sum >> 32U;
    sum *= prime;
    return sum ^ (sum >> 29U);
}

#endif
