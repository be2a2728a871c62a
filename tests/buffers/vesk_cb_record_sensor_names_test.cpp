// The record that names the sensors of a current buffer: what it shares with the vector, its stored
// form, and which counts and damaged bytes are refused.
#include <string>
#include <vector>

#include <vesk/error.h>
#include <vesk/vesk_cb_record_sensor_names.h>

#include "common/aborts.hpp"
#include "common/buffer_files.hpp"
#include "common/failing_calls.hpp"
#include "common/matrices.hpp"
#include "common/memory_streams.hpp"
#include "common/telemetry.hpp"

namespace
{

using owned_names = owned<vesk_cb_record_sensor_names, vesk_cb_record_sensor_names_destroy>;

owned_matrix sample_vector()
{
    return make_vector(1000, {{"a", 1}, {"b", 2}});
}

owned_names make_names(long seconds, const std::vector<reading> &readings)
{
    const owned_matrix vector = make_vector(seconds, readings);
    return owned_names(vesk_cb_record_sensor_names_create(vector.get()));
}

// The stored form without the type that precedes it in a buffer.
std::string stored_names(uint32_t seconds, const std::vector<std::string> &names)
{
    return stored_names_record(seconds, names).substr(4);
}

int read(vesk_cb_record_sensor_names *rec, const std::string &bytes)
{
    memory_reader source(bytes);
    return binary_serializer_read_vesk_cb_record_sensor_names(rec, source.get());
}

int read_new_names(const std::string &bytes)
{
    const owned_names rec(vesk_cb_record_sensor_names_create_null());
    return read(rec.get(), bytes);
}

} // namespace

TEST(CbRecordSensorNames, SharesTheSensorsOfTheVector)
{
    const owned_matrix vector = sample_vector();
    const sensor_array *sensors = telemetry_matrix_get_sensors(vector.get());
    vesk_cb_record_sensor_names rec;
    ASSERT_EQ(0, vesk_cb_record_sensor_names_init(&rec, vector.get()));
    EXPECT_EQ(1, rec.version);
    EXPECT_EQ(2U, vesk_cb_record_sensor_names_get_number_sensors(&rec));
    EXPECT_EQ(rec.sensors, vesk_cb_record_sensor_names_get_sensors(&rec));
    EXPECT_NE(sensors, rec.sensors);
    EXPECT_EQ(sensors->sensors, rec.sensors->sensors);
    EXPECT_EQ(2, *sensors->ref_count);
    EXPECT_EQ(1000, vesk_cb_record_sensor_names_get_timestamp(&rec)->tv.tv_sec);
    vesk_cb_record_sensor_names_destruct(&rec);
    EXPECT_EQ(0, rec.version);
    EXPECT_EQ(nullptr, rec.sensors);
    EXPECT_EQ(1, *sensors->ref_count);
}

TEST(CbRecordSensorNames, OutlivesTheVector)
{
    const owned_names rec = make_names(1000, {{"a", 1}, {"b", 2}});
    EXPECT_EQ(2U, vesk_cb_record_sensor_names_get_number_sensors(rec.get()));
    EXPECT_EQ(1, *rec->sensors->ref_count);
}

TEST(CbRecordSensorNames, NullRecordIsLiveAndEmpty)
{
    vesk_cb_record_sensor_names rec;
    ASSERT_EQ(0, vesk_cb_record_sensor_names_init_null(&rec));
    EXPECT_EQ(1, rec.version);
    EXPECT_NE(0, timestamp_is_null(&rec.timestamp));
    EXPECT_EQ(nullptr, vesk_cb_record_sensor_names_get_sensors(&rec));
    vesk_cb_record_sensor_names_destruct(&rec);
}

TEST(CbRecordSensorNames, DestroySetsThePointerToNull)
{
    vesk_cb_record_sensor_names *rec = vesk_cb_record_sensor_names_create_null();
    vesk_cb_record_sensor_names_destroy(&rec);
    EXPECT_EQ(nullptr, rec);
}

TEST(CbRecordSensorNames, CreateReportsEveryFailedAllocation)
{
    const owned_matrix vector = sample_vector();
    for (int n = 1; n <= 2; ++n) {
        qe_set_last_error(0);
        const failing_allocation failing(n);
        EXPECT_EQ(nullptr, vesk_cb_record_sensor_names_create(vector.get())) << n;
        EXPECT_EQ(-22, qe_get_last_error());
    }
    EXPECT_EQ(1, *telemetry_matrix_get_sensors(vector.get())->ref_count);
    qe_set_last_error(0);
    const failing_allocation failing(1);
    EXPECT_EQ(nullptr, vesk_cb_record_sensor_names_create_null());
    EXPECT_EQ(-22, qe_get_last_error());
}

