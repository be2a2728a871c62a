/**
 * @file
 * @brief Timestamps: the second at which something was measured.
 *
 * A timestamp counts whole seconds since the epoch. The microseconds of its `timeval` are 0 in
 * every timestamp that was made from the clock, a `timeval` or a text. Seconds are stored in 32
 * bits, so that on every machine such a timestamp lies between 1901-12-13 20:45:52 and 2038-01-19
 * 03:14:07 UTC; only timestamp_increment(), which does not check, can lead beyond, to a time that
 * cannot be stored.
 *
 * The text form is 17 characters of local time, "%Y%m%d:%H:%M:%S" in the notation of strftime(),
 * such as 20240229:23:59:59. It depends on the time zone of the process.
 *
 * A null pointer aborts with the name of the argument, as in "t != ((void *)0)", and a timestamp
 * that is not live with its version, as in "t->version == ((char) 1)"; this is not repeated below.
 */
#ifndef VESK_TIMESTAMP_H
#define VESK_TIMESTAMP_H

#include <stdint.h>
#include <sys/time.h>

#include "reader.h"
#include "vesk_api.h"
#include "writer.h"

#ifdef __cplusplus
extern "C" {
#endif

/** A point in time, in whole seconds. It owns nothing, so it may live on the stack. */
typedef struct timestamp {
    char version;      /**< 1 while live */
    struct timeval tv; /**< seconds since the epoch; `tv_usec` is to be 0 */
} timestamp;

/**
 * Sets @p t to the current time.
 *
 * Aborts with "t->tv.tv_sec > 0" when the clock stands at or before the epoch.
 *
 * @return 0, or QE_ERROR_BAD_TIME (-11) when the clock is past 2038-01-19; @p t is then not to be
 * used.
 */
VESK_API int timestamp_init_current(timestamp *t);

/** @return a new timestamp of the current time; null with QE_ERROR_NO_MEMORY (-22) or as
 * timestamp_init_current(). */
VESK_API timestamp *timestamp_create_current(void);

/** Sets @p t to the null timestamp, the epoch itself. @return 0. */
VESK_API int timestamp_init_null(timestamp *t);

/** @return a new null timestamp; null with QE_ERROR_NO_MEMORY (-22) without memory. */
VESK_API timestamp *timestamp_create_null(void);

/**
 * Sets @p t to the seconds of @p tv and drops its microseconds.
 *
 * @return 0, or QE_ERROR_BAD_TIME (-11) when the seconds do not fit into 32 bits; @p t is then not
 * initialised.
 */
VESK_API int timestamp_init_from_timeval(timestamp *t, const struct timeval *tv);

/** @return a new timestamp; null with QE_ERROR_NO_MEMORY (-22) or as timestamp_init_from_timeval().
 */
VESK_API timestamp *timestamp_create_from_timeval(const struct timeval *tv);

/**
 * Sets @p t from its text form.
 *
 * Only these things are checked: that there are 17 characters with a ':' at 8, 11 and 14; year 1900
 * or later; month at most 12; day 1 to 31; hour at most 23; minute at most 59; second at most 60.
 * What passes but does not exist is moved on by mktime(): month 00 is December of the year before,
 * second 60 the first of the next minute, 31 June is 1 July. A character that is no digit counts by
 * its distance from '0'.
 *
 * @return 0, or QE_ERROR_BAD_TIME (-11) for a text that fails a check or whose time is out of
 * range; @p t is then not initialised.
 */
VESK_API int timestamp_init_from_string(timestamp *t, const char *str);

/**
 * @return a new timestamp, or null. The last-error cell holds QE_ERROR_NO_MEMORY (-22) when there
 * was no memory, and is left alone when the text cannot be parsed.
 */
VESK_API timestamp *timestamp_create_from_string(const char *str);

/** Ends the life of @p t, which stays with the caller as storage. */
VESK_API void timestamp_destruct(timestamp *t);

/** Destructs and frees `*t` and sets it to null. Aborts with "*t != ((void *)0)", too. */
VESK_API void timestamp_destroy(timestamp **t);

/**
 * Formats @p t as 17 characters and a terminator.
 *
 * Aborts with "bufsize > 17" for a buffer that is too small, with "time_struct != ((void *)0)" or
 * "rc > 0" when the C library cannot convert or format the time.
 *
 * @return @p buffer.
 */
VESK_API char *timestamp_to_string(const timestamp *t, char *buffer, uint32_t bufsize);

/** Stores the time of @p t in @p tv. */
VESK_API void timestamp_to_timeval(const timestamp *t, struct timeval *tv);

/**
 * Copies @p t to @p dest, which need not be initialised, or to a new timestamp when @p dest is
 * null.
 *
 * @return the copy; null with QE_ERROR_NO_MEMORY (-22) when there is no memory for a new one.
 */
VESK_API timestamp *timestamp_copy(const timestamp *t, timestamp *dest);

/**
 * Compares two times.
 *
 * Aborts with "t1->tv.tv_usec == 0" or "t2->tv.tv_usec == 0" on a timestamp with microseconds.
 *
 * @return -1 when @p t1 is earlier, 1 when it is later, 0 when they are the same.
 */
VESK_API int timestamp_compare(const timestamp *t1, const timestamp *t2);

/** @return 1 when timestamp_compare() is 0, else 0. */
VESK_API int timestamp_is_equal(const timestamp *t1, const timestamp *t2);

/** @return 1 for the null timestamp, else 0. */
VESK_API int timestamp_is_null(const timestamp *t);

/** Moves @p t on by @p seconds, without a check of the range. */
VESK_API void timestamp_increment(timestamp *t, uint32_t seconds);

/**
 * Writes the stored form, 9 bytes: version 1, seconds (4, signed), microseconds (4).
 *
 * @return the bytes written, the first negative result of @p writer, or QE_ERROR_MALFORMED (-6),
 * before anything is written, for a time that does not fit into 32 bits.
 */
VESK_API int binary_serializer_write_timestamp(const timestamp *timestamp, writer *writer);

/**
 * Reads the stored form into @p timestamp, which must be live; a null timestamp will do.
 *
 * @return 9; 0 at the end of the data; QE_ERROR_BAD_VERSION (-12) for an unknown version;
 * QE_ERROR_TRUNCATED (-48) when the data end inside the form; QE_ERROR_MALFORMED (-6) for a time
 * with microseconds, which @p timestamp then holds nevertheless; or a negative result of @p reader.
 */
VESK_API int binary_serializer_read_timestamp(timestamp *timestamp, reader *reader);

#ifdef __cplusplus
}
#endif

#endif
