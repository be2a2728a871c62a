// Stored form of a timestamp, 9 bytes, big-endian:
//
//  offset  size  field
//       0     1  version, 1
//       1     4  seconds since the epoch, signed
//       5     4  microseconds, always 0
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <sys/time.h>

#include <vesk/error.h>
#include <vesk/timestamp.h>

#include "io/fields.hpp"
#include "support/object.hpp"
#include "support/precondition.hpp"

// The text form, "%Y%m%d:%H:%M:%S", without its terminator.
static constexpr uint32_t text_length = 17;

// Stored seconds have 32 bits, so wider times are refused on every machine alike.
static bool _is_storable(int64_t seconds)
{
    return seconds == static_cast<int32_t>(seconds);
}

static int _timestamp_init_from_seconds(timestamp *t, time_t seconds)
{
    if (!_is_storable(seconds)) {
        return QE_ERROR_BAD_TIME;
    }
    t->version = 1;
    t->tv.tv_sec = seconds;
    t->tv.tv_usec = 0;
    return 0;
}

int timestamp_init_current(timestamp *t)
{
    VESK_REQUIRE(t != nullptr, "t != ((void *)0)");
    t->version = 1;
    gettimeofday(&t->tv, nullptr);
    t->tv.tv_usec = 0;
    VESK_REQUIRE(t->tv.tv_sec > 0, "t->tv.tv_sec > 0");
    return _timestamp_init_from_seconds(t, t->tv.tv_sec);
}

timestamp *timestamp_create_current(void)
{
    return create_object<timestamp>(timestamp_init_current);
}

int timestamp_init_null(timestamp *t)
{
    VESK_REQUIRE(t != nullptr, "t != ((void *)0)");
    return _timestamp_init_from_seconds(t, 0);
}

timestamp *timestamp_create_null(void)
{
    return create_object<timestamp>(timestamp_init_null);
}

int timestamp_init_from_timeval(timestamp *t, const struct timeval *tv)
{
    VESK_REQUIRE(t != nullptr, "t != ((void *)0)");
    VESK_REQUIRE(tv != nullptr, "tv != ((void *)0)");
    return _timestamp_init_from_seconds(t, tv->tv_sec);
}

timestamp *timestamp_create_from_timeval(const struct timeval *tv)
{
    VESK_REQUIRE(tv != nullptr, "tv != ((void *)0)");
    return create_object<timestamp>(
        [tv](timestamp *t) { return timestamp_init_from_timeval(t, tv); });
}

// The value of `n` characters that should be digits; others count by their distance from '0'.
static int _decimal(const char *text, int n)
{
    int value = 0;
    for (int i = 0; i < n; ++i) {
        value = value * 10 + (static_cast<signed char>(text[i]) - '0');
    }
    return value;
}

static int _parse_fields(const char *str, struct tm *fields)
{
    if (strlen(str) != text_length || str[8] != ':' || str[11] != ':' || str[14] != ':') {
        return QE_ERROR_BAD_TIME;
    }
    *fields = {};
    fields->tm_year = _decimal(str, 4) - 1900;
    fields->tm_mon = _decimal(str + 4, 2) - 1;
    fields->tm_mday = _decimal(str + 6, 2);
    fields->tm_hour = _decimal(str + 9, 2);
    fields->tm_min = _decimal(str + 12, 2);
    fields->tm_sec = _decimal(str + 15, 2);
    fields->tm_isdst = -1;
    // The month has no lower bound: mktime() makes December of the year before out of month 00.
    const bool in_range = fields->tm_year >= 0 && fields->tm_mon <= 11 && fields->tm_mday >= 1 &&
                          fields->tm_mday <= 31 && fields->tm_hour <= 23 && fields->tm_min <= 59 &&
                          fields->tm_sec <= 60;
    return in_range ? 0 : QE_ERROR_BAD_TIME;
}

int timestamp_init_from_string(timestamp *t, const char *str)
{
    VESK_REQUIRE(t != nullptr, "t != ((void *)0)");
    VESK_REQUIRE(str != nullptr, "str != ((void *)0)");
    struct tm fields;
    const int result = _parse_fields(str, &fields);
    if (result < 0) {
        return result;
    }
    // mktime() fills in the day of the week of every time that it can give. Its result does not
    // tell, because -1 is a time, too, nor does errno, which a zone without a file sets as well.
    fields.tm_wday = -1;
    const time_t seconds = mktime(&fields);
    if (fields.tm_wday < 0) {
        return QE_ERROR_BAD_TIME;
    }
    return _timestamp_init_from_seconds(t, seconds);
}

timestamp *timestamp_create_from_string(const char *str)
{
    VESK_REQUIRE(str != nullptr, "str != ((void *)0)");
    timestamp *t = allocate<timestamp>();
    if (t != nullptr && timestamp_init_from_string(t, str) < 0) {
        free(t);
        return nullptr;
    }
    return t;
}

void timestamp_destruct(timestamp *t)
{
    VESK_REQUIRE(t != nullptr, "t != ((void *)0)");
    VESK_REQUIRE(t->version == 1, "t->version == ((char) 1)");
    *t = {};
}

