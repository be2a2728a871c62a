// The record that holds the values of one vector: where it takes them from, its stored form to the
// last bit, and which counts and damaged bytes are refused.
#include <bit>
#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

#include <vesk/error.h>
#include <vesk/raw_writer.h>
#include <vesk/sensor_value.h>
#include <vesk/vesk_cb_record_sensor_values.h>
#include <vesk/zlib_writer.h>

#include "common/aborts.hpp"
#include "common/buffer_files.hpp"
#include "common/failing_calls.hpp"
#include "common/matrices.hpp"
#include "common/memory_streams.hpp"
#include "common/telemetry.hpp"
#include "common/temporary_directory.hpp"

namespace
{

using owned_values = owned<vesk_cb_record_sensor_values, vesk_cb_record_sensor_values_destroy>;

// The stored form without the type that precedes it in a buffer.
std::string stored_values(uint32_t seconds, const std::vector<float> &values)
{
    return stored_values_record(seconds, values).substr(4);
}

// A vector of `n` sensors that all have the name "a"; value number i is i / 8.
owned_matrix make_wide_vector(uint32_t n)
{
    matrix *values = matrix_create(1, n);
    sensor_array *sensors = sensor_array_create_empty(n);
    for (uint32_t i = 0; i < n; ++i) {
        matrix_set(values, 0, i, i / 8.0);
        sensor_array_get_sensors(sensors)[i] = sensor_create("a");
    }
    const timestamp t = make_timestamp(1000);
    return owned_matrix(telemetry_matrix_create_vector(values, sensors, &t));
}

std::vector<float> wide_values(uint32_t n)
{
    std::vector<float> values(n);
    for (uint32_t i = 0; i < n; ++i) {
        values[i] = static_cast<float>(i) / 8;
    }
    return values;
}

int write_values(const vesk_cb_record_sensor_values *rec, memory_writer &target)
{
    return binary_serializer_write_vesk_cb_record_sensor_values(rec, target.get());
}

int read(vesk_cb_record_sensor_values *rec, const std::string &bytes)
{
    memory_reader source(bytes);
    return binary_serializer_read_vesk_cb_record_sensor_values(rec, source.get());
}

int read_new_values(const std::string &bytes)
{
    const owned_values rec(vesk_cb_record_sensor_values_create_null());
    return read(rec.get(), bytes);
}

// A record with an array of its own.
owned_values make_values(uint32_t seconds, const std::vector<float> &values)
{
    owned_values rec(vesk_cb_record_sensor_values_create_null());
    EXPECT_LT(0, read(rec.get(), stored_values(seconds, values)));
    return rec;
}

} // namespace

TEST(CbRecordSensorValues, BorrowsTheVector)
{
    const owned_matrix vector = make_vector(1000, {{"a", 1}, {"b", 2}});
    vesk_cb_record_sensor_values rec;
    ASSERT_EQ(0, vesk_cb_record_sensor_values_init(&rec, vector.get()));
    EXPECT_EQ(1, rec.version);
    EXPECT_EQ(2U, vesk_cb_record_sensor_values_get_number_values(&rec));
    EXPECT_EQ(1000, vesk_cb_record_sensor_values_get_timestamp(&rec)->tv.tv_sec);
    EXPECT_EQ(nullptr, rec.values);
    EXPECT_EQ(vector.get(), rec.vector);
    vesk_cb_record_sensor_values_destruct(&rec);
    EXPECT_EQ(0, rec.version);
    EXPECT_EQ(nullptr, rec.vector);
    EXPECT_EQ(2, matrix_get(vector.get(), 0, 1)) << "the vector is left alone";
}

TEST(CbRecordSensorValues, NullRecordIsLiveAndEmpty)
{
    vesk_cb_record_sensor_values rec;
    ASSERT_EQ(0, vesk_cb_record_sensor_values_init_null(&rec));
    EXPECT_EQ(1, rec.version);
    EXPECT_NE(0, timestamp_is_null(&rec.timestamp));
    EXPECT_EQ(0U, rec.n_sensors);
    EXPECT_EQ(nullptr, rec.values);
    EXPECT_EQ(nullptr, rec.vector);
    vesk_cb_record_sensor_values_destruct(&rec);
}

TEST(CbRecordSensorValues, DestroySetsThePointerToNull)
{
    vesk_cb_record_sensor_values *rec = vesk_cb_record_sensor_values_create_null();
    vesk_cb_record_sensor_values_destroy(&rec);
    EXPECT_EQ(nullptr, rec);
}

