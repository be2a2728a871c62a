// Lists of times, which copies share.
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>

#include <vesk/error.h>
#include <vesk/timestamp_array.h>

#include "common/aborts.hpp"
#include "common/failing_calls.hpp"
#include "common/memory_streams.hpp"

namespace
{

timestamp at(time_t seconds)
{
    timestamp t;
    timestamp_init_null(&t);
    t.tv.tv_sec = seconds;
    return t;
}

timestamp_array *dummy(time_t start, uint32_t n)
{
    const timestamp t = at(start);
    return timestamp_array_create_dummy(&t, n);
}

// The stored form of n timestamps 0.
std::string stored_zeros(uint32_t n)
{
    std::string bytes = from_hex("01") + stored_u32(n);
    for (uint32_t i = 0; i < n; ++i) {
        bytes += from_hex("01 00000000 00000000");
    }
    return bytes;
}

int read_array_result(const std::string &bytes, int failure = 0)
{
    timestamp_array *array = timestamp_array_create_null();
    memory_reader from(bytes, failure);
    const int result = binary_serializer_read_timestamp_array(array, from.get());
    EXPECT_EQ(result <= 0, array->timestamps == nullptr);
    timestamp_array_destroy(&array);
    return result;
}

} // namespace

TEST(TimestampArray, TakesOverTheListOfTheCaller)
{
    auto **list = static_cast<timestamp **>(malloc(2 * sizeof(timestamp *)));
    list[0] = timestamp_create_null();
    list[1] = timestamp_create_null();
    timestamp_array array = {};
    EXPECT_EQ(0, timestamp_array_init(&array, list, 2));
    EXPECT_EQ(1, array.version);
    EXPECT_EQ(2U, timestamp_array_get_size(&array));
    EXPECT_EQ(list, timestamp_array_get_timestamps(&array));
    EXPECT_EQ(1, *array.ref_count);
    timestamp_array_destruct(&array);
    EXPECT_EQ(0, array.version);
    EXPECT_EQ(0U, array.ntimestamps);
    EXPECT_EQ(nullptr, array.ref_count);
    EXPECT_EQ(nullptr, array.timestamps);
}

TEST(TimestampArray, EmptyOnesHoldNullsUntilTheyAreFilled)
{
    timestamp_array *array = timestamp_array_create_empty(3);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(nullptr, array->timestamps[i]);
    }
    array->timestamps[1] = timestamp_create_null();
    timestamp_array_destroy(&array);
    EXPECT_EQ(nullptr, array);
}

TEST(TimestampArray, DummiesAreOneSecondApart)
{
    timestamp_array *array = dummy(1000, 3);
    ASSERT_EQ(3U, timestamp_array_get_size(array));
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(1000 + i, array->timestamps[i]->tv.tv_sec);
    }
    timestamp_array_destroy(&array);
}

TEST(TimestampArray, SharesItsListBetweenCopies)
{
    timestamp_array *array = dummy(5, 2);
    timestamp_array *copy = timestamp_array_copy(array);
    EXPECT_EQ(2, *array->ref_count);
    EXPECT_EQ(array->timestamps, copy->timestamps);
    EXPECT_EQ(array->ref_count, copy->ref_count);
    EXPECT_EQ(1, timestamp_array_is_equal(array, copy));
    timestamp_array_destroy(&array);
    EXPECT_EQ(1, *copy->ref_count);
    EXPECT_EQ(6, copy->timestamps[1]->tv.tv_sec);
    timestamp_array_destroy(&copy);
}

TEST(TimestampArray, CopiesNullArraysToNullArrays)
{
    timestamp_array *array = timestamp_array_create_null();
    timestamp_array *copy = timestamp_array_copy(array);
    EXPECT_EQ(1, copy->version);
    EXPECT_EQ(0U, timestamp_array_get_size(copy));
    EXPECT_EQ(nullptr, timestamp_array_get_timestamps(copy));
    EXPECT_EQ(nullptr, copy->ref_count);
    EXPECT_EQ(1, timestamp_array_is_equal(array, copy));
    timestamp_array_destroy(&array);
    timestamp_array_destroy(&copy);
}

