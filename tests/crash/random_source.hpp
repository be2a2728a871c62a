// Numbers that look random and follow from one seed alone, on every machine, so that a life that
// failed can be lived again.
#ifndef VESK_TESTS_CRASH_RANDOM_SOURCE_HPP
#define VESK_TESTS_CRASH_RANDOM_SOURCE_HPP

#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

class random_source
{
public:
    explicit random_source(std::size_t seed) : engine_(static_cast<uint32_t>(seed)) {}

    // A number from 0 to n - 1. The same on every machine, unlike std::uniform_int_distribution.
    std::size_t below(std::size_t n) { return n == 0 ? 0 : engine_() % n; }
    bool once_in(std::size_t n) { return below(n) == 0; }
    template <typename T>
    const T &one_of(const std::vector<T> &list)
    {
        return list[below(list.size())];
    }

private:
    std::mt19937 engine_;
};

#endif