TEST(CbRecordSensorValues, CreateWithoutMemoryLeavesTheCode)
{
    const owned_matrix vector = make_vector(1, {{"a", 1}});
    qe_set_last_error(0);
    {
        const failing_allocation failing(1);
        EXPECT_EQ(nullptr, vesk_cb_record_sensor_values_create(vector.get()));
    }
    EXPECT_EQ(-22, qe_get_last_error());
    qe_set_last_error(0);
    {
        const failing_allocation failing(1);
        EXPECT_EQ(nullptr, vesk_cb_record_sensor_values_create_null());
    }
    EXPECT_EQ(-22, qe_get_last_error());
}

TEST(CbRecordSensorValues, GetValuesTurnsTheVectorIntoAnArray)
{
    const owned_matrix vector = make_vector(1, {{"a", 0.1}, {"b", 2}});
    const owned_values rec(vesk_cb_record_sensor_values_create(vector.get()));
    const float *values = vesk_cb_record_sensor_values_get_values(rec.get());
    ASSERT_NE(nullptr, values);
    EXPECT_EQ(0.1F, values[0]);
    EXPECT_EQ(2.0F, values[1]);
    EXPECT_EQ(nullptr, rec->vector);
    EXPECT_EQ(values, vesk_cb_record_sensor_values_get_values(rec.get()));
}

TEST(CbRecordSensorValues, GetValuesWithoutMemoryKeepsTheVector)
{
    const owned_matrix vector = make_vector(1, {{"a", 1}});
    const owned_values rec(vesk_cb_record_sensor_values_create(vector.get()));
    qe_set_last_error(0);
    const failing_allocation failing(1);
    EXPECT_EQ(nullptr, vesk_cb_record_sensor_values_get_values(rec.get()));
    EXPECT_EQ(-22, qe_get_last_error());
    EXPECT_EQ(vector.get(), rec->vector);
}

TEST(CbRecordSensorValues, ComparesVectorsAndArraysInEveryMixture)
{
    const owned_matrix vector = make_vector(1000, {{"a", 1}, {"b", 2}});
    const owned_matrix same = make_vector(1000, {{"a", 1}, {"b", 2.0000001}});
    const owned_matrix other = make_vector(1000, {{"a", 1}, {"b", 2.1}});
    const owned_values from_vector(vesk_cb_record_sensor_values_create(vector.get()));
    const owned_values from_same(vesk_cb_record_sensor_values_create(same.get()));
    const owned_values from_other(vesk_cb_record_sensor_values_create(other.get()));
    const owned_values array = make_values(1000, {1, 2});
    const owned_values other_array = make_values(1000, {1.5F, 2});

    const auto equal = vesk_cb_record_sensor_values_is_equal;
    EXPECT_EQ(1, equal(from_vector.get(), from_same.get()));
    EXPECT_EQ(0, equal(from_vector.get(), from_other.get()));
    EXPECT_EQ(1, equal(from_vector.get(), array.get()));
    EXPECT_EQ(1, equal(array.get(), from_vector.get()));
    EXPECT_EQ(0, equal(from_other.get(), array.get()));
    EXPECT_EQ(0, equal(other_array.get(), from_vector.get()));
    EXPECT_EQ(1, equal(array.get(), array.get()));
    EXPECT_EQ(0, equal(array.get(), other_array.get()));
}

TEST(CbRecordSensorValues, TimeAndNumberOfValuesCountToo)
{
    const owned_values rec = make_values(1000, {1, 2});
    const owned_values later = make_values(1001, {1, 2});
    const owned_values more = make_values(1000, {1, 2, 3});
    EXPECT_EQ(0, vesk_cb_record_sensor_values_is_equal(rec.get(), later.get()));
    EXPECT_EQ(0, vesk_cb_record_sensor_values_is_equal(rec.get(), more.get()));
}

TEST(CbRecordSensorValues, MissingValuesAreEqual)
{
    const owned_values rec = make_values(1000, {_qe_invalid_sensor_value, 2});
    const owned_matrix vector = make_vector(1000, {{"a", NAN}, {"b", 2}});
    const owned_values from_vector(vesk_cb_record_sensor_values_create(vector.get()));
    EXPECT_EQ(1, vesk_cb_record_sensor_values_is_equal(rec.get(), from_vector.get()));
}

