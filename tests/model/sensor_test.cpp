// Sensors: one object for a name, and the handles that stand for it.
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <string>

#include <vesk/error.h>
#include <vesk/sensor.h>

#include "common/aborts.hpp"
#include "common/failing_calls.hpp"
#include "common/memory_streams.hpp"

namespace
{

const std::string stored_fan = from_hex("01 00000003") + "fan";

// The result of reading a sensor, which must be there when the result is positive.
int read_sensor_result(const std::string &bytes, int failure = 0)
{
    sensor *s = nullptr;
    memory_reader from(bytes, failure);
    const int result = binary_serializer_read_sensor(&s, from.get());
    EXPECT_EQ(result <= 0, s == nullptr);
    if (s != nullptr) {
        sensor_destroy(&s);
    }
    return result;
}

} // namespace

TEST(Sensor, IsTheSameObjectForTheSameName)
{
    sensor *s1 = sensor_create("a");
    sensor *s2 = sensor_create("a");
    EXPECT_EQ(s1, s2);
    EXPECT_EQ(s1, s1->canonical);
    EXPECT_EQ(1, s1->version);
    EXPECT_STREQ("a", s1->name);
    EXPECT_EQ(uint32_t{'a'}, s1->hash_code);
    sensor_destroy(&s1);
    EXPECT_EQ(nullptr, s1);
    EXPECT_STREQ("a", s2->name);
    sensor_destroy(&s2);
}

TEST(Sensor, DiffersForAnagramsThatShareAHashCode)
{
    sensor *s1 = sensor_create("ab");
    sensor *s2 = sensor_create("ba");
    EXPECT_EQ(sensor_get_hash_code(s1), sensor_get_hash_code(s2));
    EXPECT_EQ(0, sensor_is_equal(s1, s2));
    sensor_destroy(&s1);
    sensor_destroy(&s2);
}

TEST(Sensor, HashesNamesAsASumOfUnsignedBytes)
{
    sensor *s = sensor_create("\377\376z");
    EXPECT_EQ(0xffU + 0xfeU + 0x7aU, sensor_get_hash_code(s));
    sensor_destroy(&s);
    sensor *empty = sensor_create("");
    EXPECT_EQ(0U, sensor_get_hash_code(empty));
    sensor_destroy(&empty);
}

TEST(Sensor, HandlesStandForTheCanonicalSensor)
{
    sensor *canonical = sensor_create("fan");
    sensor handle;
    EXPECT_EQ(0, sensor_init(&handle, "fan"));
    EXPECT_EQ(1, handle.version);
    EXPECT_EQ(nullptr, handle.name);
    EXPECT_EQ(0U, handle.hash_code);
    EXPECT_EQ(canonical, handle.canonical);
    EXPECT_EQ(1, sensor_is_equal(&handle, canonical));
    EXPECT_EQ(sensor_get_hash_code(canonical), sensor_get_hash_code(&handle));
    sensor_destruct(&handle);
    EXPECT_EQ(0, handle.version);
    EXPECT_EQ(nullptr, handle.canonical);
    sensor_destroy(&canonical);
}

TEST(Sensor, HandlesKeepTheNameAlive)
{
    sensor *canonical = sensor_create("fan");
    auto *handle = static_cast<sensor *>(malloc(sizeof(sensor)));
    EXPECT_EQ(0, sensor_init(handle, "fan"));
    sensor_destroy(&canonical);
    char name[8];
    EXPECT_STREQ("fan", sensor_get_name(handle, name, sizeof name));
    // A handle on the heap is freed with its reference.
    sensor_destroy(&handle);
    EXPECT_EQ(nullptr, handle);
}

TEST(Sensor, NullStandsForNoName)
{
    sensor s;
    EXPECT_EQ(0, sensor_init_null(&s));
    EXPECT_EQ(1, s.version);
    EXPECT_EQ(nullptr, s.name);
    EXPECT_EQ(0U, s.hash_code);
    EXPECT_EQ(nullptr, s.canonical);
    sensor *created = sensor_create_null();
    EXPECT_EQ(1, sensor_is_equal(&s, created));
    sensor *fan = sensor_create("fan");
    EXPECT_EQ(0, sensor_is_equal(&s, fan));
    sensor_destroy(&fan);
    sensor_destroy(&created);
    EXPECT_EQ(nullptr, created);
    sensor_destruct(&s);
    EXPECT_EQ(0, s.version);
}

TEST(Sensor, ArraysHoldOneReferencePerName)
{
    const char *names[] = {"x", "y", "x"};
    sensor **list = sensor_create_array(names, 3);
    EXPECT_EQ(list[0], list[2]);
    EXPECT_NE(list[0], list[1]);
    for (int i = 0; i < 3; ++i) {
        sensor_destroy(&list[i]);
    }
    free(list);
}