TEST(TimestampArray, ComparesEntryByEntry)
{
    timestamp_array *array = dummy(5, 3);
    timestamp_array *same = dummy(5, 3);
    timestamp_array *longer = dummy(5, 4);
    timestamp_array *other = dummy(5, 3);
    timestamp_increment(other->timestamps[2], 1);
    timestamp_array *none = timestamp_array_create_null();
    EXPECT_EQ(1, timestamp_array_is_equal(array, same));
    EXPECT_EQ(0, timestamp_array_is_equal(array, longer));
    EXPECT_EQ(0, timestamp_array_is_equal(array, other));
    EXPECT_EQ(0, timestamp_array_is_equal(array, none));
    EXPECT_EQ(0, timestamp_array_is_equal(none, array));
    timestamp_array_destroy(&array);
    timestamp_array_destroy(&same);
    timestamp_array_destroy(&longer);
    timestamp_array_destroy(&other);
    timestamp_array_destroy(&none);
}

TEST(TimestampArray, OfCountZeroComparesByItsLists)
{
    timestamp_array *filled = dummy(5, 1);
    timestamp_array *none = timestamp_array_create_null();
    filled->ntimestamps = 0;
    EXPECT_EQ(0, timestamp_array_is_equal(filled, none));
    EXPECT_EQ(0, timestamp_array_is_equal(none, filled));
    timestamp_array *other = dummy(6, 1);
    other->ntimestamps = 0;
    EXPECT_EQ(1, timestamp_array_is_equal(filled, other));
    filled->ntimestamps = 1;
    other->ntimestamps = 1;
    timestamp_array_destroy(&filled);
    timestamp_array_destroy(&none);
    timestamp_array_destroy(&other);
}

TEST(TimestampArray, IsStoredWithItsCount)
{
    timestamp_array *array = dummy(1, 2);
    memory_writer to;
    EXPECT_EQ(23, binary_serializer_write_timestamp_array(array, to.get()));
    EXPECT_EQ(from_hex("01 00000002 01 00000001 00000000 01 00000002 00000000"), to.bytes());
    timestamp_array *back = timestamp_array_create_null();
    memory_reader from(to.bytes());
    EXPECT_EQ(23, binary_serializer_read_timestamp_array(back, from.get()));
    EXPECT_EQ(1, *back->ref_count);
    EXPECT_EQ(1, timestamp_array_is_equal(array, back));
    timestamp_array_destroy(&array);
    timestamp_array_destroy(&back);
}

TEST(TimestampArray, StoresTenThousandEntriesAndNoMore)
{
    timestamp_array *array = dummy(0, 10001);
    memory_writer to;
    EXPECT_EQ(-49, binary_serializer_write_timestamp_array(array, to.get()));
    EXPECT_EQ("", to.bytes());
    timestamp_destroy(&array->timestamps[10000]);
    array->ntimestamps = 10000;
    EXPECT_EQ(90005, binary_serializer_write_timestamp_array(array, to.get()));
    timestamp_array_destroy(&array);
}

TEST(TimestampArray, ReadsTenThousandEntriesAndNoMore)
{
    EXPECT_EQ(90005, read_array_result(stored_zeros(10000)));
    EXPECT_EQ(-49, read_array_result(stored_zeros(10001)));
    EXPECT_EQ(-49, read_array_result(stored_zeros(0)));
    EXPECT_EQ(-49, read_array_result(from_hex("01 ffffffff")));
}

TEST(TimestampArray, TellsTheEndOfTheDataFromATornForm)
{
    const std::string whole = stored_zeros(2);
    EXPECT_EQ(23, read_array_result(whole));
    for (std::size_t length = 0; length < whole.size(); ++length) {
        EXPECT_EQ(length == 0 ? 0 : -48, read_array_result(whole.substr(0, length))) << length;
        EXPECT_EQ(-41, read_array_result(whole.substr(0, length), -41)) << length;
    }
}

TEST(TimestampArray, RefusesUnknownVersions)
{
    EXPECT_EQ(-12, read_array_result(from_hex("02 00000001 01 00000000 00000000")));
    EXPECT_EQ(-12, read_array_result(from_hex("01 00000001 00 00000000 00000000")));
}

TEST(TimestampArray, RefusesStoredMicroseconds)
{
    EXPECT_EQ(-6, read_array_result(from_hex("01 00000001 01 00000000 00000001")));
}

TEST(TimestampArray, StopsWritingAtTheFirstFailure)
{
    timestamp_array *array = dummy(1, 2);
    for (std::size_t capacity = 0; capacity < 23; ++capacity) {
        memory_writer to(capacity, -42);
        EXPECT_EQ(-42, binary_serializer_write_timestamp_array(array, to.get())) << capacity;
    }
    timestamp_array_destroy(&array);
}

