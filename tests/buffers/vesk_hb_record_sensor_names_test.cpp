// The record that names the sensors of a history: made of a list of summaries, and otherwise the
// record of a current buffer.
#include <string>

#include <vesk/error.h>
#include <vesk/vesk_hb_record_sensor_names.h>

#include "common/aborts.hpp"
#include "common/buffer_files.hpp"
#include "common/failing_calls.hpp"
#include "common/history.hpp"
#include "common/memory_streams.hpp"
#include "common/telemetry.hpp"

namespace
{

using owned_hist_names = owned<vesk_hb_record_sensor_names, vesk_hb_record_sensor_names_destroy>;

owned_hist_names make_names(long seconds, const owned_hist_list &list)
{
    const timestamp t = make_timestamp(seconds);
    return owned_hist_names(vesk_hb_record_sensor_names_create(&t, list.get()));
}

} // namespace

TEST(HbRecordSensorNames, TakesTheSensorsOfTheListInItsOrder)
{
    // Buckets decide the order: "b" comes behind "a", whoever was seen first.
    const owned_hist_list list = make_list({{"b", {1}}, {"a", {2}}});
    const timestamp t = make_timestamp(1000);
    vesk_hb_record_sensor_names rec;
    ASSERT_EQ(0, vesk_hb_record_sensor_names_init(&rec, &t, list.get()));
    EXPECT_EQ(1, rec.version);
    EXPECT_EQ(1000, vesk_hb_record_sensor_names_get_timestamp(&rec)->tv.tv_sec);
    ASSERT_EQ(2U, vesk_hb_record_sensor_names_get_number_sensors(&rec));
    const sensor_array *sensors = vesk_hb_record_sensor_names_get_sensors(&rec);
    EXPECT_STREQ("a", sensor_array_get(sensors, 0)->canonical->name);
    EXPECT_STREQ("b", sensor_array_get(sensors, 1)->canonical->name);
    vesk_hb_record_sensor_names_destruct(&rec);
    EXPECT_EQ(0, rec.version);
}

TEST(HbRecordSensorNames, AnEmptyListIsRefused)
{
    const owned_hist_list list = make_list({});
    const timestamp t = make_timestamp(1000);
    vesk_hb_record_sensor_names rec;
    qe_set_last_error(0);
    EXPECT_EQ(-6, vesk_hb_record_sensor_names_init(&rec, &t, list.get()));
    EXPECT_EQ(nullptr, vesk_hb_record_sensor_names_create(&t, list.get()));
    EXPECT_EQ(-6, qe_get_last_error());
    qe_set_last_error(-40);
    EXPECT_EQ(-40, vesk_hb_record_sensor_names_init(&rec, &t, list.get()))
        << "the list says nothing, so an older failure shows";
}

TEST(HbRecordSensorNames, CreateReportsEveryFailedAllocation)
{
    const owned_hist_list list = make_list({{"a", {1}}, {"b", {2}}});
    const timestamp t = make_timestamp(1000);
    for (int n = 1;; ++n) {
        qe_set_last_error(0);
        const failing_allocation failing(n);
        const owned_hist_names rec(vesk_hb_record_sensor_names_create(&t, list.get()));
        if (!failing_allocation::happened()) {
            EXPECT_TRUE(rec);
            EXPECT_LT(2, n);
            break;
        }
        EXPECT_FALSE(rec) << n;
        EXPECT_EQ(-22, qe_get_last_error());
    }
}

TEST(HbRecordSensorNames, IsTheRecordOfACurrentBuffer)
{
    const owned_hist_list list = make_list({{"a", {1}}, {"b", {2}}});
    const owned_hist_names rec = make_names(1000, list);
    const std::string form = stored_names_record(1000, {"a", "b"}).substr(4);
    memory_writer target;
    EXPECT_EQ(static_cast<int>(form.size()),
              binary_serializer_write_vesk_hb_record_sensor_names(rec.get(), target.get()));
    EXPECT_EQ(form, target.bytes());

    const owned_hist_names read_back(vesk_hb_record_sensor_names_create_null());
    memory_reader source(form);
    EXPECT_EQ(static_cast<int>(form.size()),
              binary_serializer_read_vesk_hb_record_sensor_names(read_back.get(), source.get()));
    EXPECT_EQ(1, vesk_hb_record_sensor_names_is_equal(rec.get(), read_back.get()));
}

TEST(HbRecordSensorNames, ComparesAndCopiesLikeThatRecord)
{
    const owned_hist_list list = make_list({{"a", {1}}, {"b", {2}}});
    const owned_hist_names rec = make_names(1000, list);
    const owned_hist_names later = make_names(1001, list);
    EXPECT_EQ(0, vesk_hb_record_sensor_names_is_equal(rec.get(), later.get()));
    EXPECT_EQ(1, vesk_hb_record_sensor_names_are_sensors_equal(rec.get(), later.get()));
    const owned_hist_names copy(vesk_hb_record_sensor_names_copy(rec.get(), nullptr));
    EXPECT_EQ(1, vesk_hb_record_sensor_names_is_equal(rec.get(), copy.get()));
    EXPECT_EQ(2, *rec->sensors->ref_count);
}

TEST(HbRecordSensorNames, NullRecordIsLiveAndEmpty)
{
    vesk_hb_record_sensor_names rec;
    EXPECT_EQ(0, vesk_hb_record_sensor_names_init_null(&rec));
    EXPECT_EQ(1, rec.version);
    EXPECT_EQ(nullptr, vesk_hb_record_sensor_names_get_sensors(&rec));
    vesk_hb_record_sensor_names_destruct(&rec);
}

TEST(HbRecordSensorNames, AbortsOnNullPointers)
{
    const owned_hist_list list = make_list({{"a", {1}}});
    const timestamp t = make_timestamp(1000);
    vesk_hb_record_sensor_names rec;
    vesk_hb_record_sensor_names *none = nullptr;
    EXPECT_ABORTS(vesk_hb_record_sensor_names_init(nullptr, &t, list.get()), "rec != ((void *)0)");
    EXPECT_ABORTS(vesk_hb_record_sensor_names_init(&rec, nullptr, list.get()),
                  "timestamp != ((void *)0)");
    EXPECT_ABORTS(vesk_hb_record_sensor_names_init(&rec, &t, nullptr), "hvlist != ((void *)0)");
    EXPECT_ABORTS(vesk_hb_record_sensor_names_init_null(nullptr), "rec != ((void *)0)");
    EXPECT_ABORTS(vesk_hb_record_sensor_names_destroy(&none), "*rec != ((void *)0)");
    EXPECT_ABORTS(vesk_hb_record_sensor_names_get_sensors(nullptr), "rec != ((void *)0)");
}