TEST(Sensor, NamesAreCutOffWithoutATerminator)
{
    sensor *s = sensor_create("fan");
    char name[6];
    memset(name, '#', sizeof name);
    EXPECT_EQ(name, sensor_get_name(s, name, 3));
    EXPECT_EQ("fan###", std::string(name, 6));
    memset(name, '#', sizeof name);
    EXPECT_EQ(name, sensor_to_string(s, name, 2));
    EXPECT_EQ("fa####", std::string(name, 6));
    memset(name, '#', sizeof name);
    sensor_get_name(s, name, 5);
    EXPECT_EQ(std::string("fan\0\0#", 6), std::string(name, 6));
    sensor_destroy(&s);
}

TEST(Sensor, CopiesAreCanonicalSensorsOrHandles)
{
    sensor *s = sensor_create("fan");
    sensor handle = {};
    EXPECT_EQ(&handle, sensor_copy(s, &handle));
    EXPECT_EQ(1, handle.version);
    EXPECT_EQ(nullptr, handle.name);
    EXPECT_EQ(0U, handle.hash_code);
    sensor *copy = sensor_copy(&handle, nullptr);
    EXPECT_EQ(s, copy);
    // Three references: the name goes with the last one.
    sensor_destroy(&s);
    sensor_destruct(&handle);
    EXPECT_STREQ("fan", copy->name);
    sensor_destroy(&copy);
}

TEST(Sensor, IsStoredAsVersionAndName)
{
    sensor *s = sensor_create("fan");
    sensor handle;
    sensor_copy(s, &handle);
    memory_writer to;
    EXPECT_EQ(8, binary_serializer_write_sensor(&handle, to.get()));
    EXPECT_EQ(stored_fan, to.bytes());
    memory_reader from(to.bytes());
    sensor *back = nullptr;
    EXPECT_EQ(8, binary_serializer_read_sensor(&back, from.get()));
    EXPECT_EQ(s, back);
    sensor_destroy(&s);
    sensor_destroy(&back);
    sensor_destruct(&handle);
}

TEST(Sensor, StopsWritingAtTheFirstFailure)
{
    sensor *s = sensor_create("fan");
    for (std::size_t capacity = 0; capacity < 8; ++capacity) {
        memory_writer to(capacity, -42);
        EXPECT_EQ(-42, binary_serializer_write_sensor(s, to.get()));
    }
    sensor_destroy(&s);
}

TEST(Sensor, NamesOverTenThousandBytesCannotBeStored)
{
    sensor *s = sensor_create(std::string(10001, 'n').c_str());
    memory_writer to;
    EXPECT_EQ(-49, binary_serializer_write_sensor(s, to.get()));
    EXPECT_EQ(1U, to.bytes().size());
    sensor_destroy(&s);
    sensor *longest = sensor_create(std::string(10000, 'n').c_str());
    memory_writer other;
    EXPECT_EQ(10005, binary_serializer_write_sensor(longest, other.get()));
    EXPECT_EQ(10005, read_sensor_result(other.bytes()));
    sensor_destroy(&longest);
}

TEST(Sensor, TellsTheEndOfTheDataFromATornForm)
{
    EXPECT_EQ(8, read_sensor_result(stored_fan));
    EXPECT_EQ(0, read_sensor_result(""));
    // The end right before a string is the end of the strings.
    EXPECT_EQ(-43, read_sensor_result(stored_fan.substr(0, 1)));
    EXPECT_EQ(-48, read_sensor_result(stored_fan.substr(0, 3)));
    EXPECT_EQ(-48, read_sensor_result(stored_fan.substr(0, 7)));
    for (std::size_t length = 0; length < stored_fan.size(); ++length) {
        EXPECT_EQ(-41, read_sensor_result(stored_fan.substr(0, length), -41)) << length;
    }
}

TEST(Sensor, RefusesMalformedForms)
{
    EXPECT_EQ(-12, read_sensor_result(from_hex("00 00000003") + "fan"));
    EXPECT_EQ(-6, read_sensor_result(from_hex("01 00000000")));
    EXPECT_EQ(-6, read_sensor_result(from_hex("01 00002711") + std::string(10001, 'n')));
    EXPECT_EQ(-6, read_sensor_result(from_hex("01 00000003 66 00 6e")));
}

TEST(Sensor, ReportsMissingMemoryAtEveryAllocation)
{
    const char *names[] = {"x", "y", "x"};
    for (int n = 1;; ++n) {
        const failing_allocation fails(n);
        qe_set_last_error(0);
        sensor **list = sensor_create_array(names, 3);
        if (!failing_allocation::happened()) {
            for (int i = 0; i < 3; ++i) {
                sensor_destroy(&list[i]);
            }
            free(list);
            break;
        }
        EXPECT_EQ(nullptr, list);
        EXPECT_EQ(-22, qe_get_last_error());
    }
    for (int n = 1;; ++n) {
        memory_reader from(stored_fan);
        sensor *s = nullptr;
        const failing_allocation fails(n);
        const int result = binary_serializer_read_sensor(&s, from.get());
        if (!failing_allocation::happened()) {
            sensor_destroy(&s);
            break;
        }
        EXPECT_EQ(-22, result);
        EXPECT_EQ(nullptr, s);
    }
    sensor handle = {};
    {
        const failing_allocation fails(1);
        EXPECT_EQ(-22, sensor_init(&handle, "fan"));
        EXPECT_EQ(nullptr, handle.canonical);
    }
    sensor_destruct(&handle);
    const failing_allocation fails(1);
    qe_set_last_error(0);
    EXPECT_EQ(nullptr, sensor_create_null());
    EXPECT_EQ(-22, qe_get_last_error());
}

