// The registry of all sensors of the process, which counts who holds them.
#include <algorithm>
#include <cstring>
#include <ctime>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include <vesk/error.h>
#include <vesk/sensors.h>

#include "common/aborts.hpp"
#include "common/failing_calls.hpp"
#include "model/sensor_internal.hpp"

TEST(Sensors, CountsReferencesByName)
{
    sensor *s = sensors_get_sensor("fan");
    EXPECT_EQ(s, sensors_get_sensor("fan"));
    _sensors_increment_ref_count(s);
    sensors_destroy_sensor(s);
    sensors_destroy_sensor(s);
    EXPECT_STREQ("fan", s->name);
    sensors_destroy_sensor(s);
    // The last one took the name out, and the buckets with it.
    sensor stray = {1, nullptr, 0, nullptr};
    stray.canonical = &stray;
    EXPECT_ABORTS(sensors_destroy_sensor(&stray), "_sensors.buckets != ((void *)0)");
}

TEST(Sensors, KeepsItsOwnCopyOfTheName)
{
    char name[] = "fan";
    sensor *s = sensors_get_sensor(name);
    memset(name, 'x', 3);
    EXPECT_STREQ("fan", s->name);
    sensors_destroy_sensor(s);
}

TEST(Sensors, TakesHandlesForTheirCanonicalSensor)
{
    sensor *s = sensors_get_sensor("fan");
    sensor handle = {1, nullptr, 0, s};
    _sensors_increment_ref_count(&handle);
    sensors_destroy_sensor(&handle);
    EXPECT_STREQ("fan", s->name);
    EXPECT_EQ(s, handle.canonical);
    sensors_destroy_sensor(&handle);
}

TEST(Sensors, HoldsManyNamesOfOneBucket)
{
    // 120 anagrams.
    std::string name = "abcde";
    std::vector<sensor *> all;
    do {
        all.push_back(sensors_get_sensor(name.c_str()));
        EXPECT_EQ(name, all.back()->name);
    } while (std::next_permutation(name.begin(), name.end()));
    ASSERT_EQ(120U, all.size());
    // From the middle, the front and the back.
    while (!all.empty()) {
        const auto victim = all.begin() + static_cast<std::ptrdiff_t>(all.size() / 2);
        sensors_destroy_sensor(*victim);
        all.erase(victim);
        for (const sensor *s : all) {
            EXPECT_EQ(5U, strlen(s->name));
        }
        if (!all.empty()) {
            sensors_destroy_sensor(all.front());
            all.erase(all.begin());
        }
    }
}

TEST(Sensors, LeavesNothingBehindWithoutMemory)
{
    for (int n = 1;; ++n) {
        sensor *s = nullptr;
        {
            const failing_allocation fails(n);
            qe_set_last_error(0);
            s = sensors_get_sensor("fan");
            if (!failing_allocation::happened()) {
                EXPECT_EQ(5, n);
                sensors_destroy_sensor(s);
                break;
            }
        }
        EXPECT_EQ(nullptr, s);
        EXPECT_EQ(-22, qe_get_last_error());
        // The registry has no buckets again.
        sensor stray = {1, nullptr, 0, nullptr};
        stray.canonical = &stray;
        EXPECT_ABORTS(sensors_destroy_sensor(&stray), "_sensors.buckets != ((void *)0)");
    }
}

TEST(Sensors, RefusesSensorsThatItDoesNotKnow)
{
    sensor *s = sensors_get_sensor("fan");
    sensor stray = *s;
    stray.canonical = &stray;
    EXPECT_ABORTS(sensors_destroy_sensor(&stray), "node != ((void *)0)");
    EXPECT_ABORTS(_sensors_increment_ref_count(&stray), "node != ((void *)0)");
    sensors_destroy_sensor(s);
    EXPECT_ABORTS(sensors_destroy_sensor(&stray), "_sensors.buckets != ((void *)0)");
    EXPECT_ABORTS(_sensors_increment_ref_count(&stray), "_sensors.buckets != ((void *)0)");
}

TEST(Sensors, RefusesNull)
{
    sensor none = {1, nullptr, 0, nullptr};
    EXPECT_ABORTS(sensors_get_sensor(nullptr), "name != ((void *)0)");
    EXPECT_ABORTS(sensors_destroy_sensor(nullptr), "sensor != ((void *)0)");
    EXPECT_ABORTS(sensors_destroy_sensor(&none), "sensor->canonical != ((void *)0)");
    EXPECT_ABORTS(_sensors_increment_ref_count(nullptr), "sensor != ((void *)0)");
    EXPECT_ABORTS(_sensors_increment_ref_count(&none), "sensor->canonical != ((void *)0)");
}

TEST(SensorsPreconditions, LookAtTheSensorThatIsGivenBack)
{
    sensor *s = sensors_get_sensor("a");
    s->version = 0;
    EXPECT_ABORTS(sensors_destroy_sensor(s), "sensor->version == ((char) 1)");
    s->version = 1;
    sensors_destroy_sensor(s);
}

// Names that are made of the same letters have the same hash code, and a file may hold thousands of
// them: each of them was compared with all others.
TEST(Sensors, FindsAnagramsInTimeThatGrowsWithTheirNumber)
{
    constexpr std::size_t few = 2000;
    std::vector<std::string> names;
    std::string letters = "abcdefghijklmnop";
    while (names.size() < 4 * few) {
        names.push_back(letters);
        std::next_permutation(letters.begin(), letters.end());
    }
    const auto ticks = [&](std::size_t n) {
        const clock_t begin = clock();
        std::vector<sensor *> sensors;
        for (std::size_t i = 0; i < 2 * n; ++i) {
            sensors.push_back(sensors_get_sensor(names[i % n].c_str()));
        }
        EXPECT_EQ(sensors[0], sensors[n]);
        for (sensor *s : sensors) {
            sensors_destroy_sensor(s);
        }
        return clock() - begin;
    };
    (void)ticks(few);
    const clock_t once = ticks(few);
    // Four times the names would take sixteen times as long if each were compared with all others.
    EXPECT_LT(ticks(4 * few), 8 * once + CLOCKS_PER_SEC / 50);
}
