// Stored form of a sensor, big-endian:
//
//  offset  size  field
//       0     1  version, 1
//       1     4  length of the name, 1..10000
//       5        the name, without terminator
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include <vesk/error.h>
#include <vesk/sensor.h>
#include <vesk/sensors.h>

#include "io/fields.hpp"
#include "model/sensor_internal.hpp"
#include "support/object.hpp"
#include "support/owner.hpp"
#include "support/precondition.hpp"

static bool _sensor_is_canonical(const sensor *s)
{
    return s->canonical == s;
}

sensor *_sensor_create(char *name, uint32_t hash)
{
    sensor *s = allocate<sensor>();
    if (s != nullptr) {
        *s = {1, name, hash, s};
    }
    return s;
}

void _sensor_destroy_canonical(sensor *s)
{
    *s = {};
    free(s);
}

sensor *sensor_create(const char *name)
{
    return sensors_get_sensor(name);
}

int sensor_init(sensor *s, const char *name)
{
    VESK_REQUIRE(s != nullptr, "s != ((void *)0)");
    sensor *canonical = sensors_get_sensor(name);
    *s = {1, nullptr, 0, canonical};
    return canonical != nullptr ? 0 : QE_ERROR_NO_MEMORY;
}

int sensor_init_null(sensor *s)
{
    VESK_REQUIRE(s != nullptr, "s != ((void *)0)");
    *s = {1, nullptr, 0, nullptr};
    return 0;
}

sensor *sensor_create_null(void)
{
    return create_object<sensor>(sensor_init_null);
}

sensor **sensor_create_array(const char *const *names, uint32_t nsensors)
{
    VESK_REQUIRE(nsensors > 0, "nsensors > 0");
    VESK_REQUIRE(names != nullptr, "names != ((void *)0)");
    owned_memory<sensor *> sensors(allocate<sensor *>(nsensors));
    if (!sensors) {
        return nullptr;
    }
    for (uint32_t i = 0; i < nsensors; ++i) {
        sensors.get()[i] = sensor_create(names[i]);
        if (sensors.get()[i] == nullptr) {
            while (i-- > 0) {
                sensor_destroy(&sensors.get()[i]);
            }
            return nullptr;
        }
    }
    return sensors.release();
}

void sensor_destruct(sensor *s)
{
    VESK_REQUIRE(s != nullptr, "sensor != ((void *)0)");
    VESK_REQUIRE(s->version == 1, "sensor->version == ((char) 1)");
    const bool is_canonical = _sensor_is_canonical(s);
    if (s->canonical != nullptr) {
        sensors_destroy_sensor(s->canonical);
    }
    if (is_canonical) {
        // The registry owns it and may have freed it.
        return;
    }
    VESK_REQUIRE(s->hash_code == 0, "sensor->hash_code == 0");
    VESK_REQUIRE(s->name == nullptr, "sensor->name == ((void *)0)");
    *s = {};
}

void sensor_destroy(sensor **s)
{
    VESK_REQUIRE(s != nullptr, "sensor != ((void *)0)");
    VESK_REQUIRE(*s != nullptr, "*sensor != ((void *)0)");
    const bool is_canonical = _sensor_is_canonical(*s);
    sensor_destruct(*s);
    if (!is_canonical) {
        free(*s);
    }
    *s = nullptr;
}

int sensor_is_equal(const sensor *s1, const sensor *s2)
{
    VESK_REQUIRE(s1 != nullptr, "s1 != ((void *)0)");
    VESK_REQUIRE(s2 != nullptr, "s2 != ((void *)0)");
    VESK_REQUIRE(s1->version == 1, "s1->version == ((char) 1)");
    VESK_REQUIRE(s2->version == 1, "s2->version == ((char) 1)");
    return s1->canonical == s2->canonical ? 1 : 0;
}

char *sensor_get_name(const sensor *s, char *dst, uint32_t len)
{
    VESK_REQUIRE(s != nullptr, "s != ((void *)0)");
    VESK_REQUIRE(s->version == 1, "s->version == ((char) 1)");
    VESK_REQUIRE(s->canonical != nullptr, "s->canonical != ((void *)0)");
    VESK_REQUIRE(dst != nullptr, "dst != ((void *)0)");
    return strncpy(dst, s->canonical->name, len);
}

char *sensor_to_string(const sensor *s, char *dst, uint32_t len)
{
    return sensor_get_name(s, dst, len);
}

sensor *sensor_copy(const sensor *s, sensor *dest)
{
    VESK_REQUIRE(s != nullptr, "s != ((void *)0)");
    VESK_REQUIRE(s->version == 1, "s->version == ((char) 1)");
    VESK_REQUIRE(s->canonical != nullptr, "s->canonical != ((void *)0)");
    sensor *canonical = s->canonical;
    _sensors_increment_ref_count(canonical);
    if (dest == nullptr) {
        return canonical;
    }
    *dest = {1, nullptr, 0, canonical};
    return dest;
}

uint32_t sensor_get_hash_code(const sensor *s)
{
    return _sensor_get_hash_code(s);
}

int binary_serializer_write_sensor(const sensor *s, writer *w)
{
    VESK_REQUIRE(s != nullptr, "sensor != ((void *)0)");
    VESK_REQUIRE(s->version == 1, "sensor->version == ((char) 1)");
    VESK_REQUIRE(s->canonical != nullptr, "sensor->canonical != ((void *)0)");
    VESK_REQUIRE(w != nullptr, "writer != ((void *)0)");
    return field_writer(w)
        .byte(static_cast<uint8_t>(s->canonical->version))
        .string(s->canonical->name)
        .result();
}

int binary_serializer_read_sensor(sensor **s, reader *r)
{
    VESK_REQUIRE(s != nullptr, "sensor != ((void *)0)");
    VESK_REQUIRE(r != nullptr, "reader != ((void *)0)");
    field_reader fields(r);
    char *text = nullptr;
    if (!fields.version(1).string(&text).ok()) {
        return fields.result();
    }
    const owned_memory<char> name(text);
    sensor *interned = sensor_create(name.get());
    if (interned == nullptr) {
        return qe_get_last_error();
    }
    *s = interned;
    return fields.result();
}