TEST(CbRecordSensorValues, FormIsVersionTimestampCountAndFloats)
{
    const owned_matrix vector = make_vector(0x5E0BE100, {{"a", 1}, {"b", -0.1}});
    const owned_values rec(vesk_cb_record_sensor_values_create(vector.get()));
    memory_writer target;
    EXPECT_EQ(22, write_values(rec.get(), target));
    const std::string form = from_hex("01"
                                      "01 5E 0B E1 00 00 00 00 00"
                                      "00 00 00 02"
                                      "3F 80 00 00"
                                      "BD CC CC CD");
    EXPECT_EQ(form, target.bytes());

    vesk_cb_record_sensor_values_get_values(rec.get());
    memory_writer from_array;
    EXPECT_EQ(22, write_values(rec.get(), from_array));
    EXPECT_EQ(form, from_array.bytes());
}

TEST(CbRecordSensorValues, WritesVectorsWithoutDirectAccessToo)
{
    // A view has no row pointers; dressing it as a vector would give it some.
    const owned_matrix view = make_view({{1, 2, 3}});
    vesk_cb_record_sensor_values rec;
    vesk_cb_record_sensor_values_init_null(&rec);
    rec.timestamp = make_timestamp(1000);
    rec.n_sensors = 3;
    rec.vector = view.get();
    memory_writer target;
    EXPECT_LT(0, write_values(&rec, target));
    EXPECT_EQ(stored_values(1000, {1, 2, 3}), target.bytes());
    rec.n_sensors = 4;
    EXPECT_ABORTS(write_values(&rec, target), "i < m->nrows");
    vesk_cb_record_sensor_values_destruct(&rec);
}

// The columns that a slot was asked for, and the slot that answers.
static std::vector<uint32_t> asked;
static double (*get_below)(void *, uint32_t, uint32_t);

static double get_and_note(void *object, uint32_t i, uint32_t j)
{
    asked.push_back(j);
    return get_below(object, i, j);
}

TEST(CbRecordSensorValues, AsksAVectorWithoutDirectAccessForEachValueOnce)
{
    const owned_matrix vector = make_vector(1000, {{"a", 1}, {"b", 2}, {"c", 3}});
    get_below = vector->fn_get;
    vector->fn_get = get_and_note;
    vector->values = nullptr;
    const std::vector<uint32_t> each_once = {0, 1, 2};
    const owned_values rec(vesk_cb_record_sensor_values_create(vector.get()));

    asked.clear();
    memory_writer target;
    EXPECT_LT(0, write_values(rec.get(), target));
    EXPECT_EQ(stored_values(1000, {1, 2, 3}), target.bytes());
    EXPECT_EQ(each_once, asked);

    asked.clear();
    EXPECT_EQ(3.0F, vesk_cb_record_sensor_values_get_values(rec.get())[2]);
    EXPECT_EQ(each_once, asked);
    // From now on the record has values of its own.
    EXPECT_EQ(3.0F, vesk_cb_record_sensor_values_get_values(rec.get())[2]);
    EXPECT_EQ(each_once, asked);
}

TEST(CbRecordSensorValues, AbortsWhenTheVectorHasLostColumns)
{
    const owned_matrix vector = make_vector(1000, {{"a", 1}, {"b", 2}, {"c", 3}});
    const owned_values rec(vesk_cb_record_sensor_values_create(vector.get()));
    ASSERT_EQ(0, matrix_resize(const_cast<matrix *>(vector.get()), 1, 2));
    memory_writer target;
    EXPECT_ABORTS(write_values(rec.get(), target), "j < m->ncols");
    EXPECT_ABORTS(vesk_cb_record_sensor_values_get_values(rec.get()), "j < m->ncols");
}

TEST(CbRecordSensorValues, EveryNumberOfValuesIsWrittenAndReadBack)
{
    for (const uint32_t n : {1U, 511U, 512U, 513U, 1024U, 10000U}) {
        const owned_matrix vector = make_wide_vector(n);
        const owned_values rec(vesk_cb_record_sensor_values_create(vector.get()));
        memory_writer target;
        EXPECT_EQ(static_cast<int>(14 + 4 * n), write_values(rec.get(), target));
        EXPECT_EQ(stored_values(1000, wide_values(n)), target.bytes()) << n;
        const owned_values copy(vesk_cb_record_sensor_values_create_null());
        EXPECT_EQ(static_cast<int>(14 + 4 * n), read(copy.get(), target.bytes()));
        EXPECT_EQ(1, vesk_cb_record_sensor_values_is_equal(rec.get(), copy.get())) << n;
    }
}

