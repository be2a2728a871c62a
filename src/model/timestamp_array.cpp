// Stored form of an array of timestamps, 5 + 9 n bytes, big-endian:
//
//  offset  size  field
//       0     1  version, 1
//       1     4  n, unsigned, 1..10000
//       5   9 n  n timestamps
#include <cstdint>

#include <vesk/error.h>
#include <vesk/timestamp.h>
#include <vesk/timestamp_array.h>

#include "model/shared_list.hpp"
#include "support/object.hpp"
#include "support/precondition.hpp"

static int _read_new_timestamp(timestamp **slot, reader *r)
{
    *slot = timestamp_create_null();
    if (*slot == nullptr) {
        return qe_get_last_error();
    }
    return binary_serializer_read_timestamp(*slot, r);
}

namespace
{
struct timestamp_list_traits {
    using array = timestamp_array;
    using item = timestamp;
    static auto &count(auto *a) { return a->ntimestamps; }
    static auto &items(auto *a) { return a->timestamps; }
    static constexpr auto destroy = timestamp_destroy;
    static constexpr auto is_equal = timestamp_is_equal;
    static constexpr auto write = binary_serializer_write_timestamp;
    static constexpr auto read = _read_new_timestamp;
    static constexpr const char *same_count_text = "s1->ntimestamps == s2->ntimestamps";
    static constexpr const char *entry1_text = "s1->timestamps[i] != ((void *)0)";
    static constexpr const char *entry2_text = "s2->timestamps[i] != ((void *)0)";
    static constexpr const char *entry_text = "array->timestamps[i] != ((void *)0)";
};
} // namespace

using list = shared_list<timestamp_list_traits>;

int timestamp_array_init(timestamp_array *array, timestamp **timestamps, uint32_t ntimestamps)
{
    VESK_REQUIRE(array != nullptr, "array != ((void *)0)");
    VESK_REQUIRE(ntimestamps > 0, "ntimestamps > 0");
    VESK_REQUIRE(timestamps != nullptr, "timestamps != ((void *)0)");
    return list::init(array, timestamps, ntimestamps);
}

timestamp_array *timestamp_array_create(timestamp **timestamps, uint32_t ntimestamps)
{
    return create_object<timestamp_array>([&](timestamp_array *array) {
        return timestamp_array_init(array, timestamps, ntimestamps);
    });
}

int timestamp_array_init_empty(timestamp_array *array, uint32_t ntimestamps)
{
    VESK_REQUIRE(array != nullptr, "array != ((void *)0)");
    VESK_REQUIRE(ntimestamps > 0, "ntimestamps > 0");
    return list::init_empty(array, ntimestamps);
}

timestamp_array *timestamp_array_create_empty(uint32_t ntimestamps)
{
    return create_object<timestamp_array>([ntimestamps](timestamp_array *array) {
        return timestamp_array_init_empty(array, ntimestamps);
    });
}

int timestamp_array_init_dummy(timestamp_array *array, const timestamp *start, uint32_t ntimestamps)
{
    VESK_REQUIRE(array != nullptr, "array != ((void *)0)");
    VESK_REQUIRE(ntimestamps > 0, "ntimestamps > 0");
    VESK_REQUIRE(start != nullptr, "start != ((void *)0)");
    const int result = list::init_empty(array, ntimestamps);
    if (result < 0) {
        return result;
    }
    const timestamp *previous = start;
    for (uint32_t i = 0; i < ntimestamps; ++i) {
        timestamp *t = timestamp_copy(previous, nullptr);
        if (t == nullptr) {
            list::destruct(array);
            return qe_get_last_error();
        }
        if (i > 0) {
            timestamp_increment(t, 1);
        }
        array->timestamps[i] = t;
        previous = t;
    }
    return 0;
}

timestamp_array *timestamp_array_create_dummy(const timestamp *start, uint32_t ntimestamps)
{
    return create_object<timestamp_array>([&](timestamp_array *array) {
        return timestamp_array_init_dummy(array, start, ntimestamps);
    });
}

int timestamp_array_init_null(timestamp_array *array)
{
    VESK_REQUIRE(array != nullptr, "array != ((void *)0)");
    list::init_null(array);
    return 0;
}

timestamp_array *timestamp_array_create_null(void)
{
    return create_object<timestamp_array>(timestamp_array_init_null);
}

timestamp_array *timestamp_array_copy(const timestamp_array *array)
{
    VESK_REQUIRE(array != nullptr, "array != ((void *)0)");
    VESK_REQUIRE(array->version == 1, "array->version == ((char) 1)");
    return list::copy(array);
}

int timestamp_array_is_equal(const timestamp_array *s1, const timestamp_array *s2)
{
    VESK_REQUIRE(s1 != nullptr, "s1 != ((void *)0)");
    VESK_REQUIRE(s2 != nullptr, "s2 != ((void *)0)");
    VESK_REQUIRE(s1->version == 1, "s1->version == ((char) 1)");
    VESK_REQUIRE(s2->version == 1, "s2->version == ((char) 1)");
    return list::is_equal(s1, s2) ? 1 : 0;
}

timestamp **timestamp_array_get_timestamps(const timestamp_array *array)
{
    VESK_REQUIRE(array != nullptr, "array != ((void *)0)");
    VESK_REQUIRE(array->version == 1, "array->version == ((char) 1)");
    return array->timestamps;
}

uint32_t timestamp_array_get_size(const timestamp_array *array)
{
    VESK_REQUIRE(array != nullptr, "array != ((void *)0)");
    VESK_REQUIRE(array->version == 1, "array->version == ((char) 1)");
    return array->ntimestamps;
}

void timestamp_array_destruct(timestamp_array *array)
{
    VESK_REQUIRE(array != nullptr, "array != ((void *)0)");
    VESK_REQUIRE(array->version == 1, "array->version == ((char) 1)");
    list::destruct(array);
}

void timestamp_array_destroy(timestamp_array **array)
{
    VESK_REQUIRE(array != nullptr, "array != ((void *)0)");
    VESK_REQUIRE(*array != nullptr, "*array != ((void *)0)");
    destroy_object(array, timestamp_array_destruct);
}

int binary_serializer_write_timestamp_array(const timestamp_array *array, writer *w)
{
    VESK_REQUIRE(array != nullptr, "array != ((void *)0)");
    VESK_REQUIRE(array->version == 1, "array->version == ((char) 1)");
    VESK_REQUIRE(array->timestamps != nullptr, "array->timestamps != ((void *)0)");
    VESK_REQUIRE(array->ntimestamps > 0, "array->ntimestamps > 0");
    VESK_REQUIRE(w != nullptr, "writer != ((void *)0)");
    return list::write(array, w);
}

int binary_serializer_read_timestamp_array(timestamp_array *array, reader *r)
{
    VESK_REQUIRE(array != nullptr, "array != ((void *)0)");
    VESK_REQUIRE(array->version == 1, "array->version == ((char) 1)");
    VESK_REQUIRE(r != nullptr, "reader != ((void *)0)");
    return list::read(array, r);
}
