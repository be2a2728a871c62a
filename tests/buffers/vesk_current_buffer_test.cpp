#include <algorithm>
#include <string>
#include <vector>

#include <vesk/error.h>
#include <vesk/sensor_value.h>
#include <vesk/vesk_buffer.h>
#include <vesk/vesk_current_buffer.h>

#include "common/aborts.hpp"
#include "common/buffer_files.hpp"
#include "common/failing_calls.hpp"
#include "common/file_size_limit.hpp"
#include "common/model_buffer_reader.hpp"
#include "common/open_files.hpp"
#include "common/telemetry.hpp"
#include "common/temporary_directory.hpp"
#include "common/zlib_streams.hpp"
#include "support/owner.hpp"

using testing::ElementsAre;
using testing::StartsWith;

namespace
{

using owned_cbuf = owned<vesk_current_buffer, vesk_current_buffer_close>;
using strings = std::vector<std::string>;

class CurrentBuffer : public testing::Test
{
protected:
    owned_cbuf create(uint32_t capacity)
    {
        return owned_cbuf(vesk_current_buffer_create(path_.c_str(), capacity));
    }
    owned_cbuf open() { return owned_cbuf(vesk_current_buffer_open_for_read_write(path_.c_str())); }
    owned_cbuf append() { return owned_cbuf(vesk_current_buffer_open_for_append(path_.c_str())); }
    std::string bytes() { return read_file(path_); }
    strings contents() { return zlib_contents(bytes()); }

    // The code with which opening for appending fails, 0 when it succeeds.
    int code_of_appending()
    {
        const auto before = count_open_files();
        qe_set_last_error(0);
        owned_cbuf cbuf = append();
        const int code = cbuf ? 0 : qe_get_last_error();
        cbuf.reset();
        EXPECT_EQ(before, count_open_files());
        return code;
    }

    temporary_directory directory_;
    std::string path_ = directory_.file("r.1.cbuf.z");
};

// A value for a sensor or two.
owned_matrix one(long seconds, double value)
{
    return make_vector(seconds, {{"a", value}});
}

owned_matrix two(long seconds, double first, double second)
{
    return make_vector(seconds, {{"a", first}, {"b", second}});
}

int write(vesk_current_buffer *cbuf, const owned_matrix &vector)
{
    return vesk_current_buffer_write_telemetry_vector(cbuf, vector.get());
}

int write_event(vesk_current_buffer *cbuf, uint32_t type, long seconds, const std::string &text)
{
    const owned_event event = make_event(type, seconds, text);
    return vesk_current_buffer_write_event(cbuf, event.get());
}

int write_as_record(vesk_current_buffer *cbuf, uint32_t type, long seconds, const std::string &text)
{
    const owned_event event = make_event(type, seconds, text);
    return vesk_current_buffer_write_tagged_event(cbuf, event.get());
}

// Incompressible texts of more than a block fail in the write itself, not in the flush.
std::string noise()
{
    std::string text;
    for (uint32_t x = 1; text.size() < 9000; x = x * 1664525 + 1013904223) {
        text += static_cast<char>(x >> 24 == 0 ? 1 : x >> 24);
    }
    return text;
}

// The form in which an event can be read back, of whatever type.
void write_tagged_event(vesk_current_buffer *cbuf, uint32_t type, long seconds,
                        const std::string &text)
{
    const owned_event event = make_event(type, seconds, text);
    vesk_cb_record rec;
    vesk_cb_record_init_event(&rec, event.get());
    EXPECT_LE(0, binary_serializer_write_vesk_cb_record(&rec, cbuf->writer));
    EXPECT_LE(0, writer_flush(cbuf->writer));
}

// A record that a test reads into.
class read_into
{
public:
    read_into() { vesk_cb_record_init_null(&record_); }
    read_into(const read_into &) = delete;
    read_into &operator=(const read_into &) = delete;
    ~read_into() { vesk_cb_record_destruct(&record_); }
    vesk_cb_record *get() { return &record_; }
    vesk_cb_record *operator->() { return &record_; }

private:
    vesk_cb_record record_;
};

} // namespace

// ---- Creating and writing ---------------------------------------------------------------------

TEST_F(CurrentBuffer, ANewFileIsEmptyUntilSomethingIsWritten)
{
    owned_cbuf cbuf = create(4);
    ASSERT_TRUE(cbuf);
    EXPECT_EQ(1, cbuf->version);
    EXPECT_EQ(4U, cbuf->max_data_records);
    EXPECT_EQ(0U, cbuf->num_data_records);
    EXPECT_EQ(nullptr, cbuf->reader);
    EXPECT_EQ(nullptr, vesk_current_buffer_get_sensor_working_set(cbuf.get()));
    EXPECT_EQ(path_, vesk_current_buffer_get_filename(cbuf.get()));
    EXPECT_EQ("", bytes());
    cbuf.reset();
    EXPECT_THAT(contents(), ElementsAre(stored_buffer_header(1, 4)));
}

TEST_F(CurrentBuffer, CreatingReplacesAFileOfThatName)
{
    write_file(path_, "something else");
    const owned_cbuf cbuf = create(2);
    EXPECT_EQ("", bytes());
}

TEST_F(CurrentBuffer, CreatingWhereNoFileCanBeGives40)
{
    qe_set_last_error(0);
    const std::string path = directory_.file("missing/r.1.cbuf.z");
    EXPECT_EQ(nullptr, vesk_current_buffer_create(path.c_str(), 2));
    EXPECT_EQ(-40, qe_get_last_error());
}

TEST_F(CurrentBuffer, CreatingWithoutMemoryLeavesNothing)
{
    write_file(path_, "old");
    const auto before = count_open_files();
    bool succeeded = false;
    for (int n = 1; !succeeded; ++n) {
        failing_allocation fault(n);
        qe_set_last_error(0);
        const owned_cbuf cbuf = create(2);
        succeeded = !failing_allocation::happened();
        EXPECT_EQ(succeeded, static_cast<bool>(cbuf)) << n;
        if (!succeeded) {
            EXPECT_EQ(-22, qe_get_last_error()) << n;
            EXPECT_EQ(before, count_open_files()) << n;
        }
        if (n <= 2) {
            // Neither the buffer nor its name had been made: the old file is still there.
            EXPECT_EQ("old", bytes()) << n;
        }
    }
}

