// Finds numbers for new buffer files that no existing file has. The numbers in use go in, the first
// number of a free range comes out, or 0. The range is long because a recorder counts upwards
// without looking, and overwrites whatever file has the next number.
#include "recovery/file_numbers.hpp"

static constexpr uint64_t numbers_end = uint64_t(UINT32_MAX) + 1;

bool _vesk_is_believable_number(uint32_t stored, uint32_t highest)
{
    return stored > highest && stored - highest <= most_skipped_numbers;
}

uint32_t _vesk_find_free_numbers(number_list *taken, uint64_t start, uint64_t room)
{
    std::sort(taken->begin(), taken->end());
    for (const uint32_t number : *taken) {
        if (number >= start && number - start < room) {
            start = uint64_t(number) + 1;
        }
    }
    return start + room <= numbers_end ? static_cast<uint32_t>(start) : 0;
}

uint32_t _vesk_find_next_number(number_list *taken, uint64_t start)
{
    // The first range lasts for more rotations than a machine can make in its life, the second for
    // some weeks at one rotation a second.
    constexpr uint64_t rooms[] = {uint64_t(1) << 28, uint64_t(1) << 21};
    for (const uint64_t room : rooms) {
        const uint32_t number = _vesk_find_free_numbers(taken, start, room);
        if (number != 0) {
            return number;
        }
    }
    return 0;
}
