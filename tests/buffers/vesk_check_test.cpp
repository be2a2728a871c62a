// Checks of vectors and events before they are written: what a recorder keeps passes, and what
// would not come back from a file is refused.
#include <cmath>
#include <filesystem>
#include <limits>
#include <string>
#include <vector>

#include <vesk/error.h>
#include <vesk/vesk.h>
#include <vesk/vesk_check.h>

#include "common/aborts.hpp"
#include "common/failing_calls.hpp"
#include "common/matrices.hpp"
#include "common/telemetry.hpp"
#include "common/temporary_directory.hpp"

namespace
{

using owned_recorder = owned<vesk, vesk_close>;
using readings = std::vector<reading>;

int check(const owned_matrix &vector)
{
    return vesk_check_vector(vector.get());
}

int check(const owned_event &event)
{
    return vesk_check_event(event.get());
}

// As many sensors, no two alike.
readings many(uint32_t n)
{
    readings all;
    for (uint32_t i = 0; i < n; ++i) {
        all.push_back({"sensor." + std::to_string(i), 1.0 * i});
    }
    return all;
}

timestamp *time_of(const owned_matrix &vector)
{
    return timestamp_array_get_timestamps(telemetry_matrix_get_timestamps(vector.get()))[0];
}

// Whether a recorder of the smallest size takes the vector all the time, before and after it was
// opened again, and through its rotations.
bool is_recorded(const owned_matrix &vector)
{
    const temporary_directory folder;
    const std::string base = folder.file("r");
    owned_recorder recorder(vesk_create(base.c_str(), 2, 2));
    for (int i = 0; i < 8; ++i) {
        if (vesk_write_telemetry_vector(recorder.get(), vector.get()) != 0) {
            return false;
        }
        recorder.reset();
        qe_set_last_error(0);
        recorder.reset(vesk_open(base.c_str()));
        if (qe_get_last_error() != 0) {
            return false;
        }
    }
    return true;
}

} // namespace

TEST(CheckVector, PassesWhatARecorderKeeps)
{
    const double inf = std::numeric_limits<double>::infinity();
    const std::string longest(10000, 'n');
    const readings some[] = {
        {{"a", 1}},
        {{"a", std::nan("")}, {"b", inf}, {"c", -inf}, {"d", 1e300}},
        {{longest, 1}, {"\x01\xff \n", 2}},
        many(10000),
    };
    for (const readings &one : some) {
        for (const long seconds : {1L, -1L, 2147483647L, -2147483647L - 1}) {
            const owned_matrix vector = make_vector(seconds, one);
            EXPECT_EQ(0, check(vector)) << one[0].sensor << seconds;
            if (one.size() < 10) {
                EXPECT_TRUE(is_recorded(vector)) << one[0].sensor << seconds;
            }
        }
    }
}

TEST(CheckVector, RefusesWhatIsNoVector)
{
    const owned_matrix plain = make_matrix({{1}});
    EXPECT_EQ(-6, check(plain));
    const owned_matrix rows = make_telemetry({{1}, {2}}, {"a"}, {1000, 1001});
    EXPECT_EQ(-6, check(rows));
}

TEST(CheckVector, RefusesTimesThatDoNotComeBack)
{
    const owned_matrix null = make_vector(0, {{"a", 1}});
    EXPECT_EQ(-11, check(null));
    const owned_matrix vector = make_vector(1, {{"a", 1}});
    time_of(vector)->tv.tv_usec = 1;
    EXPECT_EQ(-11, check(vector));
    time_of(vector)->tv.tv_usec = 0;
    EXPECT_EQ(0, check(vector));
    if (sizeof(time_t) > 4) {
        for (const int64_t seconds :
             {INT64_C(1) << 31, -(INT64_C(1) << 31) - 1, INT64_C(1) << 32, INT64_MAX, INT64_MIN}) {
            time_of(vector)->tv.tv_sec = static_cast<time_t>(seconds);
            EXPECT_EQ(-11, check(vector)) << seconds;
        }
    }
}

TEST(CheckVector, RefusesMoreSensorsThanAreStored)
{
    EXPECT_EQ(-49, check(make_vector(1, many(10001))));
}

