// Stored form of a hist value, 37 bytes, big-endian; floats are IEEE 754 singles:
//
//  offset  size  field
//       0     1  version, 1
//       1     4  count, unsigned
//       5     4  min_value
//       9     4  max_value
//      13     4  first_value
//      17     4  last_value
//      21     4  sum
//      25     4  sum_squares
//      29     4  sum_cubes
//      33     4  sum_fourth_powers
#include <bit>
#include <cmath>
#include <cstdint>
#include <iterator>

#include <vesk/hist_value.h>
#include <vesk/sensor_value.h>

#include "io/fields.hpp"
#include "support/object.hpp"
#include "support/precondition.hpp"

// The floats, in the order in which they are stored.
static constexpr float hist_value::*statistics[] = {
    &hist_value::min_value,   &hist_value::max_value,
    &hist_value::first_value, &hist_value::last_value,
    &hist_value::sum,         &hist_value::sum_squares,
    &hist_value::sum_cubes,   &hist_value::sum_fourth_powers,
};

// The count and the floats.
static constexpr uint32_t stored_words = 1 + std::size(statistics);

int hist_value_init(hist_value *hv)
{
    VESK_REQUIRE(hv != nullptr, "hv != ((void *)0)");
    *hv = {};
    hv->version = 1;
    return 0;
}

hist_value *hist_value_create(void)
{
    return create_object<hist_value>(hist_value_init);
}

void hist_value_destruct(hist_value *hv)
{
    VESK_REQUIRE(hv != nullptr, "hv != ((void *)0)");
    VESK_REQUIRE(hv->version == 1, "hv->version == ((char) 1)");
    hv->version = 0;
}

void hist_value_destroy(hist_value **hv)
{
    VESK_REQUIRE(hv != nullptr, "hv != ((void *)0)");
    VESK_REQUIRE(*hv != nullptr, "*hv != ((void *)0)");
    destroy_object(hv, hist_value_destruct);
}

hist_value *hist_value_copy(const hist_value *hv, hist_value *dst)
{
    VESK_REQUIRE(hv != nullptr, "hv != ((void *)0)");
    VESK_REQUIRE(hv->version == 1, "hv->version == ((char) 1)");
    hist_value *copy = dst != nullptr ? dst : allocate<hist_value>();
    if (copy != nullptr) {
        *copy = *hv;
    }
    return copy;
}

int hist_value_is_equal(const hist_value *hv1, const hist_value *hv2)
{
    VESK_REQUIRE(hv1 != nullptr, "hv1 != ((void *)0)");
    VESK_REQUIRE(hv2 != nullptr, "hv2 != ((void *)0)");
    VESK_REQUIRE(hv1->version == 1, "hv1->version == ((char) 1)");
    VESK_REQUIRE(hv2->version == 1, "hv2->version == ((char) 1)");
    if (hv1->count != hv2->count) {
        return 0;
    }
    for (const auto statistic : statistics) {
        if (sensor_value_is_equal(hv1->*statistic, hv2->*statistic) == 0) {
            return 0;
        }
    }
    return 1;
}

// Infinities of both signs add up to a NaN, which x86 makes with its sign set, other machines
// without.
#if defined(__x86_64__) || defined(__i386__)
static constexpr bool makes_nans_of_x86 = true;
#else
static constexpr bool makes_nans_of_x86 = false;
#endif

// History stores the sums, so they get the bits of x86 everywhere. A NaN that was there before
// stays.
static void _add(float *sum, float addend)
{
    const float result = *sum + addend;
    if constexpr (!makes_nans_of_x86) {
        if (std::isnan(result) && !std::isnan(*sum) && !std::isnan(addend)) {
            *sum = std::bit_cast<float>(UINT32_C(0xffc00000));
            return;
        }
    }
    *sum = result;
}

void hist_value_update(hist_value *hv, float value)
{
    VESK_REQUIRE(hv != nullptr, "hv != ((void *)0)");
    VESK_REQUIRE(hv->version == 1, "hv->version == ((char) 1)");
    if (sensor_value_is_valid(value) == 0) {
        return;
    }
    hv->count += 1;
    if (hv->count == 1) {
        hv->min_value = value;
        hv->max_value = value;
        hv->first_value = value;
    } else if (value < hv->min_value) {
        hv->min_value = value;
    } else if (value > hv->max_value) {
        hv->max_value = value;
    }
    const float square = value * value;
    const float cube = square * value;
    const float fourth_power = cube * value;
    hv->last_value = value;
    _add(&hv->sum, value);
    _add(&hv->sum_squares, square);
    _add(&hv->sum_cubes, cube);
    _add(&hv->sum_fourth_powers, fourth_power);
}

void hist_value_merge_with(hist_value *hv1, const hist_value *hv2)
{
    VESK_REQUIRE(hv1 != nullptr, "hv1 != ((void *)0)");
    VESK_REQUIRE(hv2 != nullptr, "hv2 != ((void *)0)");
    VESK_REQUIRE(hv1->version == 1, "hv1->version == ((char) 1)");
    VESK_REQUIRE(hv2->version == 1, "hv2->version == ((char) 1)");
    if (hv2->count == 0) {
        return;
    }
    if (hv1->count == 0) {
        hv1->min_value = hv2->min_value;
        hv1->max_value = hv2->max_value;
        hv1->first_value = hv2->first_value;
    } else {
        // Among equal extremes the later one is stored; the sign of a zero shows which one it was.
        hv1->min_value = hv1->min_value < hv2->min_value ? hv1->min_value : hv2->min_value;
        hv1->max_value = hv1->max_value > hv2->max_value ? hv1->max_value : hv2->max_value;
    }
    hv1->count += hv2->count;
    hv1->last_value = hv2->last_value;
    _add(&hv1->sum, hv2->sum);
    _add(&hv1->sum_squares, hv2->sum_squares);
    _add(&hv1->sum_cubes, hv2->sum_cubes);
    _add(&hv1->sum_fourth_powers, hv2->sum_fourth_powers);
}

int binary_serializer_write_hist_value(const hist_value *hv, writer *w)
{
    VESK_REQUIRE(hv != nullptr, "hv != ((void *)0)");
    VESK_REQUIRE(hv->version == 1, "hv->version == ((char) 1)");
    VESK_REQUIRE(w != nullptr, "writer != ((void *)0)");
    const auto word = [hv](uint32_t i) {
        return i == 0 ? hv->count : bits_of(hv->*statistics[i - 1]);
    };
    return field_writer(w)
        .byte(static_cast<uint8_t>(hv->version))
        .u32s(stored_words, word)
        .result();
}

int binary_serializer_read_hist_value(hist_value *hv, reader *r)
{
    VESK_REQUIRE(hv != nullptr, "hv != ((void *)0)");
    VESK_REQUIRE(hv->version == 1, "hv->version == ((char) 1)");
    VESK_REQUIRE(r != nullptr, "reader != ((void *)0)");
    const auto set = [hv](uint32_t i, uint32_t word) {
        if (i == 0) {
            hv->count = word;
        } else {
            set_bits(&(hv->*statistics[i - 1]), word);
        }
    };
    return field_reader(r).version(1).u32s(stored_words, set).result();
}
