/**
 * @file
 * @brief Sensors: named channels of telemetry.
 *
 * Names are interned: for every name in use the process holds one canonical sensor, in a registry
 * that counts the references to it (see sensors.h). Two sensors are equal when they stand for the
 * same canonical one, so comparing them never looks at names.
 *
 * sensor_create() hands out the canonical sensor itself. sensor_init() makes a handle on it in
 * storage of the caller. Each of them is one reference, to be given back with sensor_destroy() or
 * sensor_destruct().
 *
 * A null pointer aborts with the name of the argument, as in "s != ((void *)0)", and a sensor that
 * is not live with its version, as in "s->version == ((char) 1)"; this is not repeated below.
 */
#ifndef VESK_SENSOR_H
#define VESK_SENSOR_H

#include <stdint.h>

#include "reader.h"
#include "vesk_api.h"
#include "writer.h"

#ifdef __cplusplus
extern "C" {
#endif

/** A canonical sensor, a handle on one, or a null sensor that stands for none. */
typedef struct sensor {
    char version;             /**< 1 while live */
    char *name;               /**< name of a canonical sensor, the registry's own; else null */
    uint32_t hash_code;       /**< sum of the bytes of the name of a canonical sensor; else 0 */
    struct sensor *canonical; /**< the sensor of the registry, itself for a canonical one; null in a
                                   null sensor */
} sensor;

/** @return the canonical sensor of that name, with one more reference; null with
 * QE_ERROR_NO_MEMORY (-22) without memory. */
VESK_API sensor *sensor_create(const char *name);

/**
 * Makes @p s a handle on the canonical sensor of that name.
 *
 * @return 0, or QE_ERROR_NO_MEMORY (-22) without memory: @p s is then a null sensor.
 */
VESK_API int sensor_init(sensor *s, const char *name);

/** Makes @p s a null sensor. @return 0. */
VESK_API int sensor_init_null(sensor *s);

/** @return a new null sensor; null with QE_ERROR_NO_MEMORY (-22) without memory. */
VESK_API sensor *sensor_create_null(void);

/**
 * Makes the canonical sensors of @p nsensors names.
 *
 * Aborts with "nsensors > 0", and with "name != ((void *)0)" on a null among the names.
 *
 * @return a list from malloc() of sensors of the caller's, as sensor_array_init() takes it over;
 * null with QE_ERROR_NO_MEMORY (-22) without memory.
 */
VESK_API sensor **sensor_create_array(const char *const *names, uint32_t nsensors);

/**
 * Gives back the reference of @p sensor. A handle and a null sensor stay with the caller as
 * storage, a canonical sensor must not be used again.
 *
 * Aborts with "sensor->hash_code == 0" or "sensor->name == ((void *)0)" on a handle that has a name
 * of its own, and with "_sensors.buckets != ((void *)0)" or "node != ((void *)0)" on a sensor that
 * the registry does not know.
 */
VESK_API void sensor_destruct(sensor *sensor);

/** Gives back the reference of `*sensor`, frees it unless it is canonical, and sets it to null.
 * Aborts as sensor_destruct() does, or with "*sensor != ((void *)0)". */
VESK_API void sensor_destroy(sensor **sensor);

/** @return 1 when both stand for the same name, or both are null sensors; else 0. */
VESK_API int sensor_is_equal(const sensor *s1, const sensor *s2);

/**
 * Copies the name to @p dst as strncpy() does: a name of @p len characters or more is cut off and
 * gets no terminator, the space behind a shorter one is filled with zeros.
 *
 * Aborts with "s->canonical != ((void *)0)" on a null sensor.
 *
 * @return @p dst.
 */
VESK_API char *sensor_get_name(const sensor *s, char *dst, uint32_t len);

/** The same as sensor_get_name(). */
VESK_API char *sensor_to_string(const sensor *s, char *dst, uint32_t len);

/**
 * Adds a reference to the canonical sensor of @p s and makes @p dest, which need not be
 * initialised, a handle on it.
 *
 * Aborts with "s->canonical != ((void *)0)" on a null sensor, and with
 * "_sensors.buckets != ((void *)0)" or "node != ((void *)0)" on one that the registry does not
 * know.
 *
 * @return @p dest, or the canonical sensor when @p dest is null.
 */
VESK_API sensor *sensor_copy(const sensor *s, sensor *dest);

/**
 * Aborts with "s->canonical != ((void *)0)" on a null sensor.
 *
 * @return the sum of the bytes of the name.
 */
VESK_API uint32_t sensor_get_hash_code(const sensor *s);

/**
 * Writes the stored form: version 1 and the name as a string.
 *
 * Aborts with "sensor->canonical != ((void *)0)" on a null sensor.
 *
 * @return the bytes written; QE_ERROR_LIMIT (-49) for a name of more than 10000 bytes, of which the
 * version is then written; or the first negative result of @p writer. An empty name can be written,
 * but not read again.
 */
VESK_API int binary_serializer_write_sensor(const sensor *sensor, writer *writer);

/**
 * Reads the stored form and stores the canonical sensor, as from sensor_create(), in `*sensor`.
 * After a failure `*sensor` is as before.
 *
 * @return the bytes read; 0 at the end of the data; QE_ERROR_BAD_VERSION (-12) for an unknown
 * version; QE_ERROR_NO_MEMORY (-22) without memory; a failure of the name, see
 * binary_serializer_read_string(), which is QE_ERROR_END_OF_RECORDS (-43) when the data end right
 * before it; or a negative result of @p reader.
 */
VESK_API int binary_serializer_read_sensor(sensor **sensor, reader *reader);

#ifdef __cplusplus
}
#endif

#endif
