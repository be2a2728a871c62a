// Times in whole seconds: where they come from, how they compare, their text and their stored form.
#include <climits>
#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>
#include <string>
#include <sys/resource.h>
#include <unistd.h>

#include <vesk/error.h>
#include <vesk/timestamp.h>

#include "common/aborts.hpp"
#include "common/failing_calls.hpp"
#include "common/memory_streams.hpp"
#include "common/time_zone.hpp"

namespace
{

timestamp at_second(time_t seconds)
{
    timestamp t;
    timestamp_init_null(&t);
    t.tv.tv_sec = seconds;
    return t;
}

std::string text_of(const timestamp &t)
{
    char buffer[18];
    return timestamp_to_string(&t, buffer, sizeof buffer);
}

// The seconds of a text that must parse.
time_t parsed(const char *text)
{
    timestamp t = at_second(1);
    EXPECT_EQ(0, timestamp_init_from_string(&t, text)) << text;
    EXPECT_EQ(1, t.version);
    EXPECT_EQ(0, t.tv.tv_usec);
    return t.tv.tv_sec;
}

int parse_result(const char *text)
{
    timestamp t = {};
    return timestamp_init_from_string(&t, text);
}

class TimestampText : public testing::Test
{
private:
    time_zone zone_{"UTC0"};
};

} // namespace

TEST(Timestamp, TakesTheCurrentTimeInWholeSeconds)
{
    const time_t before = time(nullptr);
    timestamp t = {};
    EXPECT_EQ(0, timestamp_init_current(&t));
    timestamp *created = timestamp_create_current();
    const time_t after = time(nullptr);
    EXPECT_EQ(1, t.version);
    EXPECT_LE(before, t.tv.tv_sec);
    EXPECT_LE(t.tv.tv_sec, created->tv.tv_sec);
    EXPECT_LE(created->tv.tv_sec, after);
    EXPECT_EQ(0, t.tv.tv_usec);
    EXPECT_EQ(0, created->tv.tv_usec);
    timestamp_destroy(&created);
    EXPECT_EQ(nullptr, created);
}

TEST(Timestamp, NullIsTheEpoch)
{
    timestamp t = {};
    EXPECT_EQ(0, timestamp_init_null(&t));
    EXPECT_EQ(1, t.version);
    EXPECT_EQ(1, timestamp_is_null(&t));
    t.tv.tv_sec = 1;
    EXPECT_EQ(0, timestamp_is_null(&t));
    t.tv.tv_sec = 0;
    t.tv.tv_usec = 1;
    EXPECT_EQ(0, timestamp_is_null(&t));
    timestamp *created = timestamp_create_null();
    EXPECT_EQ(1, timestamp_is_null(created));
    timestamp_destroy(&created);
}

TEST(Timestamp, DropsTheMicrosecondsOfATimeval)
{
    struct timeval tv = {};
    tv.tv_sec = 1234567890;
    tv.tv_usec = 999999;
    timestamp t = {};
    EXPECT_EQ(0, timestamp_init_from_timeval(&t, &tv));
    EXPECT_EQ(1, t.version);
    EXPECT_EQ(1234567890, t.tv.tv_sec);
    EXPECT_EQ(0, t.tv.tv_usec);
    timestamp *created = timestamp_create_from_timeval(&tv);
    EXPECT_EQ(1, timestamp_is_equal(&t, created));
    timestamp_destroy(&created);
}

TEST(Timestamp, HandsOutBothFieldsOfItsTimeval)
{
    timestamp t = at_second(77);
    t.tv.tv_usec = 5;
    struct timeval tv = {};
    timestamp_to_timeval(&t, &tv);
    EXPECT_EQ(77, tv.tv_sec);
    EXPECT_EQ(5, tv.tv_usec);
}

