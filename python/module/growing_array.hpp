// An array that grows while a box is read and is then handed to numpy as it is, without a copy.
#ifndef VESK_PYTHON_GROWING_ARRAY_HPP
#define VESK_PYTHON_GROWING_ARRAY_HPP

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

namespace vesk_python
{

// Throws a failure when @p bytes are more than half of the memory of the machine: the system would
// promise them, and end some process when they are used.
void require_memory(double bytes);

// Of plain values. It grows by realloc(), which moves large blocks without copying them.
template <typename Value>
class growing_array
{
    static_assert(std::is_trivially_copyable_v<Value>);

public:
    std::size_t size() const { return size_; }
    Value *data() { return data_.get(); }
    const Value *data() const { return data_.get(); }
    Value &operator[](std::size_t i) { return data_.get()[i]; }
    const Value &operator[](std::size_t i) const { return data_.get()[i]; }

    // The place of @p count new values, which are not set.
    Value *extend(std::size_t count)
    {
        if (count > room_ - size_) {
            grow(size_ + count + size_ / 2);
        }
        Value *const place = data_.get() + size_;
        size_ += count;
        return place;
    }
    void add(Value value) { *extend(1) = value; }

    // For numpy: the values, which are to be released with free().
    Value *release()
    {
        size_ = 0;
        room_ = 0;
        return data_.release();
    }

private:
    struct release_block {
        void operator()(Value *block) const { std::free(block); }
    };

    void grow(std::size_t room)
    {
        require_memory(static_cast<double>(room) * sizeof(Value));
        auto *const block =
            static_cast<Value *>(std::realloc(data_.get(), room * sizeof(Value))); // NOLINT
        if (block == nullptr) {
            throw std::bad_alloc();
        }
        (void)data_.release();
        data_.reset(block);
        room_ = room;
    }

    std::unique_ptr<Value, release_block> data_;
    std::size_t size_ = 0;
    std::size_t room_ = 0;
};

} // namespace vesk_python

#endif