void timestamp_destroy(timestamp **t)
{
    VESK_REQUIRE(t != nullptr, "t != ((void *)0)");
    VESK_REQUIRE(*t != nullptr, "*t != ((void *)0)");
    destroy_object(t, timestamp_destruct);
}

char *timestamp_to_string(const timestamp *t, char *buffer, uint32_t bufsize)
{
    VESK_REQUIRE(t != nullptr, "t != ((void *)0)");
    VESK_REQUIRE(t->version == 1, "t->version == ((char) 1)");
    VESK_REQUIRE(buffer != nullptr, "buffer != ((void *)0)");
    VESK_REQUIRE(bufsize > text_length, "bufsize > 17");
    const time_t seconds = t->tv.tv_sec;
    const struct tm *time_struct = localtime(&seconds);
    VESK_REQUIRE(time_struct != nullptr, "time_struct != ((void *)0)");
    const size_t rc = strftime(buffer, bufsize, "%Y%m%d:%H:%M:%S", time_struct);
    VESK_REQUIRE(rc > 0, "rc > 0");
    buffer[text_length] = '\0';
    return buffer;
}

void timestamp_to_timeval(const timestamp *t, struct timeval *tv)
{
    VESK_REQUIRE(t != nullptr, "t != ((void *)0)");
    VESK_REQUIRE(t->version == 1, "t->version == ((char) 1)");
    VESK_REQUIRE(tv != nullptr, "tv != ((void *)0)");
    *tv = t->tv;
}

timestamp *timestamp_copy(const timestamp *t, timestamp *dest)
{
    VESK_REQUIRE(t != nullptr, "t != ((void *)0)");
    VESK_REQUIRE(t->version == 1, "t->version == ((char) 1)");
    timestamp *copy = dest != nullptr ? dest : allocate<timestamp>();
    if (copy != nullptr) {
        copy->version = 1;
        copy->tv = t->tv;
    }
    return copy;
}

int timestamp_compare(const timestamp *t1, const timestamp *t2)
{
    VESK_REQUIRE(t1 != nullptr, "t1 != ((void *)0)");
    VESK_REQUIRE(t2 != nullptr, "t2 != ((void *)0)");
    VESK_REQUIRE(t1->version == 1, "t1->version == ((char) 1)");
    VESK_REQUIRE(t2->version == 1, "t2->version == ((char) 1)");
    VESK_REQUIRE(t1->tv.tv_usec == 0, "t1->tv.tv_usec == 0");
    VESK_REQUIRE(t2->tv.tv_usec == 0, "t2->tv.tv_usec == 0");
    if (t1->tv.tv_sec < t2->tv.tv_sec) {
        return -1;
    }
    return t1->tv.tv_sec > t2->tv.tv_sec ? 1 : 0;
}

int timestamp_is_equal(const timestamp *t1, const timestamp *t2)
{
    return timestamp_compare(t1, t2) == 0 ? 1 : 0;
}

int timestamp_is_null(const timestamp *t)
{
    VESK_REQUIRE(t != nullptr, "t != ((void *)0)");
    VESK_REQUIRE(t->version == 1, "t->version == ((char) 1)");
    return t->tv.tv_sec == 0 && t->tv.tv_usec == 0 ? 1 : 0;
}

void timestamp_increment(timestamp *t, uint32_t seconds)
{
    VESK_REQUIRE(t != nullptr, "t != ((void *)0)");
    VESK_REQUIRE(t->version == 1, "t->version == ((char) 1)");
    // 32-bit times wrap.
    t->tv.tv_sec = static_cast<time_t>(static_cast<uint64_t>(t->tv.tv_sec) + seconds);
}

int binary_serializer_write_timestamp(const timestamp *t, writer *w)
{
    VESK_REQUIRE(t != nullptr, "timestamp != ((void *)0)");
    VESK_REQUIRE(t->version == 1, "timestamp->version == ((char) 1)");
    VESK_REQUIRE(w != nullptr, "writer != ((void *)0)");
    if (!_is_storable(t->tv.tv_sec)) {
        return QE_ERROR_MALFORMED;
    }
    return field_writer(w)
        .byte(static_cast<uint8_t>(t->version))
        .u32(static_cast<uint32_t>(t->tv.tv_sec))
        .u32(static_cast<uint32_t>(t->tv.tv_usec))
        .result();
}

int binary_serializer_read_timestamp(timestamp *t, reader *r)
{
    VESK_REQUIRE(t != nullptr, "timestamp != ((void *)0)");
    VESK_REQUIRE(t->version == 1, "timestamp->version == ((char) 1)");
    VESK_REQUIRE(r != nullptr, "reader != ((void *)0)");
    field_reader fields(r);
    uint32_t seconds = 0;
    uint32_t microseconds = 0;
    if (fields.version(1).u32(&seconds).ok()) {
        t->tv.tv_sec = static_cast<int32_t>(seconds);
    }
    if (fields.u32(&microseconds).ok()) {
        t->tv.tv_usec = static_cast<int32_t>(microseconds);
    }
    return microseconds == 0 ? fields.result() : QE_ERROR_MALFORMED;
}
