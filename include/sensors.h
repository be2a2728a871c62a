/**
 * @file
 * @brief The registry of sensors: one canonical sensor per name in the process.
 *
 * A name enters the registry with the first reference to it and leaves it with the last. Most
 * callers use sensor_create() and sensor_destroy() instead of these functions.
 *
 * Names live in 32 buckets, chosen by the low 5 bits of the plain sum of their bytes. Names that
 * are anagrams of each other therefore share a hash code and a bucket, but they are different
 * sensors.
 */
#ifndef VESK_SENSORS_H
#define VESK_SENSORS_H

#include "sensor.h"
#include "vesk_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Finds or interns a name and adds a reference to it.
 *
 * Aborts with "name != ((void *)0)".
 *
 * @return the canonical sensor, which belongs to the registry; null with QE_ERROR_NO_MEMORY (-22)
 * without memory.
 */
VESK_API sensor *sensors_get_sensor(const char *name);

/**
 * Takes a reference from the canonical sensor that @p sensor stands for, and removes the name with
 * the last one.
 *
 * Aborts with "sensor != ((void *)0)"; with "sensor->version == ((char) 1)" on a sensor that is not
 * live; with "sensor->canonical != ((void *)0)" on a null sensor; with
 * "_sensors.buckets != ((void *)0)" or "node != ((void *)0)" when the registry does not know it.
 */
VESK_API void sensors_destroy_sensor(sensor *sensor);

#ifdef __cplusplus
}
#endif

#endif