TEST(Timestamp, RefusesTimevalsThatDoNotFitInto32Bits)
{
    if (sizeof(time_t) == 4) {
        GTEST_SKIP() << "every time fits";
    }
    for (const int64_t seconds : {INT64_C(2147483648), INT64_C(-2147483649)}) {
        struct timeval tv = {};
        tv.tv_sec = static_cast<time_t>(seconds);
        timestamp t = {};
        EXPECT_EQ(-11, timestamp_init_from_timeval(&t, &tv));
        qe_set_last_error(0);
        EXPECT_EQ(nullptr, timestamp_create_from_timeval(&tv));
        EXPECT_EQ(-11, qe_get_last_error());
    }
    for (const int64_t seconds : {INT64_C(2147483647), INT64_C(-2147483648)}) {
        struct timeval tv = {};
        tv.tv_sec = static_cast<time_t>(seconds);
        timestamp t = {};
        EXPECT_EQ(0, timestamp_init_from_timeval(&t, &tv));
        EXPECT_EQ(seconds, t.tv.tv_sec);
    }
}

TEST(Timestamp, CopiesIntoGivenOrNewStorage)
{
    timestamp t = at_second(42);
    timestamp dest = {};
    EXPECT_EQ(&dest, timestamp_copy(&t, &dest));
    EXPECT_EQ(1, dest.version);
    EXPECT_EQ(42, dest.tv.tv_sec);
    timestamp *copy = timestamp_copy(&t, nullptr);
    EXPECT_EQ(1, timestamp_is_equal(&t, copy));
    timestamp_destroy(&copy);
}

TEST(Timestamp, ComparesSignedSeconds)
{
    const timestamp early = at_second(-5);
    const timestamp late = at_second(3);
    EXPECT_EQ(-1, timestamp_compare(&early, &late));
    EXPECT_EQ(1, timestamp_compare(&late, &early));
    EXPECT_EQ(0, timestamp_compare(&late, &late));
    EXPECT_EQ(0, timestamp_is_equal(&early, &late));
    EXPECT_EQ(1, timestamp_is_equal(&early, &early));
}

TEST(Timestamp, IncrementsByUnsignedSeconds)
{
    timestamp t = at_second(-10);
    timestamp_increment(&t, 15);
    EXPECT_EQ(5, t.tv.tv_sec);
    t = at_second(-2147483647);
    timestamp_increment(&t, 4294967295U);
    EXPECT_EQ(sizeof(time_t) == 4 ? INT64_C(-2147483648) : INT64_C(2147483648), t.tv.tv_sec);
}

TEST(Timestamp, IsZeroAfterDestruct)
{
    timestamp t = at_second(9);
    timestamp_destruct(&t);
    EXPECT_EQ(0, t.version);
    EXPECT_EQ(0, t.tv.tv_sec);
}

TEST_F(TimestampText, RoundTrips)
{
    EXPECT_EQ("20240229:23:59:59", text_of(at_second(1709251199)));
    EXPECT_EQ(1709251199, parsed("20240229:23:59:59"));
    EXPECT_EQ("20380119:03:14:07", text_of(at_second(2147483647)));
    EXPECT_EQ(2147483647, parsed("20380119:03:14:07"));
}

TEST_F(TimestampText, IsLocalTime)
{
    const time_zone zone("XYZ-2");
    EXPECT_EQ("19700101:02:00:00", text_of(at_second(0)));
    EXPECT_EQ(0, parsed("19700101:02:00:00"));
}

TEST_F(TimestampText, AcceptsTheLeapSecond)
{
    EXPECT_EQ(parsed("20240301:00:00:00"), parsed("20240229:23:59:60"));
}

TEST_F(TimestampText, TakesMonthZeroForDecemberOfTheYearBefore)
{
    EXPECT_EQ(parsed("20231201:00:00:00"), parsed("20240001:00:00:00"));
}

TEST_F(TimestampText, MovesDaysThatDoNotExistIntoTheNextMonth)
{
    EXPECT_EQ(parsed("20230701:00:00:00"), parsed("20230631:00:00:00"));
}

TEST_F(TimestampText, CountsOtherCharactersByTheirDistanceFromZero)
{
    // ':' is '0' + 10.
    EXPECT_EQ(parsed("20240110:00:00:00"), parsed("2024010::00:00:00"));
    // There is no lower bound for hours: '/' is '0' - 1.
    EXPECT_EQ(parsed("20231231:23:00:00"), parsed("20240101:0/:00:00"));
    // Characters beyond ASCII are negative on every machine.
    EXPECT_EQ(-11, parse_result("\377\37724010:00:00:00"));
}