TEST(TimestampArray, LeavesTheListWithTheCallerWithoutMemory)
{
    auto **list = static_cast<timestamp **>(calloc(1, sizeof(timestamp *)));
    {
        timestamp_array array;
        const failing_allocation fails(1);
        EXPECT_EQ(-22, timestamp_array_init(&array, list, 1));
        EXPECT_EQ(nullptr, array.timestamps);
    }
    for (const int n : {1, 2}) {
        const failing_allocation fails(n);
        qe_set_last_error(0);
        EXPECT_EQ(nullptr, timestamp_array_create(list, 1));
        EXPECT_EQ(-22, qe_get_last_error());
    }
    timestamp_array *array = timestamp_array_create(list, 1);
    timestamp_array_destroy(&array);
}

TEST(TimestampArray, ReportsMissingMemoryAtEveryAllocation)
{
    const std::string whole = stored_zeros(3);
    for (int n = 1;; ++n) {
        const failing_allocation fails(n);
        qe_set_last_error(0);
        timestamp_array *array = dummy(1, 3);
        if (!failing_allocation::happened()) {
            EXPECT_GT(n, 6);
            timestamp_array_destroy(&array);
            break;
        }
        EXPECT_EQ(nullptr, array);
        EXPECT_EQ(-22, qe_get_last_error());
    }
    timestamp_array *array = timestamp_array_create_null();
    for (int n = 1;; ++n) {
        memory_reader from(whole);
        const failing_allocation fails(n);
        const int result = binary_serializer_read_timestamp_array(array, from.get());
        if (!failing_allocation::happened()) {
            EXPECT_EQ(32, result);
            break;
        }
        EXPECT_EQ(-22, result);
        EXPECT_EQ(nullptr, array->timestamps);
    }
    {
        const failing_allocation fails(1);
        qe_set_last_error(0);
        EXPECT_EQ(nullptr, timestamp_array_copy(array));
        EXPECT_EQ(-22, qe_get_last_error());
        EXPECT_EQ(1, *array->ref_count);
    }
    timestamp_array_destroy(&array);
}

TEST(TimestampArray, RefusesArraysThatAreNotFilled)
{
    timestamp_array *empty = timestamp_array_create_empty(2);
    timestamp_array *filled = dummy(1, 2);
    timestamp_array *none = timestamp_array_create_null();
    memory_writer to;
    EXPECT_ABORTS(timestamp_array_is_equal(empty, filled), "s1->timestamps[i] != ((void *)0)");
    EXPECT_ABORTS(timestamp_array_is_equal(filled, empty), "s2->timestamps[i] != ((void *)0)");
    EXPECT_ABORTS(binary_serializer_write_timestamp_array(empty, to.get()),
                  "array->timestamps[i] != ((void *)0)");
    EXPECT_ABORTS(binary_serializer_write_timestamp_array(none, to.get()),
                  "array->timestamps != ((void *)0)");
    filled->ntimestamps = 0;
    EXPECT_ABORTS(binary_serializer_write_timestamp_array(filled, to.get()),
                  "array->ntimestamps > 0");
    filled->ntimestamps = 2;
    timestamp_array_destroy(&empty);
    timestamp_array_destroy(&filled);
    timestamp_array_destroy(&none);
}

TEST(TimestampArray, RefusesCopiesThatDisagree)
{
    timestamp_array *array = dummy(1, 2);
    timestamp_array copy = *array;
    copy.ntimestamps = 1;
    EXPECT_ABORTS(timestamp_array_is_equal(array, &copy), "s1->ntimestamps == s2->ntimestamps");
    copy = *array;
    int other_count = 1;
    copy.ref_count = &other_count;
    EXPECT_ABORTS(timestamp_array_is_equal(array, &copy), "s1->ref_count == s2->ref_count");
    other_count = 0;
    EXPECT_ABORTS(timestamp_array_copy(&copy), "*array->ref_count > 0");
    timestamp_array_destroy(&array);
}

TEST(TimestampArray, RefusesCountsOfZero)
{
    const timestamp t = at(1);
    timestamp *list[1] = {nullptr};
    timestamp_array array;
    EXPECT_ABORTS(timestamp_array_init(&array, list, 0), "ntimestamps > 0");
    EXPECT_ABORTS(timestamp_array_create(list, 0), "ntimestamps > 0");
    EXPECT_ABORTS(timestamp_array_init_empty(&array, 0), "ntimestamps > 0");
    EXPECT_ABORTS(timestamp_array_create_empty(0), "ntimestamps > 0");
    EXPECT_ABORTS(timestamp_array_init_dummy(&array, &t, 0), "ntimestamps > 0");
    EXPECT_ABORTS(timestamp_array_create_dummy(&t, 0), "ntimestamps > 0");
}

