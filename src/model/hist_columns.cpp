// Statistics in columns: loaded from hist values, updated by vectors of readings, stored again.
#include "model/hist_columns.hpp"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <limits>

#include "model/hist_sum.hpp"
#include "model/hist_value_form.hpp"
#include "support/checked_size.hpp"

static constexpr uint32_t n_floats = std::size(hist_value_floats);

// Several sensors at once, by the vectors of the compiler, which it makes of what the processor
// has. Each element is calculated as a number of its own.
static constexpr uint32_t lanes = 4;
using floats = float __attribute__((vector_size(lanes * sizeof(float))));
using words = uint32_t __attribute__((vector_size(lanes * sizeof(uint32_t))));

// Not allocate(): being without this memory is no failure that anybody is told of.
template <typename T>
static bool _reserve(owned_memory<T> *memory, uint32_t n, uint32_t each)
{
    std::size_t size = 0;
    // NOLINTNEXTLINE(bugprone-sizeof-expression): items may be pointers
    memory->reset(multiply_sizes(&size, std::size_t{n} * each, sizeof(T))
                      ? static_cast<T *>(malloc(size))
                      : nullptr);
    return bool(*memory);
}

bool hist_columns::reserve(uint32_t n)
{
    size_ = n;
    if (n <= capacity_) {
        return true;
    }
    // What is updated behind the last statistic does not count, but must be there.
    const uint32_t most = n <= UINT32_MAX - lanes ? (n + lanes - 1) / lanes * lanes : 0;
    const bool reserved = most > 0 && _reserve(&places_, most, 1) && _reserve(&counts_, most, 1) &&
                          _reserve(&floats_, most, n_floats);
    capacity_ = reserved ? most : 0;
    if (reserved) {
        std::fill_n(counts_.get(), most, 0);
        std::fill_n(floats_.get(), std::size_t{most} * n_floats, 0.0F);
    }
    return reserved;
}

void hist_columns::load()
{
    for (uint32_t i = 0; i < size_; ++i) {
        const hist_value &hv = *places_.get()[i];
        counts_.get()[i] = hv.count;
        for (uint32_t k = 0; k < n_floats; ++k) {
            column(k)[i] = hv.*hist_value_floats[k];
        }
    }
}

void hist_columns::store() const
{
    for (uint32_t i = 0; i < size_; ++i) {
        hist_value &hv = *places_.get()[i];
        hv.count = counts_.get()[i];
        for (uint32_t k = 0; k < n_floats; ++k) {
            hv.*hist_value_floats[k] = column(k)[i];
        }
    }
}

// Vectors go by reference: processors without such registers have no common way to pass them.
template <typename Vector, typename Number>
static void _take(Vector &vector, const Number *from)
{
    memcpy(&vector, from, sizeof vector);
}

template <typename Vector, typename Number>
static void _put(Number *to, const Vector &vector)
{
    memcpy(to, &vector, sizeof vector);
}

// As hist_sum(), where the reading is valid.
template <typename Mask>
static void _add(floats &sum, const floats &addend, const Mask &valid)
{
    floats result = sum + addend;
    if constexpr (!makes_nans_of_x86) {
        for (uint32_t i = 0; i < lanes; ++i) {
            result[i] = hist_sum(sum[i], addend[i]);
        }
    }
    sum = valid ? result : sum;
}

// Folds values into the statistics from number `at` on.
void hist_columns::update_some(uint32_t at, const float *values) const
{
    floats value;
    _take(value, values);
    // NOLINTNEXTLINE(misc-redundant-expression): only a NaN differs from itself
    const auto valid = value == value;
    const auto update = [&](uint32_t i, auto change) {
        floats number;
        _take(number, column(i) + at);
        change(number);
        _put(column(i) + at, number);
    };
    uint32_t *counts = counts_.get() + at;
    words count;
    _take(count, counts);
    const auto is_first = valid & (count == words{});
    count = valid ? count + 1 : count;
    _put(counts, count);
    // A reading that is missing is neither less nor greater.
    update(0, [&](floats &min) { min = (is_first | (value < min)) ? value : min; });
    update(1, [&](floats &max) { max = (is_first | (value > max)) ? value : max; });
    update(2, [&](floats &first) { first = is_first ? value : first; });
    update(3, [&](floats &last) { last = valid ? value : last; });
    const floats square = value * value;
    const floats cube = square * value;
    const floats fourth_power = cube * value;
    update(4, [&](floats &sum) { _add(sum, value, valid); });
    update(5, [&](floats &sum) { _add(sum, square, valid); });
    update(6, [&](floats &sum) { _add(sum, cube, valid); });
    update(7, [&](floats &sum) { _add(sum, fourth_power, valid); });
}

void hist_columns::update(const float *values)
{
    const uint32_t whole = size_ / lanes * lanes;
    for (uint32_t i = 0; i < whole; i += lanes) {
        update_some(i, values + i);
    }
    if (whole < size_) {
        float rest[lanes];
        std::fill_n(rest, lanes, std::numeric_limits<float>::quiet_NaN());
        std::copy_n(values + whole, size_ - whole, rest);
        update_some(whole, rest);
    }
}