TEST_F(CurrentBuffer, EveryWriteIsOneCompleteStream)
{
    owned_cbuf cbuf = create(4);
    EXPECT_EQ(0, write(cbuf.get(), two(100, 1.5, -2.0)));
    EXPECT_EQ(1U, cbuf->num_data_records);
    const std::string first = stored_buffer_header(1, 4) + stored_names_record(100, {"a", "b"}) +
                              stored_values_record(100, {1.5F, -2.0F});
    EXPECT_THAT(contents(), ElementsAre(first));
    EXPECT_EQ(0, write(cbuf.get(), two(101, 3.0, 4.0)));
    EXPECT_THAT(contents(), ElementsAre(first, stored_values_record(101, {3.0F, 4.0F})));
    for (const zlib_stream &stream : split_zlib_streams(bytes())) {
        EXPECT_TRUE(stream.complete);
    }
    const std::string open = bytes();
    cbuf.reset();
    EXPECT_EQ(open, bytes()) << "closing adds nothing";
}

TEST_F(CurrentBuffer, NamesAreWrittenAgainOnlyWhenTheSensorsChange)
{
    owned_cbuf cbuf = create(8);
    write(cbuf.get(), two(100, 1, 2));
    write(cbuf.get(), two(101, 3, 4));
    write(cbuf.get(), make_vector(102, {{"a", 5}, {"c", 6}}));
    write(cbuf.get(), make_vector(103, {{"c", 7}, {"a", 8}}));
    write(cbuf.get(), one(104, 9));
    EXPECT_THAT(
        contents(),
        ElementsAre(stored_buffer_header(1, 8) + stored_names_record(100, {"a", "b"}) +
                        stored_values_record(100, {1, 2}),
                    stored_values_record(101, {3, 4}),
                    stored_names_record(102, {"a", "c"}) + stored_values_record(102, {5, 6}),
                    stored_names_record(103, {"c", "a"}) + stored_values_record(103, {7, 8}),
                    stored_names_record(104, {"a"}) + stored_values_record(104, {9})));
    const auto *names = vesk_current_buffer_get_sensor_working_set(cbuf.get());
    EXPECT_EQ(1U, vesk_cb_record_sensor_names_get_number_sensors(names));
}

TEST_F(CurrentBuffer, ValuesAreRoundedToSinglePrecision)
{
    owned_cbuf cbuf = create(2);
    write(cbuf.get(), make_vector(1, {{"a", 0.1}, {"b", 1e300}, {"c", _qe_invalid_sensor_value}}));
    EXPECT_THAT(contents()[0], testing::EndsWith(from_hex("00000003 3dcccccd 7f800000 7fffffff")));
}

TEST_F(CurrentBuffer, TheVectorStaysAsItIs)
{
    owned_cbuf cbuf = create(2);
    const owned_matrix vector = one(1, 0.1);
    write(cbuf.get(), vector);
    EXPECT_EQ(0.1, matrix_get(vector.get(), 0, 0));
}

TEST_F(CurrentBuffer, AFullBufferRefusesVectorsButNotEvents)
{
    owned_cbuf cbuf = create(2);
    EXPECT_EQ(0, write(cbuf.get(), one(1, 1)));
    EXPECT_EQ(0, write(cbuf.get(), one(2, 2)));
    const std::string full = bytes();
    EXPECT_EQ(-2, write(cbuf.get(), one(3, 3)));
    EXPECT_EQ(-2, write(cbuf.get(), two(3, 3, 3))) << "not even new sensors are named";
    EXPECT_EQ(full, bytes());
    EXPECT_EQ(2U, cbuf->num_data_records);
    EXPECT_EQ(0, write_event(cbuf.get(), 1, 4, "still here"));
    EXPECT_THAT(bytes(), StartsWith(full));
    EXPECT_EQ(2U, cbuf->num_data_records);
    cbuf.reset();
    EXPECT_EQ(stored_event_body(1, 4, "still here"), contents().back());
}

TEST_F(CurrentBuffer, EventsAreWrittenWithoutARecordType)
{
    owned_cbuf cbuf = create(2);
    EXPECT_EQ(0, write_event(cbuf.get(), 7, 99, "before"));
    EXPECT_EQ(0, write(cbuf.get(), one(100, 1)));
    EXPECT_EQ(0, write_event(cbuf.get(), 0x01020304, 101, "after"));
    EXPECT_THAT(contents(),
                ElementsAre(stored_buffer_header(1, 2) +
                                from_hex("01 00000007 01 00000063 00000000") +
                                stored_string("before"),
                            stored_names_record(100, {"a"}) + stored_values_record(100, {1}),
                            from_hex("01 01020304 01 00000065 00000000") + stored_string("after")));
    EXPECT_EQ(1U, cbuf->num_data_records);
}

TEST_F(CurrentBuffer, LargeVectorsComeBackAsTheyWere)
{
    std::vector<reading> readings;
    std::vector<float> values;
    uint32_t noise = 1;
    for (int i = 0; i < 3000; ++i) {
        noise = noise * 1664525 + 1013904223;
        readings.push_back({std::to_string(i), noise / 7.0});
        values.push_back(static_cast<float>(noise / 7.0));
    }
    owned_cbuf cbuf = create(2);
    EXPECT_EQ(0, write(cbuf.get(), make_vector(5, readings)));
    cbuf.reset();
    cbuf = open();
    read_into rec;
    ASSERT_EQ(0, vesk_current_buffer_read_record(cbuf.get(), rec.get()));
    ASSERT_EQ(3000U, rec->values->n_sensors);
    EXPECT_TRUE(std::equal(values.begin(), values.end(), rec->values->values));
}

// ---- Failing writes ---------------------------------------------------------------------------

TEST_F(CurrentBuffer, AVectorThatDoesNotReachTheFileIsNotCounted)
{
    owned_cbuf cbuf(vesk_current_buffer_create("/dev/full", 2));
    ASSERT_TRUE(cbuf);
    EXPECT_EQ(-41, write(cbuf.get(), one(1, 1)));
    EXPECT_EQ(0U, cbuf->num_data_records);
}

TEST_F(CurrentBuffer, AFullDiskCostsOnlyTheVectorsThatWereRefused)
{
    owned_cbuf cbuf = create(4);
    EXPECT_EQ(0, write(cbuf.get(), one(1, 1)));
    const std::string before = bytes();
    {
        const file_size_limit full(before.size());
        EXPECT_EQ(-41, write(cbuf.get(), one(2, 2)));
        EXPECT_EQ(-41, write(cbuf.get(), one(3, 3)));
        EXPECT_EQ(1U, cbuf->num_data_records);
        EXPECT_EQ(before, bytes());
    }
    EXPECT_EQ(0, write(cbuf.get(), one(4, 4)));
    EXPECT_EQ(2U, cbuf->num_data_records);
    cbuf.reset();
    EXPECT_EQ(stored_values_record(4, {4}), contents().back());
    EXPECT_EQ(0, code_of_appending());
}

TEST_F(CurrentBuffer, AFailedWriteKeepsTheReader)
{
    owned_cbuf cbuf = create(4);
    write(cbuf.get(), one(1, 1));
    cbuf.reset();
    cbuf = append();
    const file_size_limit full(bytes().size());
    EXPECT_EQ(-41, write(cbuf.get(), one(2, 2)));
    EXPECT_NE(nullptr, cbuf->reader);
}