TEST(CbRecordSensorNames, IsEqualByTimeAndSensors)
{
    const owned_names rec = make_names(1000, {{"a", 1}, {"b", 2}});
    const owned_names same = make_names(1000, {{"a", 5}, {"b", 6}});
    EXPECT_EQ(1, vesk_cb_record_sensor_names_is_equal(rec.get(), same.get()));
    EXPECT_EQ(1, vesk_cb_record_sensor_names_are_sensors_equal(rec.get(), same.get()));
    const owned_names later = make_names(1001, {{"a", 1}, {"b", 2}});
    EXPECT_EQ(0, vesk_cb_record_sensor_names_is_equal(rec.get(), later.get()));
    EXPECT_EQ(1, vesk_cb_record_sensor_names_are_sensors_equal(rec.get(), later.get()));
    const owned_names reordered = make_names(1000, {{"b", 1}, {"a", 2}});
    EXPECT_EQ(0, vesk_cb_record_sensor_names_is_equal(rec.get(), reordered.get()));
    EXPECT_EQ(0, vesk_cb_record_sensor_names_are_sensors_equal(rec.get(), reordered.get()));
}

TEST(CbRecordSensorNames, CopySharesTheSensors)
{
    const owned_names rec = make_names(1000, {{"a", 1}});
    const owned_names copy(vesk_cb_record_sensor_names_copy(rec.get(), nullptr));
    EXPECT_EQ(1, vesk_cb_record_sensor_names_is_equal(rec.get(), copy.get()));
    EXPECT_EQ(rec->sensors->sensors, copy->sensors->sensors);

    vesk_cb_record_sensor_names onto;
    EXPECT_EQ(&onto, vesk_cb_record_sensor_names_copy(rec.get(), &onto));
    EXPECT_EQ(1, onto.version);
    EXPECT_EQ(3, *rec->sensors->ref_count);
    vesk_cb_record_sensor_names_destruct(&onto);
}

TEST(CbRecordSensorNames, FailedCopyLeavesTheDestinationAlone)
{
    const owned_names rec = make_names(1000, {{"a", 1}});
    vesk_cb_record_sensor_names onto;
    vesk_cb_record_sensor_names_init_null(&onto);
    qe_set_last_error(0);
    {
        const failing_allocation failing(1);
        EXPECT_EQ(nullptr, vesk_cb_record_sensor_names_copy(rec.get(), &onto));
    }
    EXPECT_EQ(-22, qe_get_last_error());
    EXPECT_EQ(nullptr, onto.sensors);
    for (int n = 1; n <= 2; ++n) {
        const failing_allocation failing(n);
        EXPECT_EQ(nullptr, vesk_cb_record_sensor_names_copy(rec.get(), nullptr)) << n;
    }
    EXPECT_EQ(1, *rec->sensors->ref_count);
    vesk_cb_record_sensor_names_destruct(&onto);
}

TEST(CbRecordSensorNames, FormIsVersionTimestampAndSensors)
{
    const owned_names rec = make_names(0x5E0BE100, {{"a", 1}, {"bc", 2}});
    memory_writer target;
    EXPECT_EQ(28, binary_serializer_write_vesk_cb_record_sensor_names(rec.get(), target.get()));
    EXPECT_EQ(from_hex("01"
                       "01 5E 0B E1 00 00 00 00 00"
                       "01 00 00 00 02"
                       "01 00 00 00 01 61"
                       "01 00 00 00 02 62 63"),
              target.bytes());
}

TEST(CbRecordSensorNames, ReadsWhatWasWritten)
{
    const owned_names rec = make_names(1000, {{"a", 1}, {"bc", 2}});
    const std::string form = stored_names(1000, {"a", "bc"});
    const owned_names copy(vesk_cb_record_sensor_names_create_null());
    EXPECT_EQ(static_cast<int>(form.size()), read(copy.get(), form));
    EXPECT_EQ(1, vesk_cb_record_sensor_names_is_equal(rec.get(), copy.get()));
}

TEST(CbRecordSensorNames, ReadingReplacesTheSensors)
{
    const owned_names rec = make_names(1000, {{"a", 1}, {"b", 2}});
    EXPECT_LT(0, read(rec.get(), stored_names(1001, {"c"})));
    EXPECT_EQ(1U, vesk_cb_record_sensor_names_get_number_sensors(rec.get()));
}