TEST(CbRecordSensorValues, AFileIsTheSameHoweverTheValuesAreHandedOver)
{
    // The compressing writer cuts its own blocks.
    const temporary_directory directory;
    const owned_matrix vector = make_wide_vector(3000);
    const owned_values rec(vesk_cb_record_sensor_values_create(vector.get()));
    const std::string form = stored_values(1000, wide_values(3000));
    for (const bool one_by_one : {false, true}) {
        const std::string path = directory.file(one_by_one ? "bytes" : "record");
        owned<writer, writer_destroy> target(
            zlib_writer_create(raw_writer_create(fopen(path.c_str(), "w"), 0)));
        int result = 0;
        if (one_by_one) {
            for (const char &byte : form) {
                result += writer_write_bytes(target.get(), &byte, 1);
            }
        } else {
            result = binary_serializer_write_vesk_cb_record_sensor_values(rec.get(), target.get());
        }
        EXPECT_EQ(static_cast<int>(read_file(path).size()), result);
    }
    EXPECT_EQ(read_file(directory.file("bytes")), read_file(directory.file("record")));
}

TEST(CbRecordSensorValues, MoreThanTenThousandValuesAreNotWritten)
{
    const owned_matrix vector = make_wide_vector(10001);
    const owned_values rec(vesk_cb_record_sensor_values_create(vector.get()));
    memory_writer target;
    EXPECT_EQ(-49, write_values(rec.get(), target));
    EXPECT_EQ("", target.bytes());
}

TEST(CbRecordSensorValues, CountsOutOfRangeAreNotRead)
{
    const std::string head = stored_values(1000, {1}).substr(0, 10);
    EXPECT_EQ(-6, read_new_values(head + stored_u32(0)));
    EXPECT_EQ(-6, read_new_values(head + stored_u32(10001) + std::string(40004, '\0')));
    EXPECT_EQ(-6, read_new_values(head + stored_u32(UINT32_MAX)));
}

TEST(CbRecordSensorValues, KeepsEveryBitOfAValue)
{
    for (const uint32_t bits : {0x7FFFFFFFU, 0x7FC00000U, 0xFFC12345U, 0x7F800001U, 0x7F800000U,
                                0xFF800000U, 0x80000000U, 0x00000001U}) {
        const std::string form = stored_values(1000, {1}).substr(0, 14) + stored_u32(bits);
        const owned_values rec(vesk_cb_record_sensor_values_create_null());
        ASSERT_EQ(18, read(rec.get(), form));
        memory_writer target;
        ASSERT_EQ(18, write_values(rec.get(), target));
        EXPECT_EQ(form, target.bytes()) << std::hex << bits;
    }
}

TEST(CbRecordSensorValues, TheMissingValueSurvivesTheVector)
{
    const owned_matrix vector = make_vector(1000, {{"a", _qe_invalid_sensor_value}});
    const owned_values rec(vesk_cb_record_sensor_values_create(vector.get()));
    memory_writer target;
    ASSERT_EQ(18, write_values(rec.get(), target));
    EXPECT_EQ(from_hex("7F FF FF FF"), target.bytes().substr(14));
}

TEST(CbRecordSensorValues, ReadingReusesAnArrayOfTheRightLength)
{
    const owned_values rec = make_values(1000, {1, 2, 3});
    const float *array = rec->values;
    ASSERT_LT(0, read(rec.get(), stored_values(1001, {4, 5, 6})));
    EXPECT_EQ(array, rec->values);
    EXPECT_EQ(6.0F, rec->values[2]);
    ASSERT_LT(0, read(rec.get(), stored_values(1002, {7, 8})));
    EXPECT_EQ(2U, rec->n_sensors);
    EXPECT_EQ(8.0F, rec->values[1]);
}

TEST(CbRecordSensorValues, ReadingLetsGoOfAVector)
{
    const owned_matrix vector = make_vector(1, {{"a", 1}});
    const owned_values rec(vesk_cb_record_sensor_values_create(vector.get()));
    ASSERT_LT(0, read(rec.get(), stored_values(1000, {5})));
    EXPECT_EQ(nullptr, rec->vector);
    EXPECT_EQ(5.0F, rec->values[0]);
}

