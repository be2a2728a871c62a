// What the registry of sensors needs of a sensor, and the other way round; not exported.
#ifndef VESK_MODEL_SENSOR_INTERNAL_HPP
#define VESK_MODEL_SENSOR_INTERNAL_HPP

#include <vesk/sensor.h>

// A new canonical sensor that refers to `name`, which stays the registry's; null and -22 without
// memory.
sensor *_sensor_create(char *name, uint32_t hash);

// Zeroes and frees a canonical sensor.
void _sensor_destroy_canonical(sensor *sensor);

// Adds a reference to the canonical sensor that `sensor` stands for.
void _sensors_increment_ref_count(const sensor *sensor);

#endif
