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
#include "support/text_hash.hpp"

namespace
{
struct registry_node {
    char *name;     // the registry's own copy, which the canonical sensor refers to
    uint64_t place; // its hash, of which the low bits are the number of the bucket
    struct sensor *sensor;
    int nrefs; // at least 1 while the node exists
    registry_node *next;
};

struct registry {
    registry_node **buckets; // exists only while at least one name is interned
    registry_node **larger;  // takes their place while there are many names
    uint32_t nlarger;        // a power of two
    uint32_t nsensors;
};
} // namespace

// Small sets of sensors cost no more than one small table. With more than so many names for each
// bucket a table of twice the size takes its place, so that a look-up meets few of them; when most
// of the names are gone, so is that table. Both numbers were chosen freely; results do not depend
// on them.
static constexpr uint32_t nbuckets = 32;
static constexpr uint32_t most_names_per_bucket = 4;

static registry _sensors = {nullptr, nullptr, 0, 0};

// The hash code of a sensor: a plain sum of bytes, which anagrams have in common. The order of
// stored history depends on it. The registry itself finds names by another hash.
static uint32_t _hash(const char *name)
{
    uint32_t sum = 0;
    for (const char *p = name; *p != '\0'; ++p) {
        sum += static_cast<unsigned char>(*p);
    }
    return sum;
}

static uint64_t _place(const char *name)
{
    return hash_text(name, strlen(name));
}

static registry_node **_bucket(uint64_t place)
{
    return _sensors.larger != nullptr ? &_sensors.larger[place & (_sensors.nlarger - 1)]
                                      : &_sensors.buckets[place & (nbuckets - 1)];
}

// Moves all names into the table of `size` buckets, `larger`, or into the small one when that is
// null.
static void _move_names(registry_node **larger, uint32_t size)
{
    const uint32_t old_size = _sensors.larger != nullptr ? _sensors.nlarger : nbuckets;
    const owned_memory<registry_node *> old_larger(_sensors.larger);
    registry_node **old = old_larger ? old_larger.get() : _sensors.buckets;
    _sensors.larger = larger;
    _sensors.nlarger = size;
    for (uint32_t i = 0; i < old_size; ++i) {
        while (registry_node *node = old[i]) {
            old[i] = node->next;
            registry_node **head = _bucket(node->place);
            node->next = *head;
            *head = node;
        }
    }
}

// If there is no memory for a larger table, the names stay where they are, which only costs time.
static void _fit_table()
{
    const uint32_t size = _sensors.larger != nullptr ? _sensors.nlarger : nbuckets;
    if (_sensors.nsensors / most_names_per_bucket >= size) {
        auto **larger =
            static_cast<registry_node **>(calloc(std::size_t(2) * size, sizeof(registry_node *)));
        if (larger != nullptr) {
            _move_names(larger, 2 * size);
        }
    } else if (_sensors.larger != nullptr && _sensors.nsensors < nbuckets) {
        _move_names(nullptr, 0);
    }
}

static void _free_buckets_if_empty()
{
    if (_sensors.nsensors == 0) {
        free(_sensors.buckets);
        _sensors.buckets = nullptr;
    }
}

// Interns a name that is not there yet.
static registry_node *_add_node(const char *name, uint64_t place)
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
    sensor *canonical = _sensor_create(copy.get(), _hash(name));
    if (canonical == nullptr) {
        return nullptr;
    }
    _fit_table();
    registry_node **head = _bucket(place);
    *node = {copy.release(), place, canonical, 1, *head};
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
    const uint64_t place = _place(name);
    for (registry_node *node = *_bucket(place); node != nullptr; node = node->next) {
        VESK_REQUIRE(node->sensor != nullptr, "node->sensor != ((void *)0)");
        if (node->place == place && strcmp(node->name, name) == 0) {
            VESK_REQUIRE(node->nrefs > 0, "node->nrefs > 0");
            ++node->nrefs;
            return node->sensor;
        }
    }
    const registry_node *added = _add_node(name, place);
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
    VESK_REQUIRE(canonical->name != nullptr, "node != ((void *)0)");
    registry_node **link = _bucket(_place(canonical->name));
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
    _fit_table();
    _free_buckets_if_empty();
}

void _sensors_increment_ref_count(const sensor *s)
{
    VESK_REQUIRE(s != nullptr, "sensor != ((void *)0)");
    VESK_REQUIRE(s->canonical != nullptr, "sensor->canonical != ((void *)0)");
    ++(*_find_link(s->canonical))->nrefs;
}
