/**
 * @file
 * @brief The registry of sensors: one canonical sensor per name in the process.
 *
 * A name enters the registry with the first reference to it and leaves it with the last. Most
 * callers use sensor_create() and sensor_destroy() instead of these functions.
 *
 * Names live in 32 buckets, in more of them where there are many names. The bucket is chosen by a
 * hash that differs from process to process, so that no file can bring names that all meet in one.
 * It is not the hash code of a sensor, which is the plain sum of the bytes of its name: names that
 * are anagrams of each other share that code, but they are different sensors.
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
