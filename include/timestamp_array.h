/**
 * @file
 * @brief Arrays of timestamps: the labels of the rows of telemetry.
 *
 * Copies of an array share one list, which is released with the last of them. The library never
 * changes a list that may be shared; who changes one through timestamp_array_get_timestamps()
 * changes it for all.
 *
 * A null array pointer aborts with "array != ((void *)0)", or s1 and s2 where there are two, and an
 * array that is not live with "array->version == ((char) 1)"; this is not repeated below.
 */
#ifndef VESK_TIMESTAMP_ARRAY_H
#define VESK_TIMESTAMP_ARRAY_H

#include <stdint.h>

#include "reader.h"
#include "timestamp.h"
#include "vesk_api.h"
#include "writer.h"

#ifdef __cplusplus
extern "C" {
#endif

/** An array of timestamps. A null array, for a reader to fill, has no list. */
typedef struct timestamp_array {
    char version;           /**< 1 while live */
    uint32_t ntimestamps;   /**< number of entries */
    int *ref_count;         /**< arrays that share the list; null in a null array */
    timestamp **timestamps; /**< the shared list, which owns its entries; null in a null array */
} timestamp_array;

/**
 * Makes an array of @p ntimestamps timestamps and takes over the list, which comes from malloc(),
 * and its entries.
 *
 * Aborts with "ntimestamps > 0" or "timestamps != ((void *)0)".
 *
 * @return 0, or QE_ERROR_NO_MEMORY (-22) without memory: @p array is then a null array and the list
 * still the caller's.
 */
VESK_API int timestamp_array_init(timestamp_array *array, timestamp **timestamps,
                                  uint32_t ntimestamps);

/**
 * @return a new array, see timestamp_array_init(); null with QE_ERROR_NO_MEMORY (-22), and the list
 * still the caller's.
 */
VESK_API timestamp_array *timestamp_array_create(timestamp **timestamps, uint32_t ntimestamps);

/**
 * Makes an array of @p ntimestamps null pointers, for the caller to fill before it is used.
 *
 * Aborts with "ntimestamps > 0".
 *
 * @return 0, or QE_ERROR_NO_MEMORY (-22) without memory: @p array is then a null array.
 */
VESK_API int timestamp_array_init_empty(timestamp_array *array, uint32_t ntimestamps);

/** @return a new array, see timestamp_array_init_empty(); null with QE_ERROR_NO_MEMORY (-22)
 * without memory. */
VESK_API timestamp_array *timestamp_array_create_empty(uint32_t ntimestamps);

/**
 * Makes an array of @p ntimestamps timestamps, one second apart, that begins with @p start.
 *
 * Aborts with "ntimestamps > 0" or "start != ((void *)0)", and with "t->version == ((char) 1)" when
 * @p start is not live.
 *
 * @return 0, or QE_ERROR_NO_MEMORY (-22) without memory: there is then nothing to destruct.
 */
VESK_API int timestamp_array_init_dummy(timestamp_array *array, const timestamp *start,
                                        uint32_t ntimestamps);

/** @return a new array, see timestamp_array_init_dummy(); null with QE_ERROR_NO_MEMORY (-22)
 * without memory. */
VESK_API timestamp_array *timestamp_array_create_dummy(const timestamp *start,
                                                       uint32_t ntimestamps);

/** Makes a null array: no entries, no list. @return 0. */
VESK_API int timestamp_array_init_null(timestamp_array *array);

/** @return a new null array; null with QE_ERROR_NO_MEMORY (-22) without memory. */
VESK_API timestamp_array *timestamp_array_create_null(void);

/**
 * Makes another array that shares the list. The copy of a null array is a null array.
 *
 * Aborts with "*array->ref_count > 0" on a list that was released.
 *
 * @return the copy; null with QE_ERROR_NO_MEMORY (-22) without memory.
 */
VESK_API timestamp_array *timestamp_array_copy(const timestamp_array *array);

/**
 * Compares two arrays entry by entry. Arrays that share a list are equal, a null array is equal to
 * null arrays only.
 *
 * Aborts with "s1->timestamps[i] != ((void *)0)", or the same of s2, on an entry that is not
 * filled; with "s1->ntimestamps == s2->ntimestamps" or "s1->ref_count == s2->ref_count" on arrays
 * that share a list but disagree about it.
 *
 * @return 1 or 0.
 */
VESK_API int timestamp_array_is_equal(const timestamp_array *s1, const timestamp_array *s2);

/** @return the list itself, which stays the array's; null for a null array. */
VESK_API timestamp **timestamp_array_get_timestamps(const timestamp_array *array);

/** @return the number of entries. */
VESK_API uint32_t timestamp_array_get_size(const timestamp_array *array);

/** Ends the life of @p array; the last one that shares the list frees it and its entries. */
VESK_API void timestamp_array_destruct(timestamp_array *array);

/** Destructs and frees `*array` and sets it to null. Aborts with "*array != ((void *)0)", too. */
VESK_API void timestamp_array_destroy(timestamp_array **array);

/**
 * Writes the stored form, 5 + 9 n bytes: version 1, n (4), n timestamps.
 *
 * Aborts with "array->timestamps != ((void *)0)", "array->ntimestamps > 0" or
 * "array->timestamps[i] != ((void *)0)" on an array that is not filled, and with
 * "writer != ((void *)0)".
 *
 * @return the bytes written; QE_ERROR_LIMIT (-49), before anything is written, for more than
 * ::VESK_MAX_COUNT entries; or the first negative result of @p writer or of a timestamp, see
 * binary_serializer_write_timestamp().
 */
VESK_API int binary_serializer_write_timestamp_array(const timestamp_array *array, writer *writer);

/**
 * Reads the stored form into @p array, which must be a null array. After a failure it still is.
 *
 * Aborts with "reader != ((void *)0)".
 *
 * @return the bytes read; 0 at the end of the data; QE_ERROR_BAD_VERSION (-12) for an unknown
 * version; QE_ERROR_TRUNCATED (-48) when the data end inside the form; QE_ERROR_LIMIT (-49) for a
 * count that is 0 or above ::VESK_MAX_COUNT; QE_ERROR_NO_MEMORY (-22) without memory; or the
 * failure of a timestamp, see binary_serializer_read_timestamp().
 */
VESK_API int binary_serializer_read_timestamp_array(timestamp_array *array, reader *reader);

#ifdef __cplusplus
}
#endif

#endif
