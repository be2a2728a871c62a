/**
 * @file
 * @brief Arrays of sensors: the labels of the columns of telemetry.
 *
 * Copies of an array share one list, which is released with the last of them.
 *
 * A null array pointer aborts with "array != ((void *)0)", or s1 and s2 where there are two, and an
 * array that is not live with "array->version == ((char) 1)"; this is not repeated below.
 */
#ifndef VESK_SENSOR_ARRAY_H
#define VESK_SENSOR_ARRAY_H

#include <stdint.h>

#include "reader.h"
#include "sensor.h"
#include "vesk_api.h"
#include "writer.h"

#ifdef __cplusplus
extern "C" {
#endif

/** An array of sensors. A null array, for a reader to fill, has no list. */
typedef struct sensor_array {
    char version;      /**< 1 while live */
    uint32_t nsensors; /**< number of entries */
    int *ref_count;    /**< arrays that share the list; null in a null array */
    sensor **sensors;  /**< the shared list, which owns its entries; null in a null array */
} sensor_array;

/**
 * Makes an array of @p nsensors sensors and takes over the list, which comes from malloc(), and the
 * references of its entries.
 *
 * Aborts with "nsensors > 0" or "sensors != ((void *)0)".
 *
 * @return 0, or QE_ERROR_NO_MEMORY (-22) without memory: @p array is then a null array and the list
 * still the caller's.
 */
VESK_API int sensor_array_init(sensor_array *array, sensor **sensors, uint32_t nsensors);

/** @return a new array, see sensor_array_init(); null with QE_ERROR_NO_MEMORY (-22), and the list
 * still the caller's. */
VESK_API sensor_array *sensor_array_create(sensor **sensors, uint32_t nsensors);

/**
 * Makes an array of @p nsensors null pointers, for the caller to fill before it is used.
 *
 * Aborts with "nsensors > 0".
 *
 * @return 0, or QE_ERROR_NO_MEMORY (-22) without memory: @p array is then a null array.
 */
VESK_API int sensor_array_init_empty(sensor_array *array, uint32_t nsensors);

/** @return a new array, see sensor_array_init_empty(); null with QE_ERROR_NO_MEMORY (-22) without
 * memory. */
VESK_API sensor_array *sensor_array_create_empty(uint32_t nsensors);

/**
 * Makes an array of the sensors of @p nsensors names.
 *
 * Aborts with "nsensors > 0", "names != ((void *)0)" or "names[i] != ((void *)0)".
 *
 * @return 0, or QE_ERROR_NO_MEMORY (-22) without memory. Unless the list itself could not be made,
 * the array then holds the sensors that were made and null pointers behind them, and is the
 * caller's to destruct.
 */
VESK_API int sensor_array_init_from_names(sensor_array *array, const char *const *names,
                                          uint32_t nsensors);

/**
 * @return a new array, see sensor_array_init_from_names(); null with QE_ERROR_NO_MEMORY (-22)
 * without memory. Sensors that were made before the failure stay interned for good.
 */
VESK_API sensor_array *sensor_array_create_from_names(const char *const *names, uint32_t nsensors);

/** Makes a null array: no entries, no list. @return 0. */
VESK_API int sensor_array_init_null(sensor_array *array);

/** @return a new null array; null with QE_ERROR_NO_MEMORY (-22) without memory. */
VESK_API sensor_array *sensor_array_create_null(void);

/**
 * Makes another array that shares the list. The copy of a null array is a null array.
 *
 * Aborts with "*array->ref_count > 0" on a list that was released.
 *
 * @return the copy; null with QE_ERROR_NO_MEMORY (-22) without memory.
 */
VESK_API sensor_array *sensor_array_copy(const sensor_array *array);

/** Ends the life of @p array; the last one that shares the list frees it and its entries. */
VESK_API void sensor_array_destruct(sensor_array *array);

/** Destructs and frees `*array` and sets it to null. Aborts with "*array != ((void *)0)", too. */
VESK_API void sensor_array_destroy(sensor_array **array);

/** @return the list itself, which stays the array's; null for a null array. */
VESK_API sensor **sensor_array_get_sensors(const sensor_array *array);

/** @return the number of entries. */
VESK_API uint32_t sensor_array_get_size(const sensor_array *array);

/**
 * Aborts with "i >= 0" or "i < array->nsensors" on an index out of range.
 *
 * @return entry @p i, which stays the array's; null when it is not filled yet.
 */
VESK_API sensor *sensor_array_get(const sensor_array *array, int i);

/**
 * Destroys entry @p i, if it is filled, and stores @p sensor there, whose reference the array takes
 * over. All copies of the array see the change.
 *
 * Aborts with "i >= 0" or "i < array->nsensors" on an index out of range, and with
 * "sensor != ((void *)0)".
 *
 * @return 0.
 */
VESK_API int sensor_array_set(sensor_array *array, int i, sensor *sensor);

/**
 * Compares two arrays entry by entry. Arrays that share a list are equal, a null array is equal to
 * null arrays only.
 *
 * Aborts with "s1->sensors[i] != ((void *)0)", or the same of s2, on an entry that is not filled;
 * with "s1->nsensors == s2->nsensors" or "s1->ref_count == s2->ref_count" on arrays that share a
 * list but disagree about it.
 *
 * @return 1 or 0.
 */
VESK_API int sensor_array_is_equal(const sensor_array *s1, const sensor_array *s2);

/**
 * Writes the stored form: version 1, n (4), n sensors.
 *
 * Aborts with "array->sensors != ((void *)0)", "array->nsensors > 0" or
 * "array->sensors[i] != ((void *)0)" on an array that is not filled, and with
 * "writer != ((void *)0)".
 *
 * @return the bytes written; QE_ERROR_LIMIT (-49), before anything is written, for more than
 * ::VESK_MAX_COUNT entries; or the first negative result of @p writer or of a sensor, see
 * binary_serializer_write_sensor().
 */
VESK_API int binary_serializer_write_sensor_array(const sensor_array *array, writer *writer);

/**
 * Reads the stored form into @p array, which must be a null array. After a failure it still is, and
 * no name stays interned.
 *
 * Aborts with "reader != ((void *)0)".
 *
 * @return the bytes read; 0 at the end of the data; QE_ERROR_BAD_VERSION (-12) for an unknown
 * version; QE_ERROR_TRUNCATED (-48) when the data end inside the form; QE_ERROR_LIMIT (-49) for a
 * count that is 0 or above ::VESK_MAX_COUNT; QE_ERROR_NO_MEMORY (-22) without memory; or the
 * failure of a sensor, see binary_serializer_read_sensor().
 */
VESK_API int binary_serializer_read_sensor_array(sensor_array *array, reader *reader);

#ifdef __cplusplus
}
#endif

#endif