TEST_F(TimestampText, AcceptsTimesBeforeTheEpoch)
{
    EXPECT_EQ(-1, parsed("19691231:23:59:59"));
    EXPECT_EQ(-INT64_C(2147483648), parsed("19011213:20:45:52"));
}

TEST_F(TimestampText, RefusesTheOutOfRange)
{
    for (const char *text : {
             "18991231:00:00:00", // year
             "20241301:00:00:00", // month
             "20240100:00:00:00", // day
             "20240132:00:00:00", // day
             "20241300:00:00:00", // month and day
             "20240101:24:00:00", // hour
             "20240101:00:60:00", // minute
             "20240101:00:00:61", // second
             "20380119:03:14:08", // past 32 bits
             "19011213:20:45:51", // before 32 bits
             "19000101:00:00:00", // before 32 bits
         }) {
        EXPECT_EQ(-11, parse_result(text)) << text;
    }
}

TEST_F(TimestampText, RefusesOtherForms)
{
    for (const char *text :
         {"", "2024-01-01 00:00:00", "20240101:00:00:0", "20240101:00:00:000", "20240101 00:00:00",
          "20240101:00 00:00", "20240101:00:00 00", "2024010:00:00:000"}) {
        EXPECT_EQ(-11, parse_result(text)) << text;
    }
}

TEST_F(TimestampText, LeavesTheLastErrorAloneWhenItCannotBeParsed)
{
    qe_set_last_error(-41);
    EXPECT_EQ(nullptr, timestamp_create_from_string("nonsense"));
    EXPECT_EQ(-41, qe_get_last_error());
    timestamp *t = timestamp_create_from_string("19700101:00:00:07");
    ASSERT_NE(nullptr, t);
    EXPECT_EQ(7, t->tv.tv_sec);
    timestamp_destroy(&t);
}

