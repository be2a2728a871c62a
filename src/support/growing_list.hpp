// A list that grows as things come, for plain data: bytes, numbers, small structures. When memory
// runs out, functions report it and leave the list as it was.
#ifndef VESK_SUPPORT_GROWING_LIST_HPP
#define VESK_SUPPORT_GROWING_LIST_HPP

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <type_traits>

#include "support/checked_size.hpp"
#include "support/owner.hpp"

template <typename T>
class growing_list
{
    static_assert(std::is_trivially_copyable_v<T>);

public:
    T *begin() { return items_.get(); }
    T *end() { return items_.get() + size_; }
    const T *begin() const { return items_.get(); }
    const T *end() const { return items_.get() + size_; }
    T &operator[](std::size_t i) { return items_.get()[i]; }
    const T &operator[](std::size_t i) const { return items_.get()[i]; }
    std::size_t size() const { return size_; }
    void clear() { size_ = 0; }

    // Room for `n` more items behind those that are there; null without memory.
    T *reserve(std::size_t n)
    {
        if (n > capacity_ - size_) {
            // The list is never half of all memory, so that doubling it does not overflow.
            std::size_t capacity = 0;
            std::size_t size = 0;
            // NOLINTBEGIN(bugprone-sizeof-expression): items may be pointers
            if (__builtin_add_overflow(size_, n, &capacity) ||
                !multiply_sizes(&size, capacity = std::max(2 * capacity_, capacity), sizeof(T))) {
                return nullptr;
            }
            // NOLINTEND(bugprone-sizeof-expression)
            T *smaller = items_.release();
            auto *larger = static_cast<T *>(realloc(smaller, size));
            items_.reset(larger == nullptr ? smaller : larger);
            if (larger == nullptr) {
                return nullptr;
            }
            capacity_ = capacity;
        }
        return end();
    }

    // Counts items that were written to the room that reserve() gave.
    void add(std::size_t n) { size_ += n; }

    // Appends items. False without memory.
    bool append(const T *items, std::size_t n)
    {
        if (n == 0) {
            return true;
        }
        T *room = reserve(n);
        if (room == nullptr) {
            return false;
        }
        std::copy_n(items, n, room);
        add(n);
        return true;
    }
    bool append(const T &item) { return append(&item, 1); }

private:
    owned_memory<T> items_;
    std::size_t size_ = 0;
    std::size_t capacity_ = 0;
};

#endif
