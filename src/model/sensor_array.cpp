// Stored form of an array of sensors, big-endian:
//
//  offset  size  field
//       0     1  version, 1
//       1     4  n, unsigned, 1..10000
//       5        n sensors, each as version and name
#include <cstdint>

#include <vesk/error.h>
#include <vesk/sensor.h>
#include <vesk/sensor_array.h>

#include "model/shared_list.hpp"
#include "support/object.hpp"
#include "support/precondition.hpp"

namespace
{
struct sensor_list_traits {
    using array = sensor_array;
    using item = sensor;
    static auto &count(auto *a) { return a->nsensors; }
    static auto &items(auto *a) { return a->sensors; }
    static constexpr auto destroy = sensor_destroy;
    static constexpr auto is_equal = sensor_is_equal;
    static constexpr auto write = binary_serializer_write_sensor;
    static constexpr auto read = binary_serializer_read_sensor;
    static constexpr const char *same_count_text = "s1->nsensors == s2->nsensors";
    static constexpr const char *entry1_text = "s1->sensors[i] != ((void *)0)";
    static constexpr const char *entry2_text = "s2->sensors[i] != ((void *)0)";
    static constexpr const char *entry_text = "array->sensors[i] != ((void *)0)";
};
} // namespace

using list = shared_list<sensor_list_traits>;

int sensor_array_init(sensor_array *array, sensor **sensors, uint32_t nsensors)
{
    VESK_REQUIRE(array != nullptr, "array != ((void *)0)");
    VESK_REQUIRE(nsensors > 0, "nsensors > 0");
    VESK_REQUIRE(sensors != nullptr, "sensors != ((void *)0)");
    return list::init(array, sensors, nsensors);
}

sensor_array *sensor_array_create(sensor **sensors, uint32_t nsensors)
{
    return create_object<sensor_array>(
        [&](sensor_array *array) { return sensor_array_init(array, sensors, nsensors); });
}

int sensor_array_init_empty(sensor_array *array, uint32_t nsensors)
{
    VESK_REQUIRE(array != nullptr, "array != ((void *)0)");
    VESK_REQUIRE(nsensors > 0, "nsensors > 0");
    return list::init_empty(array, nsensors);
}

sensor_array *sensor_array_create_empty(uint32_t nsensors)
{
    return create_object<sensor_array>(
        [nsensors](sensor_array *array) { return sensor_array_init_empty(array, nsensors); });
}

int sensor_array_init_from_names(sensor_array *array, const char *const *names, uint32_t nsensors)
{
    VESK_REQUIRE(array != nullptr, "array != ((void *)0)");
    VESK_REQUIRE(nsensors > 0, "nsensors > 0");
    VESK_REQUIRE(names != nullptr, "names != ((void *)0)");
    const int result = list::init_empty(array, nsensors);
    if (result < 0) {
        return result;
    }
    for (uint32_t i = 0; i < nsensors; ++i) {
        VESK_REQUIRE(names[i] != nullptr, "names[i] != ((void *)0)");
        array->sensors[i] = sensor_create(names[i]);
        if (array->sensors[i] == nullptr) {
            // The array stays live with the sensors made so far.
            return qe_get_last_error();
        }
    }
    return 0;
}

sensor_array *sensor_array_create_from_names(const char *const *names, uint32_t nsensors)
{
    return create_object<sensor_array>(
        [&](sensor_array *array) { return sensor_array_init_from_names(array, names, nsensors); });
}

int sensor_array_init_null(sensor_array *array)
{
    VESK_REQUIRE(array != nullptr, "array != ((void *)0)");
    list::init_null(array);
    return 0;
}

sensor_array *sensor_array_create_null(void)
{
    return create_object<sensor_array>(sensor_array_init_null);
}

sensor_array *sensor_array_copy(const sensor_array *array)
{
    VESK_REQUIRE(array != nullptr, "array != ((void *)0)");
    VESK_REQUIRE(array->version == 1, "array->version == ((char) 1)");
    return list::copy(array);
}

void sensor_array_destruct(sensor_array *array)
{
    VESK_REQUIRE(array != nullptr, "array != ((void *)0)");
    VESK_REQUIRE(array->version == 1, "array->version == ((char) 1)");
    list::destruct(array);
}

void sensor_array_destroy(sensor_array **array)
{
    VESK_REQUIRE(array != nullptr, "array != ((void *)0)");
    VESK_REQUIRE(*array != nullptr, "*array != ((void *)0)");
    destroy_object(array, sensor_array_destruct);
}

sensor **sensor_array_get_sensors(const sensor_array *array)
{
    VESK_REQUIRE(array != nullptr, "array != ((void *)0)");
    VESK_REQUIRE(array->version == 1, "array->version == ((char) 1)");
    return array->sensors;
}

uint32_t sensor_array_get_size(const sensor_array *array)
{
    VESK_REQUIRE(array != nullptr, "array != ((void *)0)");
    VESK_REQUIRE(array->version == 1, "array->version == ((char) 1)");
    return array->nsensors;
}

sensor *sensor_array_get(const sensor_array *array, int i)
{
    VESK_REQUIRE(array != nullptr, "array != ((void *)0)");
    VESK_REQUIRE(array->version == 1, "array->version == ((char) 1)");
    VESK_REQUIRE(i >= 0, "i >= 0");
    VESK_REQUIRE(static_cast<uint32_t>(i) < array->nsensors, "i < array->nsensors");
    return array->sensors[i];
}

int sensor_array_set(sensor_array *array, int i, sensor *s)
{
    VESK_REQUIRE(array != nullptr, "array != ((void *)0)");
    VESK_REQUIRE(array->version == 1, "array->version == ((char) 1)");
    VESK_REQUIRE(i >= 0, "i >= 0");
    VESK_REQUIRE(static_cast<uint32_t>(i) < array->nsensors, "i < array->nsensors");
    VESK_REQUIRE(s != nullptr, "sensor != ((void *)0)");
    if (array->sensors[i] != nullptr) {
        sensor_destroy(&array->sensors[i]);
    }
    array->sensors[i] = s;
    return 0;
}

int sensor_array_is_equal(const sensor_array *s1, const sensor_array *s2)
{
    VESK_REQUIRE(s1 != nullptr, "s1 != ((void *)0)");
    VESK_REQUIRE(s2 != nullptr, "s2 != ((void *)0)");
    VESK_REQUIRE(s1->version == 1, "s1->version == ((char) 1)");
    VESK_REQUIRE(s2->version == 1, "s2->version == ((char) 1)");
    return list::is_equal(s1, s2) ? 1 : 0;
}

int binary_serializer_write_sensor_array(const sensor_array *array, writer *w)
{
    VESK_REQUIRE(array != nullptr, "array != ((void *)0)");
    VESK_REQUIRE(array->version == 1, "array->version == ((char) 1)");
    VESK_REQUIRE(array->sensors != nullptr, "array->sensors != ((void *)0)");
    VESK_REQUIRE(array->nsensors > 0, "array->nsensors > 0");
    VESK_REQUIRE(w != nullptr, "writer != ((void *)0)");
    return list::write(array, w);
}

int binary_serializer_read_sensor_array(sensor_array *array, reader *r)
{
    VESK_REQUIRE(array != nullptr, "array != ((void *)0)");
    VESK_REQUIRE(array->version == 1, "array->version == ((char) 1)");
    VESK_REQUIRE(r != nullptr, "reader != ((void *)0)");
    return list::read(array, r);
}
