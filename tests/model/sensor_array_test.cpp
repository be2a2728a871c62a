// Lists of sensors, which copies share.
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include <vesk/error.h>
#include <vesk/sensor_array.h>
#include <vesk/sensors.h>

#include "common/aborts.hpp"
#include "common/failing_calls.hpp"
#include "common/memory_streams.hpp"

namespace
{

sensor_array *array_of(const std::vector<const char *> &names)
{
    return sensor_array_create_from_names(names.data(), static_cast<uint32_t>(names.size()));
}

std::string name_of(const sensor *s)
{
    return s->canonical->name;
}

const std::string stored_pair =
    from_hex("01 00000002 01 00000003") + "fan" + from_hex("01 00000002") + "nw";

int read_result(const std::string &bytes, int failure = 0)
{
    sensor_array *array = sensor_array_create_null();
    memory_reader from(bytes, failure);
    const int result = binary_serializer_read_sensor_array(array, from.get());
    EXPECT_EQ(result <= 0, array->sensors == nullptr);
    sensor_array_destroy(&array);
    return result;
}

// The stored form of n sensors named x.
std::string stored_many(uint32_t n)
{
    std::string bytes = from_hex("01") + stored_u32(n);
    for (uint32_t i = 0; i < n; ++i) {
        bytes += from_hex("01 00000001 78");
    }
    return bytes;
}

} // namespace

TEST(SensorArray, TakesOverTheListOfTheCaller)
{
    const char *names[] = {"fan", "psu"};
    sensor **list = sensor_create_array(names, 2);
    sensor_array array = {};
    EXPECT_EQ(0, sensor_array_init(&array, list, 2));
    EXPECT_EQ(1, array.version);
    EXPECT_EQ(2U, sensor_array_get_size(&array));
    EXPECT_EQ(list, sensor_array_get_sensors(&array));
    EXPECT_EQ(1, *array.ref_count);
    EXPECT_EQ("psu", name_of(sensor_array_get(&array, 1)));
    sensor_array_destruct(&array);
    EXPECT_EQ(0, array.version);
    EXPECT_EQ(0U, array.nsensors);
    EXPECT_EQ(nullptr, array.ref_count);
    EXPECT_EQ(nullptr, array.sensors);
}

TEST(SensorArray, IsMadeFromNames)
{
    sensor_array *array = array_of({"fan", "psu", "fan"});
    ASSERT_EQ(3U, sensor_array_get_size(array));
    EXPECT_EQ("fan", name_of(sensor_array_get(array, 0)));
    EXPECT_EQ("psu", name_of(sensor_array_get(array, 1)));
    EXPECT_EQ(sensor_array_get(array, 0), sensor_array_get(array, 2));
    sensor_array_destroy(&array);
    EXPECT_EQ(nullptr, array);
}

TEST(SensorArray, EmptyOnesHoldNullsUntilTheyAreFilled)
{
    sensor_array *array = sensor_array_create_empty(2);
    EXPECT_EQ(nullptr, sensor_array_get(array, 0));
    EXPECT_EQ(0, sensor_array_set(array, 1, sensor_create("fan")));
    EXPECT_EQ("fan", name_of(sensor_array_get(array, 1)));
    EXPECT_EQ(nullptr, sensor_array_get(array, 0));
    sensor_array_destroy(&array);
}

TEST(SensorArray, SharesItsListBetweenCopies)
{
    sensor_array *array = array_of({"fan", "psu"});
    sensor_array *copy = sensor_array_copy(array);
    EXPECT_EQ(2, *array->ref_count);
    EXPECT_EQ(array->sensors, copy->sensors);
    EXPECT_EQ(1, sensor_array_is_equal(array, copy));
    sensor_array_destroy(&array);
    EXPECT_EQ(1, *copy->ref_count);
    EXPECT_EQ("psu", name_of(sensor_array_get(copy, 1)));
    sensor_array_destroy(&copy);
}