TEST_F(CurrentBuffer, NamesThatWereNotWrittenStayTheWorkingSet)
{
    owned_cbuf cbuf = create(4);
    write(cbuf.get(), one(1, 1));
    {
        const file_size_limit full(bytes().size());
        EXPECT_EQ(-41, write(cbuf.get(), two(2, 2, 2)));
    }
    const auto *names = vesk_current_buffer_get_sensor_working_set(cbuf.get());
    EXPECT_EQ(2U, vesk_cb_record_sensor_names_get_number_sensors(names));
    EXPECT_EQ(0, write(cbuf.get(), two(3, 3, 3)));
    EXPECT_EQ(stored_values_record(3, {3, 3}), contents().back());
}

TEST_F(CurrentBuffer, NamesThatAreRefusedAreNotFlushed)
{
    const std::string name(10001, 'n');
    owned_cbuf cbuf = create(4);
    write(cbuf.get(), one(1, 1));
    const std::string before = bytes();
    EXPECT_EQ(-49, write(cbuf.get(), make_vector(2, {{name, 2}})));
    EXPECT_EQ(before, bytes());
    EXPECT_EQ(1U, cbuf->num_data_records);
    // What was written of the names goes out with the next record, which names no sensors.
    EXPECT_EQ(0, write(cbuf.get(), make_vector(3, {{name, 3}})));
    EXPECT_EQ(from_hex("00000001 01 01 00000002 00000000 01 00000001 01") +
                  stored_values_record(3, {3}),
              contents().back());
}

TEST_F(CurrentBuffer, ValuesThatAreRefusedAreFlushedAllTheSame)
{
    std::vector<reading> readings;
    for (int i = 0; i <= 10000; ++i) {
        readings.push_back({std::to_string(i), 0});
    }
    const owned_matrix vector = make_vector(2, readings);
    owned_cbuf cbuf = create(4);
    EXPECT_EQ(-49, write(cbuf.get(), vector)) << "too many names";
    EXPECT_EQ("", bytes());
    EXPECT_EQ(-49, write(cbuf.get(), vector)) << "too many values";
    EXPECT_EQ(0U, cbuf->num_data_records);
    // Of each refused record the type, and of the names what stands before the sensors.
    EXPECT_THAT(contents(), ElementsAre(stored_buffer_header(1, 4) +
                                        from_hex("00000001 01 01 00000002 00000000 00000002")));
}

TEST_F(CurrentBuffer, AnEventThatDoesNotReachTheFileShowsOnlyInTheCell)
{
    owned_cbuf cbuf(vesk_current_buffer_create("/dev/full", 2));
    qe_set_last_error(0);
    EXPECT_EQ(0, write_event(cbuf.get(), 1, 1, "lost"));
    EXPECT_EQ(-41, qe_get_last_error());
    EXPECT_EQ(-41, write_event(cbuf.get(), 1, 2, noise()));
}

TEST_F(CurrentBuffer, AnEventWithTooLongATextIsRefused)
{
    owned_cbuf cbuf = create(2);
    EXPECT_EQ(-49, write_event(cbuf.get(), 1, 1, std::string(10001, 'x')));
    EXPECT_EQ(0, write_event(cbuf.get(), 1, 1, std::string(10000, 'x')));
}

TEST_F(CurrentBuffer, ATaggedEventIsAStreamOfItsOwn)
{
    owned_cbuf cbuf = create(2);
    write(cbuf.get(), one(1, 1));
    EXPECT_EQ(0, write_as_record(cbuf.get(), 5, 2, "wall"));
    EXPECT_THAT(contents(), ElementsAre(stored_buffer_header(1, 2) + stored_names_record(1, {"a"}) +
                                            stored_values_record(1, {1}),
                                        stored_event_record(5, 2, "wall")));
    EXPECT_EQ(1U, cbuf->num_data_records);
}

TEST_F(CurrentBuffer, ATaggedEventIsTakenByAFullBuffer)
{
    owned_cbuf cbuf = create(2);
    write(cbuf.get(), one(1, 1));
    write(cbuf.get(), one(2, 2));
    EXPECT_EQ(0, write_as_record(cbuf.get(), 1, 3, "late"));
    cbuf.reset();
    EXPECT_EQ(0, code_of_appending());
}

TEST_F(CurrentBuffer, ATaggedEventNeedsAVectorBeforeIt)
{
    owned_cbuf cbuf = create(2);
    EXPECT_EQ(-4, write_as_record(cbuf.get(), 1, 1, "early"));
    EXPECT_EQ("", bytes());
    cbuf.reset();
    EXPECT_THAT(contents(), ElementsAre(stored_buffer_header(1, 2)));
    cbuf = append();
    EXPECT_EQ(-4, write_as_record(cbuf.get(), 1, 1, "still early"));
    EXPECT_EQ(0, write(cbuf.get(), one(1, 1)));
    EXPECT_EQ(0, write_as_record(cbuf.get(), 1, 1, "now"));
    cbuf.reset();
    EXPECT_EQ(0, code_of_appending());
}

TEST_F(CurrentBuffer, ATaggedEventIsNotHeldByAVectorThatWasLost)
{
    owned_cbuf cbuf = create(2);
    {
        const file_size_limit full(0);
        EXPECT_EQ(-41, write(cbuf.get(), one(1, 1)));
    }
    ASSERT_NE(nullptr, cbuf->sensor_working_set);
    EXPECT_EQ(-4, write_as_record(cbuf.get(), 1, 1, "the names are not in the file"));
    EXPECT_EQ("", bytes());
}

TEST_F(CurrentBuffer, ATaggedEventFollowsWhatWasThereBefore)
{
    owned_cbuf cbuf = create(4);
    write(cbuf.get(), one(1, 1));
    cbuf.reset();
    cbuf = append();
    ASSERT_NE(nullptr, cbuf->reader);
    EXPECT_EQ(0, write_as_record(cbuf.get(), 2, 2, "first"));
    EXPECT_EQ(nullptr, cbuf->reader);
    EXPECT_EQ(0, write(cbuf.get(), one(3, 3)));
    EXPECT_EQ(3U, contents().size());
    cbuf.reset();
    EXPECT_EQ(0, code_of_appending());
}

