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
#include <cstdint>

#include <vesk/hist_value.h>
#include <vesk/sensor_value.h>

#include "io/fields.hpp"
#include "model/hist_sum.hpp"
#include "model/hist_value_form.hpp"
#include "support/object.hpp"
#include "support/precondition.hpp"

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
    for (const auto statistic : hist_value_floats) {
        if (sensor_value_is_equal(hv1->*statistic, hv2->*statistic) == 0) {
            return 0;
        }
    }
    return 1;
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
    hv->sum = hist_sum(hv->sum, value);
    hv->sum_squares = hist_sum(hv->sum_squares, square);
    hv->sum_cubes = hist_sum(hv->sum_cubes, cube);
    hv->sum_fourth_powers = hist_sum(hv->sum_fourth_powers, fourth_power);
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
    hv1->sum = hist_sum(hv1->sum, hv2->sum);
    hv1->sum_squares = hist_sum(hv1->sum_squares, hv2->sum_squares);
    hv1->sum_cubes = hist_sum(hv1->sum_cubes, hv2->sum_cubes);
    hv1->sum_fourth_powers = hist_sum(hv1->sum_fourth_powers, hv2->sum_fourth_powers);
}

int binary_serializer_write_hist_value(const hist_value *hv, writer *w)
{
    VESK_REQUIRE(hv != nullptr, "hv != ((void *)0)");
    VESK_REQUIRE(hv->version == 1, "hv->version == ((char) 1)");
    VESK_REQUIRE(w != nullptr, "writer != ((void *)0)");
    return field_writer(w)
        .byte(static_cast<uint8_t>(hv->version))
        .u32s(hist_value_words, [hv](uint32_t i) { return hist_value_word(*hv, i); })
        .result();
}

int binary_serializer_read_hist_value(hist_value *hv, reader *r)
{
    VESK_REQUIRE(hv != nullptr, "hv != ((void *)0)");
    VESK_REQUIRE(hv->version == 1, "hv->version == ((char) 1)");
    VESK_REQUIRE(r != nullptr, "reader != ((void *)0)");
    const auto set = [hv](uint32_t i, uint32_t word) { hist_value_set_word(hv, i, word); };
    return field_reader(r).version(hist_value_version).u32s(hist_value_words, set).result();
}