TEST(CbRecordSensorNames, WritingStopsAtTheFirstFailure)
{
    const owned_names rec = make_names(1000, {{"a", 1}, {"b", 2}});
    const std::size_t size = stored_names(1000, {"a", "b"}).size();
    for (std::size_t room = 0; room < size; ++room) {
        memory_writer target(room, -41);
        EXPECT_EQ(-41, binary_serializer_write_vesk_cb_record_sensor_names(rec.get(), target.get()))
            << room;
    }
}

TEST(CbRecordSensorNames, RefusesToWriteMoreThanTenThousandSensors)
{
    owned_names rec(vesk_cb_record_sensor_names_create_null());
    rec->sensors = sensor_array_create_empty(10001);
    for (uint32_t i = 0; i < 10001; ++i) {
        sensor_array_get_sensors(rec->sensors)[i] = sensor_create("a");
    }
    memory_writer target;
    EXPECT_EQ(-49, binary_serializer_write_vesk_cb_record_sensor_names(rec.get(), target.get()));
    EXPECT_EQ(10U, target.bytes().size()) << "version and timestamp stay in the stream";
}

TEST(CbRecordSensorNames, DataThatEndsInsideGivesTheCodeOfThePlace)
{
    const std::string form = stored_names(1000, {"ab", "cd"});
    EXPECT_EQ(0, read_new_names(""));
    for (std::size_t n = 1; n < form.size(); ++n) {
        const std::string cut = form.substr(0, n);
        if (n == 16 || n == 23) {
            EXPECT_EQ(-43, read_new_names(cut)) << "before the length of a name";
        } else if (n == 20 || n == 27) {
            EXPECT_ABORTS(read_new_names(cut), "nread != 0");
        } else {
            EXPECT_EQ(-48, read_new_names(cut)) << n;
        }
    }
}

TEST(CbRecordSensorNames, FailureOfTheReaderIsPassedOn)
{
    const std::string form = stored_names(1000, {"ab", "cd"});
    for (std::size_t n = 0; n < form.size(); ++n) {
        memory_reader source(form.substr(0, n), -41);
        const owned_names rec(vesk_cb_record_sensor_names_create_null());
        EXPECT_EQ(-41, binary_serializer_read_vesk_cb_record_sensor_names(rec.get(), source.get()))
            << n;
    }
}

TEST(CbRecordSensorNames, RefusesOtherVersionsAndCounts)
{
    const std::string form = stored_names(1000, {"a"});
    std::string bad = form;
    bad[0] = 0;
    EXPECT_EQ(-12, read_new_names(bad));
    bad = form;
    bad[1] = 2;
    EXPECT_EQ(-12, read_new_names(bad)) << "that of the timestamp";
    bad = form;
    bad[10] = 2;
    EXPECT_EQ(-12, read_new_names(bad)) << "that of the sensor array";
    EXPECT_EQ(-49, read_new_names(form.substr(0, 11) + stored_u32(0)));
    EXPECT_EQ(-49, read_new_names(form.substr(0, 11) + stored_u32(10001)));
}

TEST(CbRecordSensorNames, ReadingWithoutMemoryGives22)
{
    const std::string form = stored_names(1000, {"a", "b"});
    for (int n = 1;; ++n) {
        const owned_names rec(vesk_cb_record_sensor_names_create_null());
        memory_reader source(form);
        const failing_allocation failing(n);
        const int nread =
            binary_serializer_read_vesk_cb_record_sensor_names(rec.get(), source.get());
        if (!failing_allocation::happened()) {
            EXPECT_EQ(static_cast<int>(form.size()), nread);
            break;
        }
        EXPECT_EQ(-22, nread) << n;
        EXPECT_EQ(nullptr, rec->sensors);
    }
}

TEST(CbRecordSensorNames, AbortsOnVectorsThatAreNone)
{
    vesk_cb_record_sensor_names rec;
    EXPECT_ABORTS(vesk_cb_record_sensor_names_init(nullptr, nullptr), "rec != ((void *)0)");
    EXPECT_ABORTS(vesk_cb_record_sensor_names_init(&rec, nullptr), "vector != ((void *)0)");
    const owned_matrix two_rows = make_telemetry({{1, 2}, {3, 4}}, {"a", "b"}, {1, 2});
    EXPECT_ABORTS(vesk_cb_record_sensor_names_init(&rec, two_rows.get()),
                  "matrix_get_number_rows (vector) == 1");
    const owned_matrix plain = make_matrix({{1, 2}});
    EXPECT_ABORTS(vesk_cb_record_sensor_names_init(&rec, plain.get()),
                  "m->type == MATRIX_TYPE_TELEMETRY");
    const owned_matrix vector = sample_vector();
    timestamp **timestamps =
        timestamp_array_get_timestamps(telemetry_matrix_get_timestamps(vector.get()));
    timestamp_destroy(&timestamps[0]);
    EXPECT_ABORTS(vesk_cb_record_sensor_names_init(&rec, vector.get()),
                  "timestamps[0] != ((void *)0)");
}