TEST_F(CurrentBuffer, ATaggedEventThatCouldNotBeReadIsRefused)
{
    owned_cbuf cbuf = create(2);
    write(cbuf.get(), one(1, 1));
    const std::string before = bytes();
    const std::string longest(10000, 'x');
    EXPECT_EQ(-6, write_as_record(cbuf.get(), 6, 1, "type"));
    EXPECT_EQ(-6, write_as_record(cbuf.get(), UINT32_MAX, 1, "type"));
    EXPECT_EQ(-6, write_as_record(cbuf.get(), 1, 0, "time"));
    EXPECT_EQ(-6, write_as_record(cbuf.get(), 1, 1, ""));
    EXPECT_EQ(-49, write_as_record(cbuf.get(), 1, 1, longest + "x"));
    const owned_event null(vesk_cb_record_event_create_null());
    EXPECT_EQ(-6, vesk_current_buffer_write_tagged_event(cbuf.get(), null.get()));
    const owned_event odd = make_event(1, 1, "microseconds");
    odd->timestamp.tv.tv_usec = 1;
    EXPECT_EQ(-6, vesk_current_buffer_write_tagged_event(cbuf.get(), odd.get()));
    if (sizeof(time_t) > 4) {
        odd->timestamp.tv = {static_cast<time_t>(INT64_C(1) << 31), 0};
        EXPECT_EQ(-6, vesk_current_buffer_write_tagged_event(cbuf.get(), odd.get()));
    }
    EXPECT_EQ(before, bytes());
    write(cbuf.get(), one(2, 2));
    EXPECT_EQ(stored_values_record(2, {2}), contents().back()) << "nor waits anything of them";
    EXPECT_EQ(0, write_as_record(cbuf.get(), 1, 1, longest));
    EXPECT_EQ(0, write_as_record(cbuf.get(), 5, INT32_MAX, "x"));
    EXPECT_EQ(0, write_as_record(cbuf.get(), 5, INT32_MIN, "x"));
    cbuf.reset();
    EXPECT_EQ(0, code_of_appending());
}

TEST_F(CurrentBuffer, ATaggedEventThatDoesNotReachTheFileIsAFailure)
{
    owned_cbuf cbuf = create(2);
    write(cbuf.get(), one(1, 1));
    const std::string before = bytes();
    {
        const file_size_limit full(before.size());
        EXPECT_EQ(-41, write_as_record(cbuf.get(), 1, 2, "small"));
        EXPECT_EQ(-41, write_as_record(cbuf.get(), 1, 2, noise()));
    }
    EXPECT_EQ(before, bytes());
    EXPECT_EQ(0, write_as_record(cbuf.get(), 1, 2, "there is room"));
    cbuf.reset();
    EXPECT_EQ(0, code_of_appending());
}

TEST_F(CurrentBuffer, AStreamThatZlibRefusedEndsInAnAbort)
{
    owned_cbuf cbuf = create(4);
    EXPECT_ABORTS(
        {
            const failing_zlib fault(1, Z_STREAM_ERROR);
            if (write(cbuf.get(), one(1, 1)) == -42) {
                write(cbuf.get(), one(2, 2));
            }
        },
        "zwriter->err == 0");
}

TEST_F(CurrentBuffer, NamesForWhichThereIsNoMemoryAreTriedAgain)
{
    bool succeeded = false;
    for (int n = 1; !succeeded; ++n) {
        owned_cbuf cbuf = create(4);
        write(cbuf.get(), one(1, 1));
        const owned_matrix vector = two(2, 2, 2);
        {
            failing_allocation fault(n);
            const int result = write(cbuf.get(), vector);
            succeeded = !failing_allocation::happened();
            EXPECT_EQ(succeeded ? 0 : -22, result) << n;
        }
        if (!succeeded) {
            EXPECT_EQ(1U, cbuf->num_data_records);
            EXPECT_EQ(nullptr, vesk_current_buffer_get_sensor_working_set(cbuf.get()));
            EXPECT_EQ(0, write(cbuf.get(), vector));
        }
        EXPECT_EQ(2U, cbuf->num_data_records);
        EXPECT_EQ(stored_names_record(2, {"a", "b"}) + stored_values_record(2, {2, 2}),
                  contents().back());
    }
}

// ---- Reading ----------------------------------------------------------------------------------

TEST_F(CurrentBuffer, AnOpenedBufferStandsBehindItsFirstRecord)
{
    owned_cbuf cbuf = create(4);
    write(cbuf.get(), two(100, 1.5, 2.5));
    write(cbuf.get(), two(101, 3.5, 4.5));
    cbuf.reset();
    const std::string before = bytes();
    cbuf = open();
    ASSERT_TRUE(cbuf);
    EXPECT_EQ(path_, vesk_current_buffer_get_filename(cbuf.get()));
    EXPECT_EQ(4U, cbuf->max_data_records);
    EXPECT_EQ(0U, cbuf->num_data_records);
    EXPECT_NE(nullptr, cbuf->reader);
    const auto *names = vesk_current_buffer_get_sensor_working_set(cbuf.get());
    EXPECT_EQ(2U, vesk_cb_record_sensor_names_get_number_sensors(names));

    read_into rec;
    ASSERT_EQ(0, vesk_current_buffer_read_record(cbuf.get(), rec.get()));
    EXPECT_EQ(VESK_CB_RECORD_SENSOR_VALUES, static_cast<int>(rec->type));
    EXPECT_EQ(1U, rec->owns_data);
    EXPECT_EQ(100, rec->values->timestamp.tv.tv_sec);
    EXPECT_EQ(1.5F, rec->values->values[0]);
    ASSERT_EQ(0, vesk_current_buffer_read_record(cbuf.get(), rec.get()));
    EXPECT_EQ(4.5F, rec->values->values[1]);
    EXPECT_EQ(2U, cbuf->num_data_records);
    EXPECT_EQ(-43, vesk_current_buffer_read_record(cbuf.get(), rec.get()));
    EXPECT_EQ(-43, vesk_current_buffer_read_record(cbuf.get(), rec.get())) << "for ever";
    cbuf.reset();
    EXPECT_EQ(before, bytes()) << "reading changes nothing";
}

TEST_F(CurrentBuffer, AFileWithoutRecordsIsAtItsEndAtOnce)
{
    create(4).reset();
    owned_cbuf cbuf = open();
    ASSERT_TRUE(cbuf);
    EXPECT_EQ(nullptr, vesk_current_buffer_get_sensor_working_set(cbuf.get()));
    read_into rec;
    EXPECT_EQ(-43, vesk_current_buffer_read_record(cbuf.get(), rec.get()));
    EXPECT_EQ(0U, cbuf->num_data_records);
}

