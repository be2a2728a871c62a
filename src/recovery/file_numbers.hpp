// The numbers in the names of buffer files. A recorder counts them up and overwrites what it meets,
// so the next one lies above the files of the box and far from any file that has to stay; and the
// box ends when the 32 bits end, so near their end it begins anew with low ones.
#ifndef VESK_RECOVERY_FILE_NUMBERS_HPP
#define VESK_RECOVERY_FILE_NUMBERS_HPP

#include <cstdint>

#include "support/growing_list.hpp"

using number_list = growing_list<uint32_t>;

// How far a stored number may be above the highest file. Each attempt at a rotation that fails uses
// one or two numbers up.
inline constexpr uint32_t most_skipped_numbers = 1000;

// Whether a stored number can be believed when the highest file of the box has the other one.
bool _vesk_is_believable_number(uint32_t stored, uint32_t highest);

// The lowest number from `start` on behind which `room` numbers, it included, are in none of the
// names. 0 when there is none below the end of the 32 bits. Sorts `taken`.
uint32_t _vesk_find_free_numbers(number_list *taken, uint64_t start, uint64_t room);

// The number for the next file of a box whose files have numbers up to `start` - 1: one with much
// room, or with enough for a box to be recovered again before it ends. 0 near the end of the 32
// bits.
uint32_t _vesk_find_next_number(number_list *taken, uint64_t start);

#endif
