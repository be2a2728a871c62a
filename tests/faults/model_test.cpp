// The functions of sensors, times and statistics, with what each gives when a call fails.
#include <gtest/gtest.h>

#include <vesk/hist_value.h>
#include <vesk/hist_value_list.h>
#include <vesk/sensor.h>
#include <vesk/sensor_array.h>
#include <vesk/sensors.h>
#include <vesk/timestamp.h>
#include <vesk/timestamp_array.h>

#include "common/history.hpp"
#include "common/telemetry.hpp"
#include "faults/fault_loop.hpp"
#include "faults/streams.hpp"

namespace
{

using owned_sensor_array = owned<sensor_array, sensor_array_destroy>;
using owned_timestamp_array = owned<timestamp_array, timestamp_array_destroy>;

const char *const sensor_names[] = {"fan", "psu", "naf"};

const timestamp noon = make_timestamp(1000);

owned_sensor_array three_sensors()
{
    return owned_sensor_array(sensor_array_create_from_names(sensor_names, 3));
}

owned_timestamp_array two_timestamps()
{
    return owned_timestamp_array(timestamp_array_create_dummy(&noon, 2));
}

// A list that an array takes over unless it fails: then it is still the caller's.
template <typename List, typename Entry, typename Take>
outcome takes_list(fault &f, List *list, uint32_t n, void (*destroy)(Entry **), Take take)
{
    const outcome found = take(f, list);
    if (found != "ok") {
        for (uint32_t i = 0; i < n; ++i) {
            destroy(&list[i]);
        }
        free(list);
    }
    return found;
}

template <typename Take>
outcome takes_sensors(fault &f, Take take)
{
    return takes_list(f, sensor_create_array(sensor_names, 2), 2, sensor_destroy, take);
}

template <typename Take>
outcome takes_timestamps(fault &f, Take take)
{
    auto **list = static_cast<timestamp **>(malloc(2 * sizeof(timestamp *)));
    list[0] = timestamp_create_null();
    list[1] = timestamp_create_null();
    return takes_list(f, list, 2, timestamp_destroy, take);
}

// Gives back the references that a failed call left in the registry.
void release_interned()
{
    for (const char *name : sensor_names) {
        const long blocks = count_live_blocks();
        sensor *again = sensor_create(name);
        if (blocks == count_live_blocks()) {
            sensor *lost = again;
            sensor_destroy(&lost);
        }
        sensor_destroy(&again);
    }
}

// The array is lost with the list in it, and so are the sensors that were made.
outcome creates_array_from_names(fault &f)
{
    const outcome found = f.creates(sensor_array_destroy,
                                    [] { return sensor_array_create_from_names(sensor_names, 3); });
    if (found != "ok") {
        release_interned();
        // The list and its counter.
        f.loses(f.n() <= 3 ? 0 : 2);
    }
    return found;
}

outcome inits_array_from_names(fault &f)
{
    sensor_array array;
    const int result = f([&] { return sensor_array_init_from_names(&array, sensor_names, 3); });
    EXPECT_EQ(1, array.version);
    sensor_array_destruct(&array);
    return fault::code(result);
}

// A null array, which a failed read leaves as it is.
template <typename Array, typename Read>
outcome reads_array(fault &f, Array *array, void (*destruct)(Array *), const std::string &bytes,
                    Read read)
{
    const outcome found = reads(f, bytes, [&](reader *r) { return read(array, r); });
    if (found != "ok") {
        EXPECT_EQ(1, array->version);
        EXPECT_EQ(nullptr, array->ref_count);
    }
    destruct(array);
    return found;
}

// A name that is known already costs nothing, a new one leaves a table without itself.
outcome adds_a_sensor(fault &f)
{
    owned_hist_list list = make_list({{"a", {1}}, {"b", {2}}});
    sensor *added = sensor_create("c");
    const hist_value *summary =
        f([&] { return hist_value_list_add_if_not_present(list.get(), added); });
    EXPECT_EQ(summary != nullptr ? 3U : 2U, hist_value_list_get_size(list.get()));
    sensor_destroy(&added);
    return summary != nullptr ? "ok" : fault::cell();
}

const std::string stored_sensor = from_hex("01 00000003") + "fan";
const std::string stored_sensors = from_hex("01 00000002") + stored_sensor + stored_sensor;
const std::string stored_time = from_hex("01 000003e8 00000000");
const std::string stored_times = from_hex("01 00000002") + stored_time + stored_time;

std::vector<fault_case> timestamp_cases()
{
    return {
        {"timestamp_create_current", "", no_memory,
         [](fault &f) { return f.creates(timestamp_destroy, timestamp_create_current); }},
        {"timestamp_create_null", "", no_memory,
         [](fault &f) { return f.creates(timestamp_destroy, timestamp_create_null); }},
        {"timestamp_create_from_timeval", "", no_memory,
         [](fault &f) {
             return f.creates(timestamp_destroy,
                              [] { return timestamp_create_from_timeval(&noon.tv); });
         }},
        {"timestamp_create_from_string", "", no_memory,
         [](fault &f) {
             return f.creates(timestamp_destroy,
                              [] { return timestamp_create_from_string("20240229:23:59:59"); });
         }},
        {"timestamp_copy", "to_a_new_one", no_memory,
         [](fault &f) {
             return f.creates(timestamp_destroy, [] { return timestamp_copy(&noon, nullptr); });
         }},
        {"timestamp_copy", "to_storage", nothing_fails,
         [](fault &f) {
             return f.inits<timestamp>(timestamp_destruct, [](timestamp *t) {
                 return timestamp_copy(&noon, t) == t ? 0 : -1;
             });
         }},
        {"binary_serializer_write_timestamp", "", disk_full,
         [](fault &f) {
             return writes(f,
                           [](writer *w) { return binary_serializer_write_timestamp(&noon, w); });
         }},
        {"binary_serializer_read_timestamp", "", unreadable,
         [](fault &f) {
             timestamp t = {};
             timestamp_init_null(&t);
             return reads(f, stored_time,
                          [&](reader *r) { return binary_serializer_read_timestamp(&t, r); });
         }},
    };
}

std::vector<fault_case> timestamp_array_cases()
{
    return {
        {"timestamp_array_init", "", no_memory,
         [](fault &f) {
             return takes_timestamps(f, [](fault &g, timestamp **list) {
                 return g.inits<timestamp_array>(timestamp_array_destruct, [=](auto *array) {
                     return timestamp_array_init(array, list, 2);
                 });
             });
         }},
        {"timestamp_array_create", "", no_memory,
         [](fault &f) {
             return takes_timestamps(f, [](fault &g, timestamp **list) {
                 return g.creates(timestamp_array_destroy,
                                  [=] { return timestamp_array_create(list, 2); });
             });
         }},
        {"timestamp_array_init_empty", "", no_memory,
         [](fault &f) {
             return f.inits<timestamp_array>(timestamp_array_destruct, [](auto *array) {
                 return timestamp_array_init_empty(array, 2);
             });
         }},
        {"timestamp_array_create_empty", "", no_memory,
         [](fault &f) {
             return f.creates(timestamp_array_destroy,
                              [] { return timestamp_array_create_empty(2); });
         }},
        {"timestamp_array_init_dummy", "", no_memory,
         [](fault &f) {
             return f.inits<timestamp_array>(timestamp_array_destruct, [](auto *array) {
                 return timestamp_array_init_dummy(array, &noon, 3);
             });
         }},
        {"timestamp_array_create_dummy", "", no_memory,
         [](fault &f) {
             return f.creates(timestamp_array_destroy,
                              [] { return timestamp_array_create_dummy(&noon, 3); });
         }},
        {"timestamp_array_create_null", "", no_memory,
         [](fault &f) { return f.creates(timestamp_array_destroy, timestamp_array_create_null); }},
        {"timestamp_array_copy", "", no_memory,
         [](fault &f) {
             const owned_timestamp_array array = two_timestamps();
             const outcome found = f.creates(timestamp_array_destroy,
                                             [&] { return timestamp_array_copy(array.get()); });
             EXPECT_EQ(1, *array->ref_count);
             return found;
         }},
        {"binary_serializer_write_timestamp_array", "", disk_full,
         [](fault &f) {
             const owned_timestamp_array array = two_timestamps();
             return writes(f, [&](writer *w) {
                 return binary_serializer_write_timestamp_array(array.get(), w);
             });
         }},
        {"binary_serializer_read_timestamp_array", "", no_memory + unreadable,
         [](fault &f) {
             timestamp_array array;
             timestamp_array_init_null(&array);
             return reads_array(f, &array, timestamp_array_destruct, stored_times,
                                binary_serializer_read_timestamp_array);
         }},
    };
}

std::vector<fault_case> sensor_cases()
{
    return {
        {"sensors_get_sensor", "", no_memory,
         [](fault &f) {
             return f.creates(sensor_destroy, [] { return sensors_get_sensor("fan"); });
         }},
        {"sensor_create", "new_name", no_memory,
         [](fault &f) { return f.creates(sensor_destroy, [] { return sensor_create("fan"); }); }},
        {"sensor_create", "known_name", nothing_fails,
         [](fault &f) {
             sensor *first = sensor_create("fan");
             const outcome found = f.creates(sensor_destroy, [] { return sensor_create("fan"); });
             sensor_destroy(&first);
             return found;
         }},
        {"sensor_init", "", no_memory,
         [](fault &f) {
             return f.inits<sensor>(sensor_destruct,
                                    [](sensor *s) { return sensor_init(s, "fan"); });
         }},
        {"sensor_create_null", "", no_memory,
         [](fault &f) { return f.creates(sensor_destroy, sensor_create_null); }},
        {"sensor_create_array", "", no_memory,
         [](fault &f) {
             sensor **made = f([] { return sensor_create_array(sensor_names, 3); });
             if (made == nullptr) {
                 return fault::cell();
             }
             for (int i = 0; i < 3; ++i) {
                 sensor_destroy(&made[i]);
             }
             free(made);
             return fault::success();
         }},
        {"sensor_copy", "", nothing_fails,
         [](fault &f) {
             sensor *original = sensor_create("fan");
             const outcome found =
                 f.creates(sensor_destroy, [=] { return sensor_copy(original, nullptr); });
             sensor_destroy(&original);
             return found;
         }},
        {"binary_serializer_write_sensor", "", disk_full,
         [](fault &f) {
             sensor *s = sensor_create("fan");
             const outcome found =
                 writes(f, [=](writer *w) { return binary_serializer_write_sensor(s, w); });
             sensor_destroy(&s);
             return found;
         }},
        {"binary_serializer_read_sensor", "",
         no_memory + expectations{{call_kind::read, {"none", "reader_eof (reader)", "nread != 0"}}},
         [](fault &f) {
             sensor *s = nullptr;
             const outcome found = reads(
                 f, stored_sensor, [&](reader *r) { return binary_serializer_read_sensor(&s, r); });
             EXPECT_EQ(found == "ok", s != nullptr);
             if (s != nullptr) {
                 sensor_destroy(&s);
             }
             return found;
         }},
    };
}

std::vector<fault_case> sensor_array_cases()
{
    return {
        {"sensor_array_init", "", no_memory,
         [](fault &f) {
             return takes_sensors(f, [](fault &g, sensor **list) {
                 return g.inits<sensor_array>(sensor_array_destruct, [=](auto *array) {
                     return sensor_array_init(array, list, 2);
                 });
             });
         }},
        {"sensor_array_create", "", no_memory,
         [](fault &f) {
             return takes_sensors(f, [](fault &g, sensor **list) {
                 return g.creates(sensor_array_destroy,
                                  [=] { return sensor_array_create(list, 2); });
             });
         }},
        {"sensor_array_init_empty", "", no_memory,
         [](fault &f) {
             return f.inits<sensor_array>(sensor_array_destruct, [](auto *array) {
                 return sensor_array_init_empty(array, 2);
             });
         }},
        {"sensor_array_create_empty", "", no_memory,
         [](fault &f) {
             return f.creates(sensor_array_destroy, [] { return sensor_array_create_empty(2); });
         }},
        {"sensor_array_init_from_names", "", no_memory, inits_array_from_names},
        {.function = "sensor_array_create_from_names",
         .situation = "",
         .expected = no_memory,
         .run = creates_array_from_names,
         .isolated = true},
        {"sensor_array_create_null", "", no_memory,
         [](fault &f) { return f.creates(sensor_array_destroy, sensor_array_create_null); }},
        {"sensor_array_copy", "", no_memory,
         [](fault &f) {
             const owned_sensor_array array = three_sensors();
             const outcome found =
                 f.creates(sensor_array_destroy, [&] { return sensor_array_copy(array.get()); });
             EXPECT_EQ(1, *array->ref_count);
             return found;
         }},
        {"binary_serializer_write_sensor_array", "", disk_full,
         [](fault &f) {
             const owned_sensor_array array = three_sensors();
             return writes(f, [&](writer *w) {
                 return binary_serializer_write_sensor_array(array.get(), w);
             });
         }},
        {"binary_serializer_read_sensor_array", "", no_memory + unreadable_strings,
         [](fault &f) {
             sensor_array array;
             sensor_array_init_null(&array);
             return reads_array(f, &array, sensor_array_destruct, stored_sensors,
                                binary_serializer_read_sensor_array);
         }},
    };
}

std::vector<fault_case> hist_value_cases()
{
    return {
        {"hist_value_create", "", no_memory,
         [](fault &f) { return f.creates(hist_value_destroy, hist_value_create); }},
        {"hist_value_copy", "to_a_new_one", no_memory,
         [](fault &f) {
             hist_value original;
             hist_value_init(&original);
             return f.creates(hist_value_destroy,
                              [&] { return hist_value_copy(&original, nullptr); });
         }},
        {"binary_serializer_write_hist_value", "", disk_full,
         [](fault &f) {
             hist_value hv;
             hist_value_init(&hv);
             return writes(f,
                           [&](writer *w) { return binary_serializer_write_hist_value(&hv, w); });
         }},
        {"binary_serializer_read_hist_value", "", unreadable,
         [](fault &f) {
             hist_value hv;
             hist_value_init(&hv);
             const std::string bytes =
                 stored_form([&](writer *w) { return binary_serializer_write_hist_value(&hv, w); });
             return reads(f, bytes,
                          [&](reader *r) { return binary_serializer_read_hist_value(&hv, r); });
         }},
    };
}

std::vector<fault_case> hist_value_list_cases()
{
    return {
        {"hist_value_list_create", "", no_memory,
         [](fault &f) { return f.creates(hist_value_list_destroy, hist_value_list_create); }},
        {"hist_value_list_add_if_not_present", "", no_memory, adds_a_sensor},
        {"hist_value_list_get_sensor_copies", "", no_memory,
         [](fault &f) {
             const owned_hist_list list = make_list({{"a", {1}}, {"b", {2}}});
             return f.creates(sensor_array_destroy,
                              [&] { return hist_value_list_get_sensor_copies(list.get()); });
         }},
        {"hist_value_list_get_hist_value_copies", "", no_memory,
         [](fault &f) {
             const owned_hist_list list = make_list({{"a", {1}}, {"b", {2}}});
             return f.allocates([&] { return hist_value_list_get_hist_value_copies(list.get()); });
         }},
    };
}

} // namespace

std::vector<fault_case> model_cases()
{
    return joined({timestamp_cases(), timestamp_array_cases(), sensor_cases(), sensor_array_cases(),
                   hist_value_cases(), hist_value_list_cases()});
}