TEST(SensorArray, SetsEntriesForAllCopies)
{
    sensor_array *array = array_of({"fan", "psu"});
    sensor_array *copy = sensor_array_copy(array);
    EXPECT_EQ(0, sensor_array_set(array, 0, sensor_create("disk")));
    EXPECT_EQ("disk", name_of(sensor_array_get(copy, 0)));
    sensor_array_destroy(&array);
    sensor_array_destroy(&copy);
    // The old entry was destroyed as well: the registry is empty and has no buckets.
    sensor stray = {1, nullptr, 0, nullptr};
    stray.canonical = &stray;
    EXPECT_ABORTS(sensors_destroy_sensor(&stray), "_sensors.buckets != ((void *)0)");
}

TEST(SensorArray, CopiesNullArraysToNullArrays)
{
    sensor_array *array = sensor_array_create_null();
    sensor_array *copy = sensor_array_copy(array);
    EXPECT_EQ(1, copy->version);
    EXPECT_EQ(0U, sensor_array_get_size(copy));
    EXPECT_EQ(nullptr, sensor_array_get_sensors(copy));
    EXPECT_EQ(1, sensor_array_is_equal(array, copy));
    sensor_array_destroy(&array);
    sensor_array_destroy(&copy);
}

TEST(SensorArray, ComparesEntryByEntry)
{
    sensor_array *array = array_of({"fan", "psu"});
    sensor_array *same = array_of({"fan", "psu"});
    sensor_array *swapped = array_of({"psu", "fan"});
    sensor_array *longer = array_of({"fan", "psu", "psu"});
    sensor_array *none = sensor_array_create_null();
    EXPECT_EQ(1, sensor_array_is_equal(array, same));
    EXPECT_EQ(0, sensor_array_is_equal(array, swapped));
    EXPECT_EQ(0, sensor_array_is_equal(array, longer));
    EXPECT_EQ(0, sensor_array_is_equal(array, none));
    EXPECT_EQ(0, sensor_array_is_equal(none, array));
    for (sensor_array *a : {array, same, swapped, longer, none}) {
        sensor_array_destroy(&a);
    }
}

TEST(SensorArray, ComparesHandlesByTheirCanonicalSensors)
{
    sensor_array *array = array_of({"fan"});
    sensor_array *handles = sensor_array_create_empty(1);
    auto *handle = static_cast<sensor *>(malloc(sizeof(sensor)));
    sensor_init(handle, "fan");
    sensor_array_set(handles, 0, handle);
    EXPECT_EQ(1, sensor_array_is_equal(array, handles));
    sensor_array_destroy(&handles);
    sensor_array_destroy(&array);
}

TEST(SensorArray, IsStoredWithItsCount)
{
    sensor_array *array = array_of({"fan", "nw"});
    memory_writer to;
    EXPECT_EQ(20, binary_serializer_write_sensor_array(array, to.get()));
    EXPECT_EQ(stored_pair, to.bytes());
    sensor_array *back = sensor_array_create_null();
    memory_reader from(to.bytes());
    EXPECT_EQ(20, binary_serializer_read_sensor_array(back, from.get()));
    EXPECT_EQ(1, *back->ref_count);
    EXPECT_EQ(1, sensor_array_is_equal(array, back));
    sensor_array_destroy(&array);
    sensor_array_destroy(&back);
}

TEST(SensorArray, StoresTenThousandEntriesAndNoMore)
{
    const std::vector<const char *> names(10001, "x");
    sensor_array *array = array_of(names);
    memory_writer to;
    EXPECT_EQ(-49, binary_serializer_write_sensor_array(array, to.get()));
    EXPECT_EQ("", to.bytes());
    sensor_destroy(&array->sensors[10000]);
    array->nsensors = 10000;
    EXPECT_EQ(60005, binary_serializer_write_sensor_array(array, to.get()));
    EXPECT_EQ(stored_many(10000), to.bytes());
    sensor_array_destroy(&array);
}

TEST(SensorArray, ReadsTenThousandEntriesAndNoMore)
{
    EXPECT_EQ(60005, read_result(stored_many(10000)));
    sensor_array *array = sensor_array_create_null();
    memory_reader from(stored_many(10001));
    EXPECT_EQ(-49, binary_serializer_read_sensor_array(array, from.get()));
    // Not one entry was looked at.
    EXPECT_EQ(5U, from.consumed());
    sensor_array_destroy(&array);
    EXPECT_EQ(-49, read_result(stored_many(0)));
}