TEST(Sensor, RefusesHandlesWithANameOfTheirOwn)
{
    sensor handle;
    sensor_init_null(&handle);
    handle.hash_code = 1;
    EXPECT_ABORTS(sensor_destruct(&handle), "sensor->hash_code == 0");
    sensor_init_null(&handle);
    char name[] = "fan";
    handle.name = name;
    EXPECT_ABORTS(sensor_destruct(&handle), "sensor->name == ((void *)0)");
}

TEST(Sensor, RefusesNullSensorsWhereANameIsNeeded)
{
    sensor s;
    sensor_init_null(&s);
    char name[4];
    memory_writer to;
    const char *const text = "s->canonical != ((void *)0)";
    EXPECT_ABORTS(sensor_get_name(&s, name, sizeof name), text);
    EXPECT_ABORTS(sensor_to_string(&s, name, sizeof name), text);
    EXPECT_ABORTS(sensor_copy(&s, nullptr), text);
    EXPECT_ABORTS(sensor_get_hash_code(&s), text);
    EXPECT_ABORTS(binary_serializer_write_sensor(&s, to.get()), "sensor->canonical != ((void *)0)");
}

TEST(Sensor, RefusesDeadSensors)
{
    sensor dead = {};
    sensor live;
    sensor_init_null(&live);
    char name[4];
    memory_writer to;
    const char *const text = "s->version == ((char) 1)";
    EXPECT_ABORTS(sensor_destruct(&dead), "sensor->version == ((char) 1)");
    EXPECT_ABORTS(sensor_is_equal(&dead, &live), "s1->version == ((char) 1)");
    EXPECT_ABORTS(sensor_is_equal(&live, &dead), "s2->version == ((char) 1)");
    EXPECT_ABORTS(sensor_get_name(&dead, name, sizeof name), text);
    EXPECT_ABORTS(sensor_copy(&dead, nullptr), text);
    EXPECT_ABORTS(sensor_get_hash_code(&dead), text);
    EXPECT_ABORTS(binary_serializer_write_sensor(&dead, to.get()), "sensor->version == ((char) 1)");
}

TEST(Sensor, RefusesNull)
{
    sensor *fan = sensor_create("fan");
    sensor *none = nullptr;
    const char *names[] = {"x"};
    char name[4];
    memory_writer to;
    memory_reader from("");
    const char *const text = "s != ((void *)0)";
    EXPECT_ABORTS(sensor_create(nullptr), "name != ((void *)0)");
    EXPECT_ABORTS(sensor_init(nullptr, "x"), text);
    EXPECT_ABORTS(sensor_init(fan, nullptr), "name != ((void *)0)");
    EXPECT_ABORTS(sensor_init_null(nullptr), text);
    EXPECT_ABORTS(sensor_create_array(nullptr, 1), "names != ((void *)0)");
    EXPECT_ABORTS(sensor_create_array(names, 0), "nsensors > 0");
    EXPECT_ABORTS(sensor_destruct(nullptr), "sensor != ((void *)0)");
    EXPECT_ABORTS(sensor_destroy(nullptr), "sensor != ((void *)0)");
    EXPECT_ABORTS(sensor_destroy(&none), "*sensor != ((void *)0)");
    EXPECT_ABORTS(sensor_is_equal(nullptr, fan), "s1 != ((void *)0)");
    EXPECT_ABORTS(sensor_is_equal(fan, nullptr), "s2 != ((void *)0)");
    EXPECT_ABORTS(sensor_get_name(nullptr, name, sizeof name), text);
    EXPECT_ABORTS(sensor_get_name(fan, nullptr, 1), "dst != ((void *)0)");
    EXPECT_ABORTS(sensor_copy(nullptr, nullptr), text);
    EXPECT_ABORTS(sensor_get_hash_code(nullptr), text);
    EXPECT_ABORTS(binary_serializer_write_sensor(nullptr, to.get()), "sensor != ((void *)0)");
    EXPECT_ABORTS(binary_serializer_write_sensor(fan, nullptr), "writer != ((void *)0)");
    EXPECT_ABORTS(binary_serializer_read_sensor(nullptr, from.get()), "sensor != ((void *)0)");
    EXPECT_ABORTS(binary_serializer_read_sensor(&none, nullptr), "reader != ((void *)0)");
    sensor_destroy(&fan);
}