TEST_F(CurrentBuffer, NamesThatAreReadStayTheBuffers)
{
    write_file(path_,
               deflate_stream(stored_buffer_header(1, 4) + stored_names_record(1, {"a"}) +
                              stored_names_record(2, {"b", "c"}) + stored_names_record(3, {"d"}) +
                              stored_names_record(4, {"e"})));
    owned_cbuf cbuf = open();
    read_into rec;
    for (const uint32_t size : {2U, 1U, 1U}) {
        ASSERT_EQ(0, vesk_current_buffer_read_record(cbuf.get(), rec.get()));
        EXPECT_EQ(VESK_CB_RECORD_SENSOR_NAMES, static_cast<int>(rec->type));
        EXPECT_EQ(0U, rec->owns_data);
        EXPECT_EQ(vesk_current_buffer_get_sensor_working_set(cbuf.get()), rec->names);
        EXPECT_EQ(size, vesk_cb_record_sensor_names_get_number_sensors(rec->names));
    }
    EXPECT_EQ(-43, vesk_current_buffer_read_record(cbuf.get(), rec.get()));
}

TEST_F(CurrentBuffer, TaggedEventsAreReadButNotCounted)
{
    owned_cbuf cbuf = create(4);
    write(cbuf.get(), one(1, 1));
    write_tagged_event(cbuf.get(), 9, 2, "read back");
    write(cbuf.get(), one(3, 3));
    cbuf.reset();
    cbuf = open();
    read_into rec;
    EXPECT_EQ(0, vesk_current_buffer_read_record(cbuf.get(), rec.get()));
    ASSERT_EQ(0, vesk_current_buffer_read_record(cbuf.get(), rec.get()));
    ASSERT_EQ(VESK_CB_RECORD_EVENT, static_cast<int>(rec->type));
    EXPECT_EQ(1U, rec->owns_data);
    EXPECT_EQ(9U, rec->event->type);
    EXPECT_STREQ("read back", rec->event->text);
    EXPECT_EQ(1U, cbuf->num_data_records);
    EXPECT_EQ(0, vesk_current_buffer_read_record(cbuf.get(), rec.get()));
    EXPECT_EQ(-43, vesk_current_buffer_read_record(cbuf.get(), rec.get()));
    EXPECT_EQ(2U, cbuf->num_data_records);
}

TEST_F(CurrentBuffer, NoReaderGetsPastABareEvent)
{
    for (const uint32_t type : {1U, 3U, 0x00ffffffU, 0x01000000U, UINT32_MAX}) {
        owned_cbuf cbuf = create(4);
        write(cbuf.get(), one(1, 1));
        write_event(cbuf.get(), type, 2, "wall");
        write(cbuf.get(), one(3, 3));
        cbuf.reset();
        cbuf = open();
        read_into rec;
        EXPECT_EQ(0, vesk_current_buffer_read_record(cbuf.get(), rec.get())) << type;
        EXPECT_EQ(-6, vesk_current_buffer_read_record(cbuf.get(), rec.get())) << type;
        cbuf.reset();
        EXPECT_EQ(-6, code_of_appending()) << type;
    }
}

TEST_F(CurrentBuffer, AnEventBeforeTheFirstVectorKeepsTheFileFromOpening)
{
    owned_cbuf cbuf = create(4);
    write_event(cbuf.get(), 1, 1, "first");
    write(cbuf.get(), one(2, 2));
    cbuf.reset();
    qe_set_last_error(0);
    EXPECT_FALSE(open());
    EXPECT_EQ(-6, qe_get_last_error());
}

TEST_F(CurrentBuffer, AHistoryBufferIsRefused)
{
    write_file(path_, deflate_stream(stored_buffer_header(2, 4)));
    const auto before = count_open_files();
    for (int i = 0; i < 2; ++i) {
        qe_set_last_error(0);
        EXPECT_FALSE(i == 0 ? open() : append());
        EXPECT_EQ(-3, qe_get_last_error());
        EXPECT_EQ(before, count_open_files());
    }
}

TEST_F(CurrentBuffer, OpeningWithoutMemoryLeavesNothing)
{
    owned_cbuf cbuf = create(4);
    write(cbuf.get(), two(1, 1, 2));
    write_tagged_event(cbuf.get(), 1, 2, "event");
    write(cbuf.get(), one(3, 3));
    cbuf.reset();
    const auto before = count_open_files();
    bool succeeded = false;
    for (int n = 1; !succeeded; ++n) {
        failing_allocation fault(n);
        qe_set_last_error(0);
        cbuf = append();
        succeeded = !failing_allocation::happened();
        EXPECT_EQ(succeeded, static_cast<bool>(cbuf)) << n;
        if (!succeeded) {
            EXPECT_THAT(qe_get_last_error(), testing::AnyOf(-22, -41)) << n;
            EXPECT_EQ(before, count_open_files()) << n;
        }
    }
}

// ---- Appending --------------------------------------------------------------------------------

TEST_F(CurrentBuffer, AppendingContinuesWhereWritingStopped)
{
    owned_cbuf cbuf = create(4);
    write(cbuf.get(), one(100, 1));
    write(cbuf.get(), two(101, 2, 3));
    cbuf.reset();
    const std::string before = bytes();
    cbuf = append();
    ASSERT_TRUE(cbuf);
    EXPECT_EQ(2U, cbuf->num_data_records);
    const auto *names = vesk_current_buffer_get_sensor_working_set(cbuf.get());
    EXPECT_EQ(2U, vesk_cb_record_sensor_names_get_number_sensors(names));
    EXPECT_NE(nullptr, cbuf->reader);
    EXPECT_EQ(0, write(cbuf.get(), two(102, 4, 5)));
    EXPECT_EQ(nullptr, cbuf->reader) << "what was written to is no longer read";
    EXPECT_EQ(0, write(cbuf.get(), one(103, 6)));
    EXPECT_EQ(-2, write(cbuf.get(), one(104, 7)));
    cbuf.reset();
    EXPECT_THAT(bytes(), StartsWith(before));
    EXPECT_THAT(
        contents(),
        ElementsAre(stored_buffer_header(1, 4) + stored_names_record(100, {"a"}) +
                        stored_values_record(100, {1}),
                    stored_names_record(101, {"a", "b"}) + stored_values_record(101, {2, 3}),
                    stored_values_record(102, {4, 5}),
                    stored_names_record(103, {"a"}) + stored_values_record(103, {6})));
}

TEST_F(CurrentBuffer, AppendingTakesExactlyTheVectorsThatAreMissing)
{
    for (uint32_t k = 0; k <= 6; ++k) {
        owned_cbuf cbuf = create(6);
        for (uint32_t i = 0; i < k; ++i) {
            write(cbuf.get(), one(i + 1, i));
        }
        cbuf.reset();
        for (uint32_t i = k; i < 6; ++i) {
            cbuf = append();
            ASSERT_TRUE(cbuf);
            EXPECT_EQ(i, cbuf->num_data_records);
            EXPECT_EQ(0, write(cbuf.get(), one(i + 1, i)));
            cbuf.reset();
        }
        cbuf = append();
        EXPECT_EQ(-2, write(cbuf.get(), one(7, 7)));
        EXPECT_NE(nullptr, cbuf->reader) << "nothing was written";
    }
}