TEST(SensorArray, TellsTheEndOfTheDataFromATornForm)
{
    EXPECT_EQ(20, read_result(stored_pair));
    EXPECT_EQ(0, read_result(""));
    EXPECT_EQ(-48, read_result(stored_pair.substr(0, 1)));
    EXPECT_EQ(-48, read_result(stored_pair.substr(0, 3)));
    EXPECT_EQ(-48, read_result(stored_pair.substr(0, 5)));  // before a sensor
    EXPECT_EQ(-43, read_result(stored_pair.substr(0, 6)));  // before its name
    EXPECT_EQ(-48, read_result(stored_pair.substr(0, 8)));  // in the length
    EXPECT_EQ(-48, read_result(stored_pair.substr(0, 11))); // in the name
    EXPECT_EQ(-48, read_result(stored_pair.substr(0, 13))); // before the second one
    for (std::size_t length = 0; length < stored_pair.size(); ++length) {
        EXPECT_EQ(-41, read_result(stored_pair.substr(0, length), -41)) << length;
    }
}

TEST(SensorArray, RefusesMalformedForms)
{
    EXPECT_EQ(-12, read_result(from_hex("02 00000001 01 00000001 78")));
    EXPECT_EQ(-12, read_result(from_hex("01 00000001 02 00000001 78")));
    EXPECT_EQ(-6, read_result(from_hex("01 00000001 01 00000000")));
}

TEST(SensorArray, StopsWritingAtTheFirstFailure)
{
    sensor_array *array = array_of({"fan", "nw"});
    for (std::size_t capacity = 0; capacity < 20; ++capacity) {
        memory_writer to(capacity, -42);
        EXPECT_EQ(-42, binary_serializer_write_sensor_array(array, to.get())) << capacity;
    }
    sensor_array_destroy(&array);
}

TEST(SensorArray, LeavesTheListWithTheCallerWithoutMemory)
{
    const char *names[] = {"fan"};
    sensor **list = sensor_create_array(names, 1);
    sensor_array array;
    {
        const failing_allocation fails(1);
        EXPECT_EQ(-22, sensor_array_init(&array, list, 1));
        EXPECT_EQ(nullptr, array.sensors);
    }
    EXPECT_EQ(0, sensor_array_init(&array, list, 1));
    sensor_array_destruct(&array);
}

TEST(SensorArray, KeepsTheSensorsMadeBeforeMemoryRanOut)
{
    const char *names[] = {"fan", "psu"};
    sensor_array array;
    {
        // List, counter, buckets, then node, name and sensor of "fan".
        const failing_allocation fails(7);
        EXPECT_EQ(-22, sensor_array_init_from_names(&array, names, 2));
        EXPECT_TRUE(failing_allocation::happened());
    }
    EXPECT_EQ("fan", name_of(sensor_array_get(&array, 0)));
    EXPECT_EQ(nullptr, sensor_array_get(&array, 1));
    sensor_array_destruct(&array);
    const failing_allocation fails(1);
    qe_set_last_error(0);
    EXPECT_EQ(nullptr, sensor_array_create_from_names(names, 2));
    EXPECT_EQ(-22, qe_get_last_error());
}

TEST(SensorArray, ReportsMissingMemoryAtEveryAllocationOfARead)
{
    sensor_array *array = sensor_array_create_null();
    for (int n = 1;; ++n) {
        memory_reader from(stored_pair);
        const failing_allocation fails(n);
        const int result = binary_serializer_read_sensor_array(array, from.get());
        if (!failing_allocation::happened()) {
            EXPECT_EQ(20, result);
            break;
        }
        EXPECT_EQ(-22, result);
        EXPECT_EQ(nullptr, array->sensors);
    }
    sensor_array_destroy(&array);
}