TEST(CbRecordSensorValues, ReadingWithoutMemoryGives22)
{
    const owned_values rec = make_values(1000, {1, 2, 3});
    const std::string form = stored_values(1001, {4, 5});
    memory_reader source(form);
    const failing_allocation failing(1);
    EXPECT_EQ(-22, binary_serializer_read_vesk_cb_record_sensor_values(rec.get(), source.get()));
    EXPECT_EQ(nullptr, rec->values);
    EXPECT_EQ(0U, rec->n_sensors);
}

TEST(CbRecordSensorValues, DataThatEndsInsideGives48)
{
    const std::string form = stored_values(1000, {1, 2, 3});
    EXPECT_EQ(0, read_new_values(""));
    for (std::size_t n = 1; n < form.size(); ++n) {
        EXPECT_EQ(-48, read_new_values(form.substr(0, n))) << n;
    }
}

TEST(CbRecordSensorValues, ReadsOneValueAtATimeFromReadersItDoesNotKnow)
{
    // Such a reader may draw its faults by the call, so the calls are part of what it yields.
    memory_reader source(stored_values(1000, {1, 2, 3}));
    source.get()->type = READER_TYPE_GARBAGE;
    const owned_values rec(vesk_cb_record_sensor_values_create_null());
    static std::vector<uint32_t> sizes;
    sizes.clear();
    static int (*read_bytes)(void *, void *, uint32_t);
    read_bytes = source.get()->fn_read_bytes;
    source.get()->fn_read_bytes = [](void *self, void *buffer, uint32_t n) {
        sizes.push_back(n);
        return read_bytes(self, buffer, n);
    };
    EXPECT_EQ(26, binary_serializer_read_vesk_cb_record_sensor_values(rec.get(), source.get()));
    EXPECT_EQ((std::vector<uint32_t>{1, 1, 4, 4, 4, 4, 4, 4}), sizes);
    EXPECT_EQ(3.0F, rec->values[2]);
}

TEST(CbRecordSensorValues, FailureOfTheReaderIsPassedOn)
{
    const std::string form = stored_values(1000, {1, 2, 3});
    for (std::size_t n = 0; n < form.size(); ++n) {
        memory_reader source(form.substr(0, n), -41);
        const owned_values rec(vesk_cb_record_sensor_values_create_null());
        EXPECT_EQ(-41, binary_serializer_read_vesk_cb_record_sensor_values(rec.get(), source.get()))
            << n;
    }
}

TEST(CbRecordSensorValues, WritingStopsAtTheFirstFailure)
{
    const owned_values rec = make_values(1000, {1, 2, 3});
    for (std::size_t room = 0; room < 26; ++room) {
        memory_writer target(room, -41);
        EXPECT_EQ(-41, write_values(rec.get(), target)) << room;
    }
}

TEST(CbRecordSensorValues, RefusesOtherVersions)
{
    std::string form = stored_values(1000, {1});
    form[0] = 2;
    EXPECT_EQ(-12, read_new_values(form));
}

TEST(CbRecordSensorValues, AbortsOnVectorsThatAreNone)
{
    vesk_cb_record_sensor_values rec;
    EXPECT_ABORTS(vesk_cb_record_sensor_values_init(nullptr, nullptr), "rec != ((void *)0)");
    EXPECT_ABORTS(vesk_cb_record_sensor_values_init(&rec, nullptr), "vector != ((void *)0)");
    const owned_matrix two_rows = make_telemetry({{1, 2}, {3, 4}}, {"a", "b"}, {1, 2});
    EXPECT_ABORTS(vesk_cb_record_sensor_values_init(&rec, two_rows.get()),
                  "matrix_get_number_rows (vector) == 1");
    const owned_matrix plain = make_matrix({{1, 2}});
    EXPECT_ABORTS(vesk_cb_record_sensor_values_init(&rec, plain.get()),
                  "m->type == MATRIX_TYPE_TELEMETRY");
    const owned_matrix vector = make_vector(1, {{"a", 1}});
    timestamp **timestamps =
        timestamp_array_get_timestamps(telemetry_matrix_get_timestamps(vector.get()));
    timestamp_destroy(&timestamps[0]);
    EXPECT_ABORTS(vesk_cb_record_sensor_values_init(&rec, vector.get()),
                  "timestamps[0] != ((void *)0)");
}