TEST(CheckVector, RefusesNamesThatDoNotComeBack)
{
    EXPECT_EQ(-6, check(make_vector(1, {{"", 1}})));
    EXPECT_EQ(-6, check(make_vector(1, {{"a", 1}, {"", 2}, {"b", 3}})));
    EXPECT_EQ(-49, check(make_vector(1, {{std::string(10001, 'n'), 1}})));
    EXPECT_EQ(-49, check(make_vector(1, {{"a", 1}, {std::string(1000000, 'n'), 1}})));
}

TEST(CheckVector, RefusesRepeatedSensorsWhereverTheyAre)
{
    EXPECT_EQ(-6, check(make_vector(1, {{"a", 1}, {"a", 2}})));
    readings all = many(10000);
    all.front().sensor = all.back().sensor;
    EXPECT_EQ(-6, check(make_vector(1, all)));
    all.front().sensor = all[1].sensor;
    EXPECT_EQ(-6, check(make_vector(1, all)));
}

TEST(CheckVector, RefusesAPlaceWithoutASensor)
{
    const owned_matrix vector = make_vector(1, {{"a", 1}});
    ASSERT_EQ(0, matrix_resize(vector.get(), 1, 2));
    EXPECT_EQ(-6, check(vector));
    ASSERT_EQ(0, matrix_resize(vector.get(), 1, 1));
    EXPECT_EQ(0, check(vector));
}

TEST(CheckVector, NeedsMemoryToCompareSensors)
{
    const owned_matrix vector = make_vector(1, {{"a", 1}});
    const failing_allocation failing(1);
    EXPECT_EQ(-22, check(vector));
}

TEST(CheckVector, RequiresAMatrix)
{
    EXPECT_ABORTS(vesk_check_vector(nullptr), "vector != ((void *)0)");
    const matrix dead = {};
    EXPECT_ABORTS(vesk_check_vector(&dead), "m->version == ((char) 1)");
}

TEST(CheckEvent, PassesWhatARecorderKeeps)
{
    const temporary_directory folder;
    const std::string base = folder.file("r");
    owned_recorder recorder(vesk_create(base.c_str(), 2, 2));
    const owned_matrix vector = make_vector(1, {{"a", 1}});
    for (const uint32_t type : {1U, 2U, 3U, 4U, 5U}) {
        for (const long seconds : {1L, -1L, 2147483647L, -2147483647L - 1}) {
            for (const std::string &text : {std::string("x"), std::string(10000, 'x')}) {
                const owned_event event = make_event(type, seconds, text);
                EXPECT_EQ(0, check(event));
                ASSERT_EQ(0, vesk_write_telemetry_vector(recorder.get(), vector.get()));
                EXPECT_EQ(0, vesk_write_tagged_event(recorder.get(), event.get()));
            }
        }
    }
}

TEST(CheckEvent, RefusesTypesThatAreNotCounted)
{
    for (const uint32_t type : {6U, 7U, 255U, 0x01000000U, UINT32_MAX}) {
        EXPECT_EQ(-6, check(make_event(type, 1, "x"))) << type;
    }
    EXPECT_EQ(-6, check(owned_event(vesk_cb_record_event_create_null())));
}

TEST(CheckEvent, RefusesTimesThatDoNotComeBack)
{
    EXPECT_EQ(-11, check(make_event(1, 0, "x")));
    const owned_event event = make_event(1, 1, "x");
    event->timestamp.tv.tv_usec = 999999;
    EXPECT_EQ(-11, check(event));
    event->timestamp.tv.tv_usec = 0;
    EXPECT_EQ(0, check(event));
    if (sizeof(time_t) > 4) {
        event->timestamp.tv.tv_sec = static_cast<time_t>(INT64_C(1) << 31);
        EXPECT_EQ(-11, check(event));
    }
}

TEST(CheckEvent, RefusesTextsThatDoNotComeBack)
{
    EXPECT_EQ(-6, check(make_event(1, 1, "")));
    EXPECT_EQ(-49, check(make_event(1, 1, std::string(10001, 'x'))));
    const owned_event event = make_event(1, 1, "x");
    free(event->text);
    event->text = nullptr;
    EXPECT_EQ(-6, check(event));
}

TEST(CheckEvent, RequiresALiveEvent)
{
    const vesk_cb_record_event dead = {};
    EXPECT_ABORTS(vesk_check_event(nullptr), "event != ((void *)0)");
    EXPECT_ABORTS(vesk_check_event(&dead), "event->version == ((char) 1)");
}