TEST(TimestampArray, RefusesDeadArrays)
{
    timestamp_array dead = {};
    timestamp_array live;
    timestamp_array_init_null(&live);
    memory_writer to;
    memory_reader from("");
    const char *const text = "array->version == ((char) 1)";
    EXPECT_ABORTS(timestamp_array_copy(&dead), text);
    EXPECT_ABORTS(timestamp_array_get_timestamps(&dead), text);
    EXPECT_ABORTS(timestamp_array_get_size(&dead), text);
    EXPECT_ABORTS(timestamp_array_destruct(&dead), text);
    EXPECT_ABORTS(binary_serializer_write_timestamp_array(&dead, to.get()), text);
    EXPECT_ABORTS(binary_serializer_read_timestamp_array(&dead, from.get()), text);
    EXPECT_ABORTS(timestamp_array_is_equal(&dead, &live), "s1->version == ((char) 1)");
    EXPECT_ABORTS(timestamp_array_is_equal(&live, &dead), "s2->version == ((char) 1)");
}

TEST(TimestampArray, RefusesNull)
{
    const timestamp t = at(1);
    timestamp *list[1] = {nullptr};
    timestamp_array array;
    timestamp_array_init_null(&array);
    timestamp_array *none = nullptr;
    memory_writer to;
    memory_reader from("");
    const char *const text = "array != ((void *)0)";
    EXPECT_ABORTS(timestamp_array_init(nullptr, list, 1), text);
    EXPECT_ABORTS(timestamp_array_init(&array, nullptr, 1), "timestamps != ((void *)0)");
    EXPECT_ABORTS(timestamp_array_create(nullptr, 1), "timestamps != ((void *)0)");
    EXPECT_ABORTS(timestamp_array_init_empty(nullptr, 1), text);
    EXPECT_ABORTS(timestamp_array_init_dummy(nullptr, &t, 1), text);
    EXPECT_ABORTS(timestamp_array_init_dummy(&array, nullptr, 1), "start != ((void *)0)");
    EXPECT_ABORTS(timestamp_array_create_dummy(nullptr, 1), "start != ((void *)0)");
    EXPECT_ABORTS(timestamp_array_init_null(nullptr), text);
    EXPECT_ABORTS(timestamp_array_copy(nullptr), text);
    EXPECT_ABORTS(timestamp_array_is_equal(nullptr, &array), "s1 != ((void *)0)");
    EXPECT_ABORTS(timestamp_array_is_equal(&array, nullptr), "s2 != ((void *)0)");
    EXPECT_ABORTS(timestamp_array_get_timestamps(nullptr), text);
    EXPECT_ABORTS(timestamp_array_get_size(nullptr), text);
    EXPECT_ABORTS(timestamp_array_destruct(nullptr), text);
    EXPECT_ABORTS(timestamp_array_destroy(nullptr), text);
    EXPECT_ABORTS(timestamp_array_destroy(&none), "*array != ((void *)0)");
    EXPECT_ABORTS(binary_serializer_write_timestamp_array(nullptr, to.get()), text);
    EXPECT_ABORTS(binary_serializer_read_timestamp_array(nullptr, from.get()), text);
    EXPECT_ABORTS(binary_serializer_read_timestamp_array(&array, nullptr), "reader != ((void *)0)");
    timestamp_array *filled = dummy(1, 1);
    EXPECT_ABORTS(binary_serializer_write_timestamp_array(filled, nullptr),
                  "writer != ((void *)0)");
    timestamp_array_destroy(&filled);
}

TEST(TimestampArrayPreconditions, AskForACountFirst)
{
    timestamp_array array;
    EXPECT_ABORTS(timestamp_array_init(&array, nullptr, 0), "ntimestamps > 0");
    EXPECT_ABORTS(timestamp_array_init_dummy(&array, nullptr, 0), "ntimestamps > 0");
    EXPECT_ABORTS(timestamp_array_init(&array, nullptr, 1), "timestamps != ((void *)0)");
    EXPECT_ABORTS(timestamp_array_init_dummy(&array, nullptr, 1), "start != ((void *)0)");
}