TEST(CbRecordSensorValues, HasOneSourceOfValues)
{
    const owned_matrix vector = make_vector(1, {{"a", 1}});
    const owned_values null(vesk_cb_record_sensor_values_create_null());
    const owned_values both = make_values(1, {1});
    both->vector = vector.get();
    memory_writer target;
    const char *const text = "(rec->values == ((void *)0)) ^ (rec->vector == ((void *)0))";
    EXPECT_ABORTS(vesk_cb_record_sensor_values_get_values(null.get()), text);
    EXPECT_ABORTS(vesk_cb_record_sensor_values_get_values(both.get()), text);
    EXPECT_ABORTS(write_values(null.get(), target), text);
    EXPECT_ABORTS(write_values(both.get(), target), text);
    EXPECT_ABORTS(vesk_cb_record_sensor_values_is_equal(null.get(), both.get()),
                  "(rec1->values == ((void *)0)) ^ (rec1->vector == ((void *)0))");
    EXPECT_ABORTS(vesk_cb_record_sensor_values_destruct(both.get()), "rec->vector == ((void *)0)");
    both->vector = nullptr;
    EXPECT_ABORTS(vesk_cb_record_sensor_values_is_equal(both.get(), null.get()),
                  "(rec2->values == ((void *)0)) ^ (rec2->vector == ((void *)0))");
}

TEST(CbRecordSensorValues, AbortsOnDeadRecords)
{
    const owned_values live = make_values(1, {1});
    vesk_cb_record_sensor_values dead;
    vesk_cb_record_sensor_values_init_null(&dead);
    vesk_cb_record_sensor_values_destruct(&dead);
    memory_writer target;
    memory_reader source("");
    const char *const text = "rec->version == ((char) 1)";
    EXPECT_ABORTS(vesk_cb_record_sensor_values_destruct(&dead), text);
    EXPECT_ABORTS(vesk_cb_record_sensor_values_get_number_values(&dead), text);
    EXPECT_ABORTS(vesk_cb_record_sensor_values_get_timestamp(&dead), text);
    EXPECT_ABORTS(vesk_cb_record_sensor_values_get_values(&dead), text);
    EXPECT_ABORTS(write_values(&dead, target), text);
    EXPECT_ABORTS(binary_serializer_read_vesk_cb_record_sensor_values(&dead, source.get()), text);
    EXPECT_ABORTS(vesk_cb_record_sensor_values_is_equal(&dead, live.get()),
                  "rec1->version == ((char) 1)");
    EXPECT_ABORTS(vesk_cb_record_sensor_values_is_equal(live.get(), &dead),
                  "rec2->version == ((char) 1)");
}

TEST(CbRecordSensorValues, AbortsOnNullPointers)
{
    const owned_values rec = make_values(1, {1});
    vesk_cb_record_sensor_values *none = nullptr;
    memory_writer target;
    memory_reader source("");
    const char *const text = "rec != ((void *)0)";
    EXPECT_ABORTS(vesk_cb_record_sensor_values_init_null(nullptr), text);
    EXPECT_ABORTS(vesk_cb_record_sensor_values_destruct(nullptr), text);
    EXPECT_ABORTS(vesk_cb_record_sensor_values_destroy(nullptr), text);
    EXPECT_ABORTS(vesk_cb_record_sensor_values_destroy(&none), "*rec != ((void *)0)");
    EXPECT_ABORTS(vesk_cb_record_sensor_values_get_number_values(nullptr), text);
    EXPECT_ABORTS(vesk_cb_record_sensor_values_get_timestamp(nullptr), text);
    EXPECT_ABORTS(vesk_cb_record_sensor_values_get_values(nullptr), text);
    EXPECT_ABORTS(vesk_cb_record_sensor_values_is_equal(nullptr, rec.get()), "rec1 != ((void *)0)");
    EXPECT_ABORTS(vesk_cb_record_sensor_values_is_equal(rec.get(), nullptr), "rec2 != ((void *)0)");
    EXPECT_ABORTS(write_values(nullptr, target), text);
    EXPECT_ABORTS(binary_serializer_write_vesk_cb_record_sensor_values(rec.get(), nullptr),
                  "writer != ((void *)0)");
    EXPECT_ABORTS(binary_serializer_read_vesk_cb_record_sensor_values(nullptr, source.get()), text);
    EXPECT_ABORTS(binary_serializer_read_vesk_cb_record_sensor_values(rec.get(), nullptr),
                  "reader != ((void *)0)");
}