// In a process whose zone was never looked at, the first text before 1970 was refused when the zone
// could not be found, the second was not.
TEST(Timestamp, ParsesTimesBeforeTheEpochInAnUnknownZone)
{
    EXPECT_EXIT(
        {
            setenv("TZ", ":No/Such_Zone", 1);
            timestamp t;
            const int result = timestamp_init_from_string(&t, "19690101:00:00:00");
            exit(result == 0 ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

// Where no zone is named, each use looks for the file of the usual one, and errno tells each time
// that it cannot be opened.
TEST(Timestamp, ParsesTimesBeforeTheEpochWithoutAFileOfTheZone)
{
    EXPECT_EXIT(
        {
            // Away from the file that this process may have open in mind.
            setenv("TZ", ":No/Such_Zone", 1);
            tzset();
            unsetenv("TZ");
            const rlimit no_files = {};
            setrlimit(RLIMIT_NOFILE, &no_files);
            timestamp t;
            const int first = timestamp_init_from_string(&t, "19690101:00:00:00");
            const int second = timestamp_init_from_string(&t, "19691231:23:59:59");
            // Without descriptors, what looks for leaks at the end would fail.
            _exit(first == 0 && second == 0 && t.tv.tv_sec == -1 ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(TimestampText, NeedsRoomForSeventeenCharactersAndATerminator)
{
    const timestamp t = at_second(0);
    char buffer[32];
    EXPECT_ABORTS(timestamp_to_string(&t, buffer, 17), "bufsize > 17");
    EXPECT_EQ(buffer, timestamp_to_string(&t, buffer, 18));
    EXPECT_STREQ("19700101:00:00:00", buffer);
}

TEST_F(TimestampText, AbortsOnTimesThatCannotBeShown)
{
    if (sizeof(time_t) == 4) {
        GTEST_SKIP() << "every time can be shown";
    }
    char buffer[18];
    timestamp t = at_second(0);
    t.tv.tv_sec = static_cast<time_t>(INT64_MAX);
    EXPECT_ABORTS(timestamp_to_string(&t, buffer, sizeof buffer), "time_struct != ((void *)0)");
    t.tv.tv_sec = static_cast<time_t>(INT64_C(253402300800)); // year 10000
    EXPECT_ABORTS(timestamp_to_string(&t, buffer, sizeof buffer), "rc > 0");
}

TEST(Timestamp, IsStoredInNineBytes)
{
    memory_writer to;
    const timestamp t = at_second(0x01020304);
    EXPECT_EQ(9, binary_serializer_write_timestamp(&t, to.get()));
    EXPECT_EQ(from_hex("01 01020304 00000000"), to.bytes());
    memory_reader from(to.bytes());
    timestamp back = at_second(0);
    EXPECT_EQ(9, binary_serializer_read_timestamp(&back, from.get()));
    EXPECT_EQ(1, timestamp_is_equal(&t, &back));
}

TEST(Timestamp, IsStoredSigned)
{
    memory_writer to;
    const timestamp t = at_second(-2);
    EXPECT_EQ(9, binary_serializer_write_timestamp(&t, to.get()));
    EXPECT_EQ(from_hex("01 fffffffe 00000000"), to.bytes());
    memory_reader from(to.bytes());
    timestamp back = at_second(0);
    EXPECT_EQ(9, binary_serializer_read_timestamp(&back, from.get()));
    EXPECT_EQ(-2, back.tv.tv_sec);
}

TEST(Timestamp, CannotBeStoredPast32Bits)
{
    if (sizeof(time_t) == 4) {
        GTEST_SKIP() << "every time fits";
    }
    memory_writer to;
    timestamp t = at_second(2147483647);
    timestamp_increment(&t, 1);
    EXPECT_EQ(-6, binary_serializer_write_timestamp(&t, to.get()));
    EXPECT_EQ("", to.bytes());
}

TEST(Timestamp, StopsWritingAtTheFirstFailure)
{
    const timestamp t = at_second(1);
    for (const std::size_t capacity : {0U, 1U, 5U, 8U}) {
        memory_writer to(capacity, -42);
        EXPECT_EQ(-42, binary_serializer_write_timestamp(&t, to.get()));
    }
}

TEST(Timestamp, TellsTheEndOfTheDataFromATornForm)
{
    const std::string whole = from_hex("01 00000001 00000000");
    for (std::size_t length = 0; length < whole.size(); ++length) {
        memory_reader from(whole.substr(0, length));
        timestamp t = at_second(0);
        EXPECT_EQ(length == 0 ? 0 : -48, binary_serializer_read_timestamp(&t, from.get()));
        memory_reader failing(whole.substr(0, length), -41);
        EXPECT_EQ(-41, binary_serializer_read_timestamp(&t, failing.get()));
    }
}

TEST(Timestamp, RefusesUnknownVersionsAndKeepsItsOwn)
{
    memory_reader from(from_hex("02 00000001 00000000"));
    timestamp t = at_second(0);
    EXPECT_EQ(-12, binary_serializer_read_timestamp(&t, from.get()));
    EXPECT_EQ(1, t.version);
}

TEST(Timestamp, RefusesStoredMicrosecondsAfterStoringThem)
{
    memory_reader from(from_hex("01 00000001 00000002"));
    timestamp t = at_second(0);
    EXPECT_EQ(-6, binary_serializer_read_timestamp(&t, from.get()));
    EXPECT_EQ(1, t.tv.tv_sec);
    EXPECT_EQ(2, t.tv.tv_usec);
}

TEST(Timestamp, ReportsMissingMemory)
{
    const timestamp t = at_second(1);
    const struct timeval tv = {};
    const failing_allocation fails(1, failing_allocation::for_ever);
    qe_set_last_error(0);
    EXPECT_EQ(nullptr, timestamp_create_current());
    EXPECT_EQ(-22, qe_get_last_error());
    qe_set_last_error(0);
    EXPECT_EQ(nullptr, timestamp_create_null());
    EXPECT_EQ(-22, qe_get_last_error());
    qe_set_last_error(0);
    EXPECT_EQ(nullptr, timestamp_create_from_timeval(&tv));
    EXPECT_EQ(-22, qe_get_last_error());
    qe_set_last_error(0);
    EXPECT_EQ(nullptr, timestamp_create_from_string("20240101:00:00:00"));
    EXPECT_EQ(-22, qe_get_last_error());
    qe_set_last_error(0);
    EXPECT_EQ(nullptr, timestamp_copy(&t, nullptr));
    EXPECT_EQ(-22, qe_get_last_error());
}

TEST(Timestamp, RefusesDeadObjects)
{
    timestamp dead = {};
    timestamp live = at_second(0);
    struct timeval tv = {};
    char buffer[18];
    memory_writer to;
    memory_reader from("");
    const char *const text = "t->version == ((char) 1)";
    EXPECT_ABORTS(timestamp_destruct(&dead), text);
    EXPECT_ABORTS(timestamp_to_string(&dead, buffer, sizeof buffer), text);
    EXPECT_ABORTS(timestamp_to_timeval(&dead, &tv), text);
    EXPECT_ABORTS(timestamp_copy(&dead, nullptr), text);
    EXPECT_ABORTS(timestamp_is_null(&dead), text);
    EXPECT_ABORTS(timestamp_increment(&dead, 1), text);
    EXPECT_ABORTS(timestamp_compare(&dead, &live), "t1->version == ((char) 1)");
    EXPECT_ABORTS(timestamp_compare(&live, &dead), "t2->version == ((char) 1)");
    EXPECT_ABORTS(binary_serializer_write_timestamp(&dead, to.get()),
                  "timestamp->version == ((char) 1)");
    EXPECT_ABORTS(binary_serializer_read_timestamp(&dead, from.get()),
                  "timestamp->version == ((char) 1)");
}

TEST(Timestamp, RefusesToCompareMicroseconds)
{
    const timestamp whole = at_second(1);
    timestamp fraction = at_second(1);
    fraction.tv.tv_usec = 1;
    EXPECT_ABORTS(timestamp_compare(&fraction, &whole), "t1->tv.tv_usec == 0");
    EXPECT_ABORTS(timestamp_compare(&whole, &fraction), "t2->tv.tv_usec == 0");
}

TEST(Timestamp, RefusesNull)
{
    timestamp t = at_second(0);
    timestamp *none = nullptr;
    struct timeval tv = {};
    char buffer[18];
    memory_writer to;
    memory_reader from("");
    const char *const text = "t != ((void *)0)";
    EXPECT_ABORTS(timestamp_init_current(nullptr), text);
    EXPECT_ABORTS(timestamp_init_null(nullptr), text);
    EXPECT_ABORTS(timestamp_init_from_timeval(nullptr, &tv), text);
    EXPECT_ABORTS(timestamp_init_from_timeval(&t, nullptr), "tv != ((void *)0)");
    EXPECT_ABORTS(timestamp_create_from_timeval(nullptr), "tv != ((void *)0)");
    EXPECT_ABORTS(timestamp_init_from_string(nullptr, ""), text);
    EXPECT_ABORTS(timestamp_init_from_string(&t, nullptr), "str != ((void *)0)");
    EXPECT_ABORTS(timestamp_create_from_string(nullptr), "str != ((void *)0)");
    EXPECT_ABORTS(timestamp_destruct(nullptr), text);
    EXPECT_ABORTS(timestamp_destroy(nullptr), text);
    EXPECT_ABORTS(timestamp_destroy(&none), "*t != ((void *)0)");
    EXPECT_ABORTS(timestamp_to_string(nullptr, buffer, sizeof buffer), text);
    EXPECT_ABORTS(timestamp_to_string(&t, nullptr, sizeof buffer), "buffer != ((void *)0)");
    EXPECT_ABORTS(timestamp_to_timeval(nullptr, &tv), text);
    EXPECT_ABORTS(timestamp_to_timeval(&t, nullptr), "tv != ((void *)0)");
    EXPECT_ABORTS(timestamp_copy(nullptr, &t), text);
    EXPECT_ABORTS(timestamp_compare(nullptr, &t), "t1 != ((void *)0)");
    EXPECT_ABORTS(timestamp_compare(&t, nullptr), "t2 != ((void *)0)");
    EXPECT_ABORTS(timestamp_is_null(nullptr), text);
    EXPECT_ABORTS(timestamp_increment(nullptr, 1), text);
    EXPECT_ABORTS(binary_serializer_write_timestamp(nullptr, to.get()), "timestamp != ((void *)0)");
    EXPECT_ABORTS(binary_serializer_write_timestamp(&t, nullptr), "writer != ((void *)0)");
    EXPECT_ABORTS(binary_serializer_read_timestamp(nullptr, from.get()),
                  "timestamp != ((void *)0)");
    EXPECT_ABORTS(binary_serializer_read_timestamp(&t, nullptr), "reader != ((void *)0)");
}