TEST(SensorArray, RefusesArraysThatAreNotFilled)
{
    sensor_array *empty = sensor_array_create_empty(1);
    sensor_array *other = sensor_array_create_empty(1);
    sensor_array *filled = array_of({"fan"});
    sensor_array *none = sensor_array_create_null();
    memory_writer to;
    EXPECT_ABORTS(sensor_array_is_equal(empty, filled), "s1->sensors[i] != ((void *)0)");
    EXPECT_ABORTS(sensor_array_is_equal(empty, other), "s1->sensors[i] != ((void *)0)");
    EXPECT_ABORTS(sensor_array_is_equal(filled, empty), "s2->sensors[i] != ((void *)0)");
    EXPECT_ABORTS(binary_serializer_write_sensor_array(empty, to.get()),
                  "array->sensors[i] != ((void *)0)");
    EXPECT_ABORTS(binary_serializer_write_sensor_array(none, to.get()),
                  "array->sensors != ((void *)0)");
    filled->nsensors = 0;
    EXPECT_ABORTS(binary_serializer_write_sensor_array(filled, to.get()), "array->nsensors > 0");
    filled->nsensors = 1;
    for (sensor_array *a : {empty, other, filled, none}) {
        sensor_array_destroy(&a);
    }
}

TEST(SensorArray, RefusesIndicesOutOfRange)
{
    sensor_array *array = array_of({"fan"});
    EXPECT_ABORTS(sensor_array_get(array, -1), "i >= 0");
    EXPECT_ABORTS(sensor_array_get(array, 1), "i < array->nsensors");
    EXPECT_ABORTS(sensor_array_set(array, -1, array->sensors[0]), "i >= 0");
    EXPECT_ABORTS(sensor_array_set(array, 1, array->sensors[0]), "i < array->nsensors");
    sensor_array_destroy(&array);
}

TEST(SensorArray, RefusesCopiesThatDisagree)
{
    sensor_array *array = array_of({"fan", "psu"});
    sensor_array copy = *array;
    copy.nsensors = 1;
    EXPECT_ABORTS(sensor_array_is_equal(array, &copy), "s1->nsensors == s2->nsensors");
    copy = *array;
    int other_count = 1;
    copy.ref_count = &other_count;
    EXPECT_ABORTS(sensor_array_is_equal(array, &copy), "s1->ref_count == s2->ref_count");
    other_count = 0;
    EXPECT_ABORTS(sensor_array_copy(&copy), "*array->ref_count > 0");
    sensor_array_destroy(&array);
}

TEST(SensorArray, RefusesCountsOfZeroAndMissingNames)
{
    const char *names[] = {nullptr};
    sensor *list[1] = {nullptr};
    sensor_array array;
    EXPECT_ABORTS(sensor_array_init(&array, list, 0), "nsensors > 0");
    EXPECT_ABORTS(sensor_array_create(list, 0), "nsensors > 0");
    EXPECT_ABORTS(sensor_array_init_empty(&array, 0), "nsensors > 0");
    EXPECT_ABORTS(sensor_array_create_empty(0), "nsensors > 0");
    EXPECT_ABORTS(sensor_array_init_from_names(&array, names, 0), "nsensors > 0");
    EXPECT_ABORTS(sensor_array_create_from_names(names, 0), "nsensors > 0");
    EXPECT_ABORTS(sensor_array_init_from_names(&array, names, 1), "names[i] != ((void *)0)");
}

TEST(SensorArray, RefusesDeadArrays)
{
    sensor_array dead = {};
    sensor_array live;
    sensor_array_init_null(&live);
    memory_writer to;
    memory_reader from("");
    const char *const text = "array->version == ((char) 1)";
    EXPECT_ABORTS(sensor_array_copy(&dead), text);
    EXPECT_ABORTS(sensor_array_get_sensors(&dead), text);
    EXPECT_ABORTS(sensor_array_get_size(&dead), text);
    EXPECT_ABORTS(sensor_array_get(&dead, 0), text);
    EXPECT_ABORTS(sensor_array_set(&dead, 0, nullptr), text);
    EXPECT_ABORTS(sensor_array_destruct(&dead), text);
    EXPECT_ABORTS(binary_serializer_write_sensor_array(&dead, to.get()), text);
    EXPECT_ABORTS(binary_serializer_read_sensor_array(&dead, from.get()), text);
    EXPECT_ABORTS(sensor_array_is_equal(&dead, &live), "s1->version == ((char) 1)");
    EXPECT_ABORTS(sensor_array_is_equal(&live, &dead), "s2->version == ((char) 1)");
}