TEST_F(CurrentBuffer, AppendingToAFileWithoutRecordsStartsWithNames)
{
    create(4).reset();
    owned_cbuf cbuf = append();
    ASSERT_TRUE(cbuf);
    EXPECT_EQ(0U, cbuf->num_data_records);
    EXPECT_EQ(0, write(cbuf.get(), one(1, 1)));
    EXPECT_THAT(contents(),
                ElementsAre(stored_buffer_header(1, 4),
                            stored_names_record(1, {"a"}) + stored_values_record(1, {1})));
}

TEST_F(CurrentBuffer, AnEventDropsTheReaderToo)
{
    owned_cbuf cbuf = create(4);
    write(cbuf.get(), one(1, 1));
    cbuf.reset();
    const std::string before = bytes();
    cbuf = append();
    EXPECT_EQ(0, write_event(cbuf.get(), 1, 2, "x"));
    EXPECT_EQ(nullptr, cbuf->reader);
    EXPECT_THAT(bytes(), StartsWith(before));
    EXPECT_EQ(stored_event_body(1, 2, "x"), contents().back());
}

TEST_F(CurrentBuffer, FilesAsLargeAsWholeBlocksAreAppendedToRightly)
{
    // Streams of stored bytes are as long as wanted: 2 + 5 + content + 4.
    const std::string start = stored_buffer_header(1, 4) + stored_names_record(1, {"a"});
    for (const std::size_t size : {2047U, 2048U, 2049U, 4096U}) {
        const std::string head = deflate_stream(start + stored_values_record(1, {1}));
        const std::size_t text = size - head.size() - 11 - stored_event_record(1, 1, "").size();
        const std::string event = stored_event_record(1, 1, std::string(text, 'x'));
        const auto length = static_cast<uint16_t>(event.size());
        std::string stream = {'\x78',
                              '\x01',
                              '\1',
                              static_cast<char>(length),
                              static_cast<char>(length >> 8),
                              static_cast<char>(~length),
                              static_cast<char>(~length >> 8)};
        stream += event + stored_u32(static_cast<uint32_t>(
                              adler32(1, reinterpret_cast<const Bytef *>(event.data()), length)));
        write_file(path_, head + stream);
        ASSERT_EQ(size, bytes().size());
        owned_cbuf cbuf = append();
        ASSERT_TRUE(cbuf) << size;
        EXPECT_EQ(0, write(cbuf.get(), one(2, 2)));
        cbuf.reset();
        EXPECT_EQ(head + stream + deflate_stream(stored_values_record(2, {2})), bytes());
    }
}

TEST_F(CurrentBuffer, MoreVectorsThanTheCapacityGive6)
{
    const std::string start = stored_buffer_header(1, 2) + stored_names_record(1, {"a"}) +
                              stored_values_record(1, {1}) + stored_values_record(2, {2});
    write_file(path_, deflate_stream(start));
    EXPECT_EQ(0, code_of_appending());
    write_file(path_, deflate_stream(start + stored_values_record(3, {3})));
    EXPECT_EQ(-6, code_of_appending());
    // One vector too many is read, nothing behind it.
    write_file(path_, deflate_stream(start + stored_values_record(3, {3}) + stored_u32(1)));
    EXPECT_EQ(-6, code_of_appending());
    write_file(path_, deflate_stream(start + stored_u32(2)));
    EXPECT_EQ(-48, code_of_appending());
}

TEST_F(CurrentBuffer, AFileThatStartsWithAnythingButNamesGives4)
{
    write_file(path_, deflate_stream(stored_buffer_header(1, 2) + stored_values_record(1, {1})));
    EXPECT_EQ(-4, code_of_appending());
    write_file(path_, deflate_stream(stored_buffer_header(1, 2) + stored_event_record(1, 1, "x")));
    EXPECT_EQ(-4, code_of_appending());
}

TEST_F(CurrentBuffer, AnOddCapacityIsWrittenButNotRead)
{
    owned_cbuf cbuf = create(3);
    ASSERT_TRUE(cbuf);
    for (int i = 1; i <= 3; ++i) {
        EXPECT_EQ(0, write(cbuf.get(), one(i, i)));
    }
    EXPECT_EQ(-2, write(cbuf.get(), one(4, 4)));
    cbuf.reset();
    EXPECT_EQ(-41, code_of_appending());
}

TEST_F(CurrentBuffer, MalformedRecordsGiveTheirCode)
{
    const std::string start = stored_buffer_header(1, 4) + stored_names_record(1, {"a"});
    const std::string time = stored_timestamp(2);
    const std::vector<std::pair<std::string, int>> cases = {
        {stored_u32(0), -6},
        {stored_u32(4), -6},
        {stored_u32(1) + '\2', -12},
        {stored_u32(1) + '\1' + time + '\1' + stored_u32(0), -49},
        {stored_u32(1) + '\1' + time + '\1' + stored_u32(10001), -49},
        {stored_u32(1) + '\1' + time + '\1' + stored_u32(1) + '\1' + stored_u32(0), -6},
        {stored_u32(2) + '\1' + time + stored_u32(0), -6},
        {stored_u32(2) + '\1' + time + stored_u32(10001), -6},
        {stored_u32(2) + '\1' + '\1' + stored_u32(2) + stored_u32(1), -6},
        {stored_event_record(1, 2, std::string("a\0b", 3)), -6},
    };
    for (const auto &[record, code] : cases) {
        write_file(path_, deflate_stream(start + record));
        EXPECT_EQ(code, code_of_appending()) << testing::PrintToString(record);
    }
}

// ---- Cut and damaged files --------------------------------------------------------------------

namespace
{

// A small file with all kinds of records.
std::string small_file()
{
    return deflate_stream(stored_buffer_header(1, 4) + stored_names_record(1, {"a", "bc"}) +
                          stored_values_record(1, {1, 2})) +
           deflate_stream(stored_event_record(3, 2, "event")) +
           deflate_stream(stored_names_record(3, {"d"}) + stored_values_record(3, {3}));
}

} // namespace

class DamagedCurrentBuffer : public CurrentBuffer
{
protected:
    // Opens the bytes for appending and compares with what has to come of it.
    void expect_stated_answer(const std::string &file)
    {
        model_buffer_reader model(file);
        const int expected = model.read_all(VESK_BUFFER_TYPE_CURRENT);
        write_file(path_, file);
        if (expected == model_aborts) {
            EXPECT_ABORTS(append(), "nread != 0");
            return;
        }
        qe_set_last_error(0);
        const owned_cbuf cbuf = append();
        EXPECT_EQ(expected, cbuf ? 0 : qe_get_last_error());
        if (cbuf) {
            EXPECT_EQ(model.values(), cbuf->num_data_records);
        }
    }
};

