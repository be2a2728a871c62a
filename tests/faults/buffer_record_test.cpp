// The functions of the records of buffers, with every call that can fail.
#include <gtest/gtest.h>

#include <vesk/vesk_cb_record.h>
#include <vesk/vesk_hb_record.h>

#include "common/buffer_files.hpp"
#include "faults/buffer_values.hpp"
#include "faults/fault_loop.hpp"
#include "faults/streams.hpp"

namespace
{

// Records that are made of a vector, an event, or summaries.
template <typename Record, typename Call>
outcome makes_of_vector(fault &f, Call call)
{
    const owned_matrix vector = make_vector(1000, {{"a", 1}, {"b", 2}});
    return call(f, vector.get());
}

using owned_names = owned<vesk_cb_record_sensor_names, vesk_cb_record_sensor_names_destroy>;
using owned_values = owned<vesk_cb_record_sensor_values, vesk_cb_record_sensor_values_destroy>;
using owned_interval = owned<vesk_hb_record_sensor_values, vesk_hb_record_sensor_values_destroy>;

owned_names make_names()
{
    return owned_names(vesk_cb_record_sensor_names_create(two_readings().get()));
}

owned_interval make_interval()
{
    return owned_interval(
        vesk_hb_record_sensor_values_create(&noon, &later, make_summaries().get(), nullptr));
}

// Reads a form into a record that holds an older one.
template <typename Record>
outcome reads_again(fault &f, int (*init_null)(Record *), void (*destruct)(Record *),
                    int (*read)(Record *, reader *), const std::string &older,
                    const std::string &bytes)
{
    Record rec;
    init_null(&rec);
    if (!older.empty()) {
        memory_reader source(older);
        EXPECT_LT(0, read(&rec, source.get()));
    }
    const outcome found = reads(f, bytes, [&](reader *r) { return read(&rec, r); });
    destruct(&rec);
    return found;
}

const std::string names_form = stored_names_record(1000, {"a", "b"});
const std::string more_names_form = stored_names_record(1000, {"a", "b", "c"});
const std::string values_form = stored_values_record(1000, {1, 2});
const std::string event_form = stored_event_record(3, 1000, "text");
const std::string interval_form =
    stored_interval_record(1000, 2000, {stored_summary({1, 2}), stored_summary({3})});

// A record without the type word before it.
std::string body_of(const std::string &record)
{
    return record.substr(4);
}

outcome reads_cb_record(fault &f, const std::string &older, const std::string &bytes)
{
    return reads_again(f, vesk_cb_record_init_null, vesk_cb_record_destruct,
                       binary_serializer_read_vesk_cb_record, older, bytes);
}

outcome reads_hb_record(fault &f, const std::string &older, const std::string &bytes)
{
    return reads_again(f, vesk_hb_record_init_null, vesk_hb_record_destruct,
                       binary_serializer_read_vesk_hb_record, older, bytes);
}

std::vector<fault_case> vesk_cb_record_event_cases()
{
    return {
        {"vesk_cb_record_event_init", "", no_memory,
         [](fault &f) {
             return f.inits<vesk_cb_record_event>(vesk_cb_record_event_destruct, [](auto *rec) {
                 return vesk_cb_record_event_init(rec, 3, &noon, "text");
             });
         }},
        {"vesk_cb_record_event_create", "", no_memory,
         [](fault &f) {
             return f.creates(vesk_cb_record_event_destroy,
                              [] { return vesk_cb_record_event_create(3, &noon, "text"); });
         }},
        {"vesk_cb_record_event_create_null", "", no_memory,
         [](fault &f) {
             return f.creates(vesk_cb_record_event_destroy, vesk_cb_record_event_create_null);
         }},
        {"binary_serializer_write_vesk_cb_record_event", "", disk_full,
         [](fault &f) {
             const owned_event event = make_event(3, 1000, "text");
             return writes(f, [&](writer *w) {
                 return binary_serializer_write_vesk_cb_record_event(event.get(), w);
             });
         }},
        {"binary_serializer_read_vesk_cb_record_event", "", no_memory + unreadable_strings,
         [](fault &f) {
             return reads_again(f, vesk_cb_record_event_init_null, vesk_cb_record_event_destruct,
                                binary_serializer_read_vesk_cb_record_event, "",
                                body_of(event_form));
         }},
        {"binary_serializer_read_vesk_cb_record_event", "over_an_older_one",
         no_memory + unreadable_strings,
         [](fault &f) {
             return reads_again(f, vesk_cb_record_event_init_null, vesk_cb_record_event_destruct,
                                binary_serializer_read_vesk_cb_record_event, body_of(event_form),
                                body_of(event_form));
         }},
    };
}

std::vector<fault_case> vesk_cb_record_sensor_names_cases()
{
    return {
        {"vesk_cb_record_sensor_names_init", "", no_memory,
         [](fault &f) {
             const owned_matrix vector = two_readings();
             return f.inits<vesk_cb_record_sensor_names>(
                 vesk_cb_record_sensor_names_destruct,
                 [&](auto *rec) { return vesk_cb_record_sensor_names_init(rec, vector.get()); });
         }},
        {"vesk_cb_record_sensor_names_create", "", no_memory,
         [](fault &f) {
             const owned_matrix vector = two_readings();
             return f.creates(vesk_cb_record_sensor_names_destroy,
                              [&] { return vesk_cb_record_sensor_names_create(vector.get()); });
         }},
        {"vesk_cb_record_sensor_names_create_null", "", no_memory,
         [](fault &f) {
             return f.creates(vesk_cb_record_sensor_names_destroy,
                              vesk_cb_record_sensor_names_create_null);
         }},
        {"vesk_cb_record_sensor_names_copy", "to_a_new_one", no_memory,
         [](fault &f) {
             const owned_names names = make_names();
             return f.creates(vesk_cb_record_sensor_names_destroy, [&] {
                 return vesk_cb_record_sensor_names_copy(names.get(), nullptr);
             });
         }},
        {"vesk_cb_record_sensor_names_copy", "to_storage", no_memory,
         [](fault &f) {
             const owned_names names = make_names();
             vesk_cb_record_sensor_names copy;
             vesk_cb_record_sensor_names_init_null(&copy);
             const auto *made =
                 f([&] { return vesk_cb_record_sensor_names_copy(names.get(), &copy); });
             EXPECT_EQ(made == nullptr, copy.sensors == nullptr);
             vesk_cb_record_sensor_names_destruct(&copy);
             return made != nullptr ? fault::success() : fault::cell();
         }},
        {"binary_serializer_write_vesk_cb_record_sensor_names", "", disk_full,
         [](fault &f) {
             const owned_names names = make_names();
             return writes(f, [&](writer *w) {
                 return binary_serializer_write_vesk_cb_record_sensor_names(names.get(), w);
             });
         }},
        {"binary_serializer_read_vesk_cb_record_sensor_names", "", no_memory + unreadable_strings,
         [](fault &f) {
             return reads_again(f, vesk_cb_record_sensor_names_init_null,
                                vesk_cb_record_sensor_names_destruct,
                                binary_serializer_read_vesk_cb_record_sensor_names,
                                body_of(names_form), body_of(more_names_form));
         }},
    };
}

std::vector<fault_case> vesk_cb_record_sensor_values_cases()
{
    return {
        {"vesk_cb_record_sensor_values_create", "", no_memory,
         [](fault &f) {
             const owned_matrix vector = two_readings();
             return f.creates(vesk_cb_record_sensor_values_destroy,
                              [&] { return vesk_cb_record_sensor_values_create(vector.get()); });
         }},
        {"vesk_cb_record_sensor_values_create_null", "", no_memory,
         [](fault &f) {
             return f.creates(vesk_cb_record_sensor_values_destroy,
                              vesk_cb_record_sensor_values_create_null);
         }},
        {"vesk_cb_record_sensor_values_get_values", "", no_memory,
         [](fault &f) {
             const owned_matrix vector = two_readings();
             const owned_values values(vesk_cb_record_sensor_values_create(vector.get()));
             const float *floats =
                 f([&] { return vesk_cb_record_sensor_values_get_values(values.get()); });
             EXPECT_EQ(floats == nullptr ? vector.get() : nullptr, values->vector);
             return floats != nullptr ? fault::success() : fault::cell();
         }},
        {"binary_serializer_write_vesk_cb_record_sensor_values", "", disk_full,
         [](fault &f) {
             const owned_matrix vector = two_readings();
             const owned_values values(vesk_cb_record_sensor_values_create(vector.get()));
             return writes(f, [&](writer *w) {
                 return binary_serializer_write_vesk_cb_record_sensor_values(values.get(), w);
             });
         }},
        {"binary_serializer_read_vesk_cb_record_sensor_values", "", no_memory + unreadable,
         [](fault &f) {
             return reads_again(f, vesk_cb_record_sensor_values_init_null,
                                vesk_cb_record_sensor_values_destruct,
                                binary_serializer_read_vesk_cb_record_sensor_values,
                                body_of(stored_values_record(1000, {1})), body_of(values_form));
         }},
    };
}

std::vector<fault_case> vesk_cb_record_cases()
{
    return {
        {"binary_serializer_write_vesk_cb_record", "", disk_full,
         [](fault &f) {
             const owned_event event = make_event(3, 1000, "text");
             vesk_cb_record rec;
             vesk_cb_record_init_event(&rec, event.get());
             return writes(
                 f, [&](writer *w) { return binary_serializer_write_vesk_cb_record(&rec, w); });
         }},
        {"binary_serializer_read_vesk_cb_record", "names", no_memory + unreadable_strings,
         [](fault &f) { return reads_cb_record(f, "", names_form); }},
        {"binary_serializer_read_vesk_cb_record", "names_again", no_memory + unreadable_strings,
         [](fault &f) { return reads_cb_record(f, names_form, more_names_form); }},
        {"binary_serializer_read_vesk_cb_record", "values", no_memory + unreadable,
         [](fault &f) { return reads_cb_record(f, "", values_form); }},
        {"binary_serializer_read_vesk_cb_record", "values_again", unreadable,
         [](fault &f) { return reads_cb_record(f, values_form, values_form); }},
        {"binary_serializer_read_vesk_cb_record", "event_behind_values",
         no_memory + unreadable_strings,
         [](fault &f) { return reads_cb_record(f, values_form, event_form); }},
        {"binary_serializer_read_vesk_cb_record", "event_again", no_memory + unreadable_strings,
         [](fault &f) { return reads_cb_record(f, event_form, event_form); }},
    };
}

std::vector<fault_case> vesk_hb_record_events_cases()
{
    return {
        {"vesk_hb_record_events_create_null", "", no_memory,
         [](fault &f) {
             return f.creates(vesk_hb_record_events_destroy, vesk_hb_record_events_create_null);
         }},
        {"vesk_hb_record_events_copy", "", no_memory,
         [](fault &f) {
             vesk_hb_record_events events;
             vesk_hb_record_events_init_null(&events);
             return f.creates(vesk_hb_record_events_destroy,
                              [&] { return vesk_hb_record_events_copy(&events, nullptr); });
         }},
        {"binary_serializer_write_vesk_hb_record_events", "", disk_full,
         [](fault &f) {
             vesk_hb_record_events events;
             vesk_hb_record_events_init_null(&events);
             return writes(f, [&](writer *w) {
                 return binary_serializer_write_vesk_hb_record_events(&events, w);
             });
         }},
        {"binary_serializer_read_vesk_hb_record_events",
         "",
         {{call_kind::read, {"none", "-48", "nread != 0"}}},
         [](fault &f) {
             return reads_again(f, vesk_hb_record_events_init_null, vesk_hb_record_events_destruct,
                                binary_serializer_read_vesk_hb_record_events, "",
                                from_hex("01") + std::string(20, '\0'));
         }},
    };
}

std::vector<fault_case> vesk_hb_record_sensor_names_cases()
{
    return {
        {"vesk_hb_record_sensor_names_init", "", no_memory,
         [](fault &f) {
             const owned_hist_list list = make_summaries();
             return f.inits<vesk_hb_record_sensor_names>(
                 vesk_hb_record_sensor_names_destruct, [&](auto *rec) {
                     return vesk_hb_record_sensor_names_init(rec, &noon, list.get());
                 });
         }},
        {"vesk_hb_record_sensor_names_create", "", no_memory,
         [](fault &f) {
             const owned_hist_list list = make_summaries();
             return f.creates(vesk_hb_record_sensor_names_destroy, [&] {
                 return vesk_hb_record_sensor_names_create(&noon, list.get());
             });
         }},
        {"vesk_hb_record_sensor_names_create_null", "", no_memory,
         [](fault &f) {
             return f.creates(vesk_hb_record_sensor_names_destroy,
                              vesk_hb_record_sensor_names_create_null);
         }},
        {"vesk_hb_record_sensor_names_copy", "", no_memory,
         [](fault &f) {
             const owned_names names = make_names();
             return f.creates(vesk_hb_record_sensor_names_destroy, [&] {
                 return vesk_hb_record_sensor_names_copy(names.get(), nullptr);
             });
         }},
        {"binary_serializer_write_vesk_hb_record_sensor_names", "", disk_full,
         [](fault &f) {
             const owned_names names = make_names();
             return writes(f, [&](writer *w) {
                 return binary_serializer_write_vesk_hb_record_sensor_names(names.get(), w);
             });
         }},
        {"binary_serializer_read_vesk_hb_record_sensor_names", "", no_memory + unreadable_strings,
         [](fault &f) {
             return reads_again(
                 f, vesk_hb_record_sensor_names_init_null, vesk_hb_record_sensor_names_destruct,
                 binary_serializer_read_vesk_hb_record_sensor_names, "", body_of(names_form));
         }},
    };
}

std::vector<fault_case> vesk_hb_record_sensor_values_cases()
{
    return {
        {"vesk_hb_record_sensor_values_init", "", no_memory,
         [](fault &f) {
             const owned_hist_list list = make_summaries();
             return f.inits<vesk_hb_record_sensor_values>(
                 vesk_hb_record_sensor_values_destruct, [&](auto *rec) {
                     return vesk_hb_record_sensor_values_init(rec, &noon, &later, list.get(),
                                                              nullptr);
                 });
         }},
        {"vesk_hb_record_sensor_values_create", "", no_memory,
         [](fault &f) {
             const owned_hist_list list = make_summaries();
             return f.creates(vesk_hb_record_sensor_values_destroy, [&] {
                 return vesk_hb_record_sensor_values_create(&noon, &later, list.get(), nullptr);
             });
         }},
        {"vesk_hb_record_sensor_values_create_null", "", no_memory,
         [](fault &f) {
             return f.creates(vesk_hb_record_sensor_values_destroy,
                              vesk_hb_record_sensor_values_create_null);
         }},
        {"vesk_hb_record_sensor_values_copy", "to_a_new_one", no_memory,
         [](fault &f) {
             const owned_interval interval = make_interval();
             return f.creates(vesk_hb_record_sensor_values_destroy, [&] {
                 return vesk_hb_record_sensor_values_copy(interval.get(), nullptr);
             });
         }},
        {"vesk_hb_record_sensor_values_copy", "over_another_one", no_memory,
         [](fault &f) {
             const owned_interval interval = make_interval();
             const owned_interval other(vesk_hb_record_sensor_values_create(
                 &later, &later, make_list({{"c", {9}}}).get(), nullptr));
             const auto *copy =
                 f([&] { return vesk_hb_record_sensor_values_copy(interval.get(), other.get()); });
             EXPECT_EQ(copy != nullptr ? 2U : 1U, other->n_sensors);
             EXPECT_EQ(copy != nullptr ? 1.0F : 9.0F, other->hvalues[0].min_value);
             return copy != nullptr ? fault::success() : fault::cell();
         }},
        {"binary_serializer_write_vesk_hb_record_sensor_values", "", disk_full,
         [](fault &f) {
             const owned_interval interval = make_interval();
             return writes(f, [&](writer *w) {
                 return binary_serializer_write_vesk_hb_record_sensor_values(interval.get(), w);
             });
         }},
        {"binary_serializer_read_vesk_hb_record_sensor_values", "",
         no_memory + expectations{{call_kind::read, {"none", "-48", "nread != 0"}}},
         [](fault &f) {
             return reads_again(
                 f, vesk_hb_record_sensor_values_init_null, vesk_hb_record_sensor_values_destruct,
                 binary_serializer_read_vesk_hb_record_sensor_values, "", body_of(interval_form));
         }},
    };
}

std::vector<fault_case> vesk_hb_record_cases()
{
    return {
        {"binary_serializer_write_vesk_hb_record", "", disk_full,
         [](fault &f) {
             const owned_interval interval = make_interval();
             vesk_hb_record rec;
             vesk_hb_record_init_sensor_values(&rec, interval.get());
             return writes(
                 f, [&](writer *w) { return binary_serializer_write_vesk_hb_record(&rec, w); });
         }},
        {"binary_serializer_read_vesk_hb_record", "names", no_memory + unreadable_strings,
         [](fault &f) { return reads_hb_record(f, "", names_form); }},
        {"binary_serializer_read_vesk_hb_record", "values_behind_names",
         no_memory + expectations{{call_kind::read, {"none", "-48", "nread != 0"}}},
         [](fault &f) { return reads_hb_record(f, names_form, interval_form); }},
        {"binary_serializer_read_vesk_hb_record",
         "values_again",
         {{call_kind::read, {"none", "-48", "nread != 0"}}},
         [](fault &f) { return reads_hb_record(f, interval_form, interval_form); }},
    };
}

} // namespace

std::vector<fault_case> buffer_record_cases()
{
    return joined({vesk_cb_record_event_cases(), vesk_cb_record_sensor_names_cases(),
                   vesk_cb_record_sensor_values_cases(), vesk_cb_record_cases(),
                   vesk_hb_record_events_cases(), vesk_hb_record_sensor_names_cases(),
                   vesk_hb_record_sensor_values_cases(), vesk_hb_record_cases()});
}
