// Making names: for sensors without one, for sensors whose name another one has, and for sensors
// of which nothing is known.
#include "recovery/mended_names.hpp"

#include <stdio.h>
#include <string.h>

#include "io/fields.hpp"
#include "support/object.hpp"

static constexpr char nameless[] = "unknown";

uint32_t _vesk_count_names(const vesk_cb_record_sensor_names *names)
{
    return names == nullptr ? 0 : sensor_array_get_size(names->sensors);
}

const char *_vesk_name_at(const sensor_array *sensors, uint32_t i)
{
    return sensor_array_get_sensors(sensors)[i]->canonical->name;
}

// A record for `n` sensors that are put in later. Null without memory.
static owned_names _create_empty(uint32_t n)
{
    owned_names names(vesk_cb_record_sensor_names_create_null());
    if (names) {
        names->sensors = sensor_array_create_empty(n);
    }
    return names && names->sensors != nullptr ? static_cast<owned_names &&>(names) : owned_names();
}

owned_names _vesk_create_unknown_names(uint32_t n)
{
    owned_names names = _create_empty(n);
    for (uint32_t i = 0; names && i < n; ++i) {
        char name[32];
        snprintf(name, sizeof name, "%s.%u", nameless, i + 1);
        sensor *made = sensor_create(name);
        if (made == nullptr) {
            return owned_names();
        }
        sensor_array_set(names->sensors, static_cast<int>(i), made);
    }
    return names;
}

static bool _is_taken(const sensor_array *sensors, uint32_t n, const char *name)
{
    for (uint32_t i = 0; i < n; ++i) {
        if (strcmp(_vesk_name_at(sensors, i), name) == 0) {
            return true;
        }
    }
    return false;
}

// A name that none of the sensors has, and none of those that take the place of the first `made`
// ones: `stem` with the first number from `made` + 1 on that makes one.
static sensor *_create_fresh_sensor(const sensor_array *sensors, const sensor_array *replacements,
                                    uint32_t made, const char *stem)
{
    // The number must not make the name too long to be stored.
    constexpr int longest_stem = max_stored_count - 16;
    const std::size_t size = strlen(stem) + 16;
    const owned_memory<char> name(allocate<char>(size));
    if (!name) {
        return nullptr;
    }
    const uint32_t n = sensor_array_get_size(sensors);
    uint32_t number = made;
    do {
        snprintf(name.get(), size, "%.*s.%u", longest_stem, stem, ++number);
    } while (_is_taken(sensors, n, name.get()) || _is_taken(replacements, made, name.get()));
    return sensor_create(name.get());
}

owned_names _vesk_create_mended_names(const vesk_cb_record_sensor_names *names, bool unique)
{
    const uint32_t n = _vesk_count_names(names);
    owned_names mended = _create_empty(n);
    if (!mended) {
        return mended;
    }
    timestamp_copy(&names->timestamp, &mended->timestamp);
    for (uint32_t i = 0; i < n; ++i) {
        const char *name = _vesk_name_at(names->sensors, i);
        const bool stays = name[0] != 0 && !(unique && _is_taken(names->sensors, i, name));
        sensor *made = stays ? sensor_create(name)
                             : _create_fresh_sensor(names->sensors, mended->sensors, i,
                                                    name[0] == 0 ? nameless : name);
        if (made == nullptr) {
            return owned_names();
        }
        sensor_array_set(mended->sensors, static_cast<int>(i), made);
    }
    return mended;
}