TEST_F(DamagedCurrentBuffer, ContentThatEndsAnywhereGivesItsCode)
{
    std::string content;
    for (const std::string &part : zlib_contents(small_file())) {
        content += part;
    }
    const auto before = count_open_files();
    for (std::size_t size = 0; size <= content.size(); ++size) {
        SCOPED_TRACE(size);
        expect_stated_answer(deflate_stream(content.substr(0, size)));
    }
    EXPECT_EQ(before, count_open_files());
}

TEST_F(DamagedCurrentBuffer, AFileThatEndsAnywhereGivesItsCode)
{
    const std::string file = small_file();
    const auto before = count_open_files();
    for (std::size_t size = 0; size <= file.size(); ++size) {
        SCOPED_TRACE(size);
        expect_stated_answer(file.substr(0, size));
    }
    EXPECT_EQ(before, count_open_files());
}

TEST_F(DamagedCurrentBuffer, AFileWithAnyBitFlippedGivesItsCode)
{
    const std::string file = small_file();
    const auto before = count_open_files();
    for (std::size_t i = 0; i < file.size() * 8; ++i) {
        SCOPED_TRACE(testing::Message() << "byte " << i / 8 << " bit " << i % 8);
        std::string damaged = file;
        damaged[i / 8] = static_cast<char>(damaged[i / 8] ^ 1 << i % 8);
        expect_stated_answer(damaged);
    }
    EXPECT_EQ(before, count_open_files());
}

TEST_F(DamagedCurrentBuffer, ContentWithAnyByteChangedGivesItsCode)
{
    std::string content;
    for (const std::string &part : zlib_contents(small_file())) {
        content += part;
    }
    const auto before = count_open_files();
    for (std::size_t i = 0; i < content.size(); ++i) {
        for (const int mask : {1, 2, 0x80, 0xff}) {
            SCOPED_TRACE(testing::Message() << "byte " << i << " mask " << mask);
            std::string damaged = content;
            damaged[i] = static_cast<char>(damaged[i] ^ mask);
            expect_stated_answer(deflate_stream(damaged));
        }
    }
    EXPECT_EQ(before, count_open_files());
}

TEST_F(DamagedCurrentBuffer, ATailOfZerosGives41)
{
    write_file(path_, small_file() + std::string(100, '\0'));
    EXPECT_EQ(-41, code_of_appending());
}

TEST_F(DamagedCurrentBuffer, NamesCutBeforeANameLookLikeTheEnd)
{
    const std::string start =
        stored_buffer_header(1, 4) + stored_names_record(1, {"a"}) + stored_values_record(1, {1});
    const std::string names = stored_names_record(2, {"a", "b"});
    const std::size_t before_second = names.size() - stored_string("b").size();
    write_file(path_, deflate_stream(start + names.substr(0, before_second)));
    owned_cbuf cbuf = append();
    ASSERT_TRUE(cbuf);
    EXPECT_EQ(1U, cbuf->num_data_records);
}

TEST_F(DamagedCurrentBuffer, WhatIsAppendedToATornStreamIsLost)
{
    const std::string torn = deflate_stream(stored_values_record(2, {2})).substr(0, 2);
    write_file(path_, deflate_stream(stored_buffer_header(1, 4) + stored_names_record(1, {"a"}) +
                                     stored_values_record(1, {1})) +
                          torn);
    owned_cbuf cbuf = append();
    ASSERT_TRUE(cbuf) << "nothing of the torn stream can be seen";
    EXPECT_EQ(0, write(cbuf.get(), one(3, 3)));
    cbuf.reset();
    EXPECT_EQ(-41, code_of_appending());
}

TEST_F(DamagedCurrentBuffer, NothingIsReadAfterDamage)
{
    std::string file = deflate_stream(stored_buffer_header(1, 4) + stored_names_record(1, {"a"}));
    file += std::string(20, '\0');
    write_file(path_, file);
    owned_cbuf cbuf = open();
    ASSERT_TRUE(cbuf);
    read_into rec;
    EXPECT_EQ(-41, vesk_current_buffer_read_record(cbuf.get(), rec.get()));
    EXPECT_ABORTS(vesk_current_buffer_read_record(cbuf.get(), rec.get()), "zreader->err == 0");
}

// ---- The header -------------------------------------------------------------------------------

TEST_F(CurrentBuffer, TheHeaderIsAVersionAndTheCapacity)
{
    owned_cbuf cbuf = create(0x01020304);
    memory_writer target;
    EXPECT_EQ(5, binary_serializer_write_vesk_current_buffer(cbuf.get(), target.get()));
    EXPECT_EQ(from_hex("01 01020304"), target.bytes());
    for (std::size_t capacity = 0; capacity < 5; ++capacity) {
        memory_writer full(capacity, -41);
        EXPECT_EQ(-41, binary_serializer_write_vesk_current_buffer(cbuf.get(), full.get()));
    }
}

TEST_F(CurrentBuffer, ReadingTheHeaderJudgesIt)
{
    owned_cbuf cbuf = create(2);
    const auto read = [&](const std::string &bytes, int failure = 0) {
        memory_reader source(bytes, failure);
        return binary_serializer_read_vesk_current_buffer(cbuf.get(), source.get());
    };
    EXPECT_EQ(5, read(from_hex("01 00000006")));
    EXPECT_EQ(6U, cbuf->max_data_records);
    EXPECT_EQ(0, read(""));
    for (const char *cut : {"01", "01 00", "01 0000", "01 000000"}) {
        EXPECT_EQ(-48, read(from_hex(cut))) << cut;
    }
    EXPECT_EQ(-12, read(from_hex("00 00000006")));
    EXPECT_EQ(-12, read(from_hex("02 00000006")));
    EXPECT_EQ(-41, read("", -41));
    EXPECT_EQ(-41, read("\1", -41));
    EXPECT_EQ(6U, cbuf->max_data_records);
    EXPECT_EQ(-6, read(from_hex("01 00000007")));
    EXPECT_EQ(7U, cbuf->max_data_records) << "stored before it is judged";
    EXPECT_EQ(-6, read(from_hex("01 00000000")));
    EXPECT_EQ(0U, cbuf->max_data_records);
}

// ---- Preconditions ----------------------------------------------------------------------------