TEST(SensorArray, RefusesNull)
{
    const char *names[] = {"fan"};
    sensor *list[1] = {nullptr};
    sensor_array array;
    sensor_array_init_null(&array);
    sensor_array *none = nullptr;
    sensor_array *filled = array_of({"fan"});
    memory_writer to;
    memory_reader from("");
    const char *const text = "array != ((void *)0)";
    EXPECT_ABORTS(sensor_array_init(nullptr, list, 1), text);
    EXPECT_ABORTS(sensor_array_init(&array, nullptr, 1), "sensors != ((void *)0)");
    EXPECT_ABORTS(sensor_array_create(nullptr, 1), "sensors != ((void *)0)");
    EXPECT_ABORTS(sensor_array_init_empty(nullptr, 1), text);
    EXPECT_ABORTS(sensor_array_init_from_names(nullptr, names, 1), text);
    EXPECT_ABORTS(sensor_array_init_from_names(&array, nullptr, 1), "names != ((void *)0)");
    EXPECT_ABORTS(sensor_array_init_null(nullptr), text);
    EXPECT_ABORTS(sensor_array_copy(nullptr), text);
    EXPECT_ABORTS(sensor_array_is_equal(nullptr, &array), "s1 != ((void *)0)");
    EXPECT_ABORTS(sensor_array_is_equal(&array, nullptr), "s2 != ((void *)0)");
    EXPECT_ABORTS(sensor_array_get_sensors(nullptr), text);
    EXPECT_ABORTS(sensor_array_get_size(nullptr), text);
    EXPECT_ABORTS(sensor_array_get(nullptr, 0), text);
    EXPECT_ABORTS(sensor_array_set(nullptr, 0, nullptr), text);
    EXPECT_ABORTS(sensor_array_set(filled, 0, nullptr), "sensor != ((void *)0)");
    EXPECT_ABORTS(sensor_array_destruct(nullptr), text);
    EXPECT_ABORTS(sensor_array_destroy(nullptr), text);
    EXPECT_ABORTS(sensor_array_destroy(&none), "*array != ((void *)0)");
    EXPECT_ABORTS(binary_serializer_write_sensor_array(nullptr, to.get()), text);
    EXPECT_ABORTS(binary_serializer_write_sensor_array(filled, nullptr), "writer != ((void *)0)");
    EXPECT_ABORTS(binary_serializer_read_sensor_array(nullptr, from.get()), text);
    EXPECT_ABORTS(binary_serializer_read_sensor_array(&array, nullptr), "reader != ((void *)0)");
    sensor_array_destroy(&filled);
}

TEST(SensorArrayPreconditions, AskForACountFirst)
{
    sensor_array array;
    EXPECT_ABORTS(sensor_array_init(&array, nullptr, 0), "nsensors > 0");
    EXPECT_ABORTS(sensor_array_init_from_names(&array, nullptr, 0), "nsensors > 0");
    EXPECT_ABORTS(sensor_create_array(nullptr, 0), "nsensors > 0");
    EXPECT_ABORTS(sensor_array_init(&array, nullptr, 1), "sensors != ((void *)0)");
    EXPECT_ABORTS(sensor_array_init_from_names(&array, nullptr, 1), "names != ((void *)0)");
    EXPECT_ABORTS(sensor_create_array(nullptr, 1), "names != ((void *)0)");
}

TEST(SensorArrayPreconditions, LookAtSensorsThatTwoListsHoldAlike)
{
    const char *names[] = {"a"};
    sensor_array *first = sensor_array_create_from_names(names, 1);
    sensor_array *second = sensor_array_create_from_names(names, 1);
    sensor *shared = sensor_array_get(first, 0);
    ASSERT_EQ(shared, sensor_array_get(second, 0));
    shared->version = 0;
    EXPECT_ABORTS(sensor_array_is_equal(first, second), "s1->version == ((char) 1)");
    shared->version = 1;
    sensor_array_destroy(&first);
    sensor_array_destroy(&second);
}
