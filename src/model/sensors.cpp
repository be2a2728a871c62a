// The registry of sensors: one canonical sensor for each name that somebody holds, with a count of
// references. The process has one registry, which takes no memory while it is empty.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include <vesk/sensors.h>

#include "model/sensor_internal.hpp"
#include "support/object.hpp"
#include "support/owner.hpp"
#include "support/precondition.hpp"

namespace
{
struct registry_node {
    char *name; // the registry's own copy, which the canonical sensor refers to
    struct sensor *sensor;
    int nrefs; // at least 1 while the node exists
    registry_node *next;
};

struct registry {
    registry_node **buckets; // exists only while at least one name is interned
    uint32_t nsensors;
};
} // namespace

// The table never grows; names are few beside the values that are recorded for them.
static constexpr uint32_t nbuckets = 32;

static registry _sensors = {nullptr, 0};

// A plain sum of bytes, so anagrams share a bucket. The order of stored history depends on it.
static uint32_t _hash(const char *name)
{
    uint32_t sum = 0;
    for (const char *p = name; *p != '\0'; ++p) {
        sum += static_cast<unsigned char>(*p);
    }
    return sum;
}

static registry_node **_bucket(uint32_t hash)
{
    return &_sensors.buckets[hash & (nbuckets - 1)];
}

static void _free_buckets_if_empty()
{
    if (_sensors.nsensors == 0) {
        free(_sensors.buckets);
        _sensors.buckets = nullptr;
    }
}

// Interns a name that is not there yet.
static registry_node *_add_node(const char *name, uint32_t hash)
{
    owned_memory<registry_node> node(allocate<registry_node>());
    if (!node) {
        return nullptr;
    }
    owned_memory<char> copy(strdup(name));
    if (!copy) {
        qe_set_last_error(QE_ERROR_NO_MEMORY);
        return nullptr;
    }
    sensor *canonical = _sensor_create(copy.get(), hash);
    if (canonical == nullptr) {
        return nullptr;
    }
    registry_node **head = _bucket(hash);
    *node = {copy.release(), canonical, 1, *head};
    *head = node.release();
    ++_sensors.nsensors;
    return *head;
}

sensor *sensors_get_sensor(const char *name)
{
    VESK_REQUIRE(name != nullptr, "name != ((void *)0)");
    if (_sensors.buckets == nullptr) {
        _sensors.buckets = allocate_zeroed<registry_node *>(nbuckets);
        if (_sensors.buckets == nullptr) {
            return nullptr;
        }
    }
    const uint32_t hash = _hash(name);
    for (registry_node *node = *_bucket(hash); node != nullptr; node = node->next) {
        VESK_REQUIRE(node->sensor != nullptr, "node->sensor != ((void *)0)");
        if (node->sensor->hash_code == hash && strcmp(node->name, name) == 0) {
            VESK_REQUIRE(node->nrefs > 0, "node->nrefs > 0");
            ++node->nrefs;
            return node->sensor;
        }
    }
    const registry_node *added = _add_node(name, hash);
    if (added == nullptr) {
        _free_buckets_if_empty();
        return nullptr;
    }
    return added->sensor;
}

// Where the pointer to the node of a canonical sensor is kept, which is there as long as anybody
// holds the sensor.
static registry_node **_find_link(const sensor *canonical)
{
    VESK_REQUIRE(_sensors.buckets != nullptr, "_sensors.buckets != ((void *)0)");
    registry_node **link = _bucket(canonical->hash_code);
    while (*link != nullptr && (*link)->sensor != canonical) {
        link = &(*link)->next;
    }
    const registry_node *node = *link;
    VESK_REQUIRE(node != nullptr, "node != ((void *)0)");
    VESK_REQUIRE(node->nrefs > 0, "node->nrefs > 0");
    return link;
}

void sensors_destroy_sensor(sensor *s)
{
    VESK_REQUIRE(s != nullptr, "sensor != ((void *)0)");
    VESK_REQUIRE(s->version == 1, "sensor->version == ((char) 1)");
    VESK_REQUIRE(s->canonical != nullptr, "sensor->canonical != ((void *)0)");
    registry_node **link = _find_link(s->canonical);
    registry_node *node = *link;
    if (--node->nrefs > 0) {
        return;
    }
    *link = node->next;
    _sensor_destroy_canonical(node->sensor);
    free(node->name);
    free(node);
    --_sensors.nsensors;
    _free_buckets_if_empty();
}

void _sensors_increment_ref_count(const sensor *s)
{
    VESK_REQUIRE(s != nullptr, "sensor != ((void *)0)");
    VESK_REQUIRE(s->canonical != nullptr, "sensor->canonical != ((void *)0)");
    ++(*_find_link(s->canonical))->nrefs;
}