TEST_F(CurrentBuffer, RequiresItsArguments)
{
    owned_cbuf cbuf = create(2);
    const owned_matrix vector = one(1, 1);
    const owned_event event = make_event(1, 1, "x");
    memory_reader source("");
    memory_writer target;
    read_into rec;
    EXPECT_ABORTS(vesk_current_buffer_create(nullptr, 0), "filename != ((void *)0)");
    EXPECT_ABORTS(vesk_current_buffer_create(path_.c_str(), 0), "max_data_records > 0");
    EXPECT_ABORTS(vesk_current_buffer_open_for_read_write(nullptr), "filename != ((void *)0)");
    EXPECT_ABORTS(vesk_current_buffer_open_for_append(nullptr), "filename != ((void *)0)");
    EXPECT_ABORTS(vesk_current_buffer_write_telemetry_vector(nullptr, vector.get()),
                  "cbuf != ((void *)0)");
    EXPECT_ABORTS(vesk_current_buffer_write_telemetry_vector(cbuf.get(), nullptr),
                  "vector != ((void *)0)");
    EXPECT_ABORTS(vesk_current_buffer_write_event(nullptr, event.get()), "cbuf != ((void *)0)");
    EXPECT_ABORTS(vesk_current_buffer_write_event(cbuf.get(), nullptr), "event != ((void *)0)");
    EXPECT_ABORTS(vesk_current_buffer_write_tagged_event(nullptr, event.get()),
                  "cbuf != ((void *)0)");
    EXPECT_ABORTS(vesk_current_buffer_write_tagged_event(cbuf.get(), nullptr),
                  "event != ((void *)0)");
    const vesk_cb_record_event dead = {};
    EXPECT_ABORTS(vesk_current_buffer_write_tagged_event(cbuf.get(), &dead),
                  "event->version == ((char) 1)");
    EXPECT_ABORTS(vesk_current_buffer_read_record(nullptr, rec.get()), "cbuf != ((void *)0)");
    EXPECT_ABORTS(vesk_current_buffer_get_filename(nullptr), "cbuf != ((void *)0)");
    EXPECT_ABORTS(vesk_current_buffer_get_sensor_working_set(nullptr), "cbuf != ((void *)0)");
    EXPECT_ABORTS(binary_serializer_write_vesk_current_buffer(nullptr, target.get()),
                  "cbuf != ((void *)0)");
    EXPECT_ABORTS(binary_serializer_write_vesk_current_buffer(cbuf.get(), nullptr),
                  "writer != ((void *)0)");
    EXPECT_ABORTS(binary_serializer_read_vesk_current_buffer(nullptr, source.get()),
                  "cbuf != ((void *)0)");
    EXPECT_ABORTS(binary_serializer_read_vesk_current_buffer(cbuf.get(), nullptr),
                  "reader != ((void *)0)");
}

TEST_F(CurrentBuffer, ABufferThatWasNotOpenedCannotBeRead)
{
    owned_cbuf cbuf = create(2);
    read_into rec;
    EXPECT_ABORTS(vesk_current_buffer_read_record(cbuf.get(), rec.get()),
                  "cbuf->reader != ((void *)0)");
    cbuf.reset();
    cbuf = open();
    EXPECT_ABORTS(vesk_current_buffer_read_record(cbuf.get(), nullptr), "rec != ((void *)0)");
}

TEST_F(CurrentBuffer, AVectorHasOneRowAndSensors)
{
    owned_cbuf cbuf = create(2);
    const char *name = "a";
    const timestamp start = make_timestamp(1);
    const owned_matrix rows(telemetry_matrix_create(matrix_create(2, 1),
                                                    sensor_array_create_from_names(&name, 1),
                                                    timestamp_array_create_dummy(&start, 2)));
    EXPECT_ABORTS(write(cbuf.get(), rows), "matrix_get_number_rows (vector) == 1");
    const owned_matrix plain(matrix_create(1, 1));
    EXPECT_ABORTS(write(cbuf.get(), plain), "m->type == MATRIX_TYPE_TELEMETRY");
}

TEST_F(CurrentBuffer, OnlyALiveBufferIsUsed)
{
    owned_cbuf cbuf = create(2);
    const owned_matrix vector = one(1, 1);
    const owned_event event = make_event(1, 1, "x");
    read_into rec;
    memory_reader source("");
    memory_writer target;
    const char *text = "cbuf->version == ((char) 1)";
    cbuf->version = 0;
    EXPECT_ABORTS(write(cbuf.get(), vector), text);
    EXPECT_ABORTS(vesk_current_buffer_write_event(cbuf.get(), event.get()), text);
    EXPECT_ABORTS(vesk_current_buffer_write_tagged_event(cbuf.get(), event.get()), text);
    EXPECT_ABORTS(vesk_current_buffer_read_record(cbuf.get(), rec.get()), text);
    EXPECT_ABORTS(vesk_current_buffer_get_filename(cbuf.get()), text);
    EXPECT_ABORTS(vesk_current_buffer_get_sensor_working_set(cbuf.get()), text);
    EXPECT_ABORTS(binary_serializer_write_vesk_current_buffer(cbuf.get(), target.get()), text);
    EXPECT_ABORTS(binary_serializer_read_vesk_current_buffer(cbuf.get(), source.get()), text);
}

TEST_F(CurrentBuffer, ClosingRequiresAWholeBuffer)
{
    vesk_current_buffer *none = nullptr;
    EXPECT_ABORTS(vesk_current_buffer_close(nullptr), "cbuf != ((void *)0)");
    EXPECT_ABORTS(vesk_current_buffer_close(&none), "*cbuf != ((void *)0)");
    char name[] = "x";
    vesk_current_buffer partial = {};
    vesk_current_buffer *cbuf = &partial;
    EXPECT_ABORTS(vesk_current_buffer_close(&cbuf), "(*cbuf)->filename != ((void *)0)");
    partial.filename = name;
    EXPECT_ABORTS(vesk_current_buffer_close(&cbuf), "(*cbuf)->writer != ((void *)0)");
    const owned_matrix vector = one(1, 1);
    const owned_event event = make_event(1, 1, "x");
    partial.version = 1;
    EXPECT_ABORTS(write(cbuf, vector), "cbuf->writer != ((void *)0)");
    EXPECT_ABORTS(vesk_current_buffer_write_event(cbuf, event.get()),
                  "cbuf->writer != ((void *)0)");
    EXPECT_ABORTS(vesk_current_buffer_write_tagged_event(cbuf, event.get()),
                  "cbuf->writer != ((void *)0)");
}

TEST_F(CurrentBuffer, ClosingLeavesAloneAFileThatWasTakenAway)
{
    owned_cbuf cbuf = create(2);
    FILE *file = cbuf->file;
    cbuf->file = nullptr;
    cbuf.reset();
    EXPECT_EQ(0, fclose(file));
    EXPECT_EQ(1U, contents().size());
}

TEST_F(CurrentBuffer, ClosingNullsTheCallersPointerAndTheDescriptor)
{
    const auto before = count_open_files();
    vesk_current_buffer *cbuf = vesk_current_buffer_create(path_.c_str(), 2);
    vesk_current_buffer_close(&cbuf);
    EXPECT_EQ(nullptr, cbuf);
    EXPECT_EQ(before, count_open_files());
}