TEST(CbRecordSensorNames, AbortsOnDeadRecords)
{
    const owned_names live = make_names(1, {{"a", 1}});
    vesk_cb_record_sensor_names dead;
    vesk_cb_record_sensor_names_init_null(&dead);
    vesk_cb_record_sensor_names_destruct(&dead);
    memory_writer target;
    memory_reader source("");
    const char *const text = "rec->version > 0";
    EXPECT_ABORTS(vesk_cb_record_sensor_names_destruct(&dead), text);
    EXPECT_ABORTS(vesk_cb_record_sensor_names_copy(&dead, nullptr), text);
    EXPECT_ABORTS(vesk_cb_record_sensor_names_get_number_sensors(&dead), text);
    EXPECT_ABORTS(vesk_cb_record_sensor_names_get_sensors(&dead), text);
    EXPECT_ABORTS(vesk_cb_record_sensor_names_get_timestamp(&dead), text);
    EXPECT_ABORTS(vesk_cb_record_sensor_names_is_equal(&dead, live.get()), "rec1->version > 0");
    EXPECT_ABORTS(vesk_cb_record_sensor_names_is_equal(live.get(), &dead), "rec2->version > 0");
    EXPECT_ABORTS(vesk_cb_record_sensor_names_are_sensors_equal(&dead, live.get()),
                  "rec1->version > 0");
    EXPECT_ABORTS(vesk_cb_record_sensor_names_are_sensors_equal(live.get(), &dead),
                  "rec2->version > 0");
    EXPECT_ABORTS(binary_serializer_write_vesk_cb_record_sensor_names(&dead, target.get()),
                  "rec->version == 1");
    EXPECT_ABORTS(binary_serializer_read_vesk_cb_record_sensor_names(&dead, source.get()),
                  "rec->version == 1");
}

TEST(CbRecordSensorNames, AbortsOnNullPointers)
{
    const owned_names rec = make_names(1, {{"a", 1}});
    vesk_cb_record_sensor_names *none = nullptr;
    memory_writer target;
    memory_reader source("");
    const char *const text = "rec != ((void *)0)";
    EXPECT_ABORTS(vesk_cb_record_sensor_names_init_null(nullptr), text);
    EXPECT_ABORTS(vesk_cb_record_sensor_names_destruct(nullptr), text);
    EXPECT_ABORTS(vesk_cb_record_sensor_names_destroy(nullptr), text);
    EXPECT_ABORTS(vesk_cb_record_sensor_names_destroy(&none), "*rec != ((void *)0)");
    EXPECT_ABORTS(vesk_cb_record_sensor_names_copy(nullptr, nullptr), text);
    EXPECT_ABORTS(vesk_cb_record_sensor_names_get_number_sensors(nullptr), text);
    EXPECT_ABORTS(vesk_cb_record_sensor_names_get_sensors(nullptr), text);
    EXPECT_ABORTS(vesk_cb_record_sensor_names_get_timestamp(nullptr), text);
    EXPECT_ABORTS(vesk_cb_record_sensor_names_is_equal(nullptr, rec.get()), "rec1 != ((void *)0)");
    EXPECT_ABORTS(vesk_cb_record_sensor_names_is_equal(rec.get(), nullptr), "rec2 != ((void *)0)");
    EXPECT_ABORTS(vesk_cb_record_sensor_names_are_sensors_equal(nullptr, rec.get()),
                  "rec1 != ((void *)0)");
    EXPECT_ABORTS(vesk_cb_record_sensor_names_are_sensors_equal(rec.get(), nullptr),
                  "rec2 != ((void *)0)");
    EXPECT_ABORTS(binary_serializer_write_vesk_cb_record_sensor_names(nullptr, target.get()), text);
    EXPECT_ABORTS(binary_serializer_write_vesk_cb_record_sensor_names(rec.get(), nullptr),
                  "writer != ((void *)0)");
    EXPECT_ABORTS(binary_serializer_read_vesk_cb_record_sensor_names(nullptr, source.get()), text);
    EXPECT_ABORTS(binary_serializer_read_vesk_cb_record_sensor_names(rec.get(), nullptr),
                  "reader != ((void *)0)");
}
