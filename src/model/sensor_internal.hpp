// What sensors, their registry and the tables over them need of each other: making and freeing
// canonical sensors, counting references, and the hash code. Not exported.
#ifndef VESK_MODEL_SENSOR_INTERNAL_HPP
#define VESK_MODEL_SENSOR_INTERNAL_HPP

#include <vesk/sensor.h>

#include "support/precondition.hpp"

// A new canonical sensor that refers to `name`, which stays the registry's; null and
// QE_ERROR_NO_MEMORY (-22) in the cell without memory.
sensor *_sensor_create(char *name, uint32_t hash);

// Zeroes and frees a canonical sensor.
void _sensor_destroy_canonical(sensor *sensor);

// What sensor_get_hash_code() does, without a call: it is asked for at every sample of every
// sensor.
inline uint32_t _sensor_get_hash_code(const sensor *s)
{
    VESK_REQUIRE(s != nullptr, "s != ((void *)0)");
    VESK_REQUIRE(s->version == 1, "s->version == ((char) 1)");
    VESK_REQUIRE(s->canonical != nullptr, "s->canonical != ((void *)0)");
    return s->canonical->hash_code;
}

// Adds a reference to the canonical sensor that `sensor` stands for.
void _sensors_increment_ref_count(const sensor *sensor);

#endif
