// The record of one interval of a history: its summaries, times and events, its stored form in both
// versions, and which counts and damaged bytes are refused.
#include <string>
#include <vector>

#include <vesk/error.h>
#include <vesk/vesk_hb_record_sensor_values.h>

#include "common/aborts.hpp"
#include "common/buffer_files.hpp"
#include "common/failing_calls.hpp"
#include "common/history.hpp"
#include "common/memory_streams.hpp"
#include "common/telemetry.hpp"

namespace
{

using owned_statistics = owned<vesk_hb_record_sensor_values, vesk_hb_record_sensor_values_destroy>;

// Where things stand in a form of two summaries.
constexpr std::size_t count_offset = 19;
constexpr std::size_t hvalues_offset = 23;
constexpr std::size_t events_offset = hvalues_offset + 2 * 37;

vesk_hb_record_events make_events(uint32_t type2, uint32_t type4)
{
    vesk_hb_record_events events;
    vesk_hb_record_events_init_null(&events);
    events.n_type2_events = type2;
    events.n_type4_events = type4;
    return events;
}

// Two sensors over one interval.
owned_statistics make_values(long start = 1000, long end = 1001, uint32_t type2 = 5)
{
    const owned_hist_list list = make_list({{"a", {1, 2}}, {"b", {3}}});
    const timestamp from = make_timestamp(start);
    const timestamp to = make_timestamp(end);
    const vesk_hb_record_events events = make_events(type2, 7);
    return owned_statistics(vesk_hb_record_sensor_values_create(&from, &to, list.get(), &events));
}

// The stored form of that, without the type that precedes it in a buffer.
std::string stored_values()
{
    event_counts events;
    events.type2 = 5;
    events.type4 = 7;
    return stored_interval_record(1000, 1001, {stored_summary({1, 2}), stored_summary({3})}, events)
        .substr(4);
}

int write_statistics(const vesk_hb_record_sensor_values *rec, memory_writer &target)
{
    return binary_serializer_write_vesk_hb_record_sensor_values(rec, target.get());
}

int read(vesk_hb_record_sensor_values *rec, const std::string &bytes)
{
    memory_reader source(bytes);
    return binary_serializer_read_vesk_hb_record_sensor_values(rec, source.get());
}

int read_new_statistics(const std::string &bytes)
{
    const owned_statistics rec(vesk_hb_record_sensor_values_create_null());
    return read(rec.get(), bytes);
}

} // namespace

TEST(HbRecordSensorValues, CopiesTheListTheTimesAndTheEvents)
{
    const owned_statistics rec = make_values();
    EXPECT_EQ(2, rec->version);
    EXPECT_EQ(1000, vesk_hb_record_sensor_values_get_start_timestamp(rec.get())->tv.tv_sec);
    EXPECT_EQ(1001, vesk_hb_record_sensor_values_get_end_timestamp(rec.get())->tv.tv_sec);
    ASSERT_EQ(2U, vesk_hb_record_sensor_values_get_number_hist_values(rec.get()));
    const hist_value *hvalues = vesk_hb_record_sensor_values_get_hist_values(rec.get());
    EXPECT_EQ(2U, hvalues[0].count);
    EXPECT_EQ(3.0F, hvalues[0].sum);
    EXPECT_EQ(1U, hvalues[1].count);
    const vesk_hb_record_events *events = vesk_hb_record_sensor_values_get_events(rec.get());
    EXPECT_EQ(5U, events->n_type2_events);
    EXPECT_EQ(7U, events->n_type4_events);
}

TEST(HbRecordSensorValues, HasNoEventsWhenNoneAreGiven)
{
    const owned_hist_list list = make_list({{"a", {1}}});
    const timestamp t = make_timestamp(1000);
    const owned_statistics rec(vesk_hb_record_sensor_values_create(&t, &t, list.get(), nullptr));
    const vesk_hb_record_events none = make_events(0, 0);
    EXPECT_EQ(1, vesk_hb_record_events_is_equal(&none, &rec->events));
}

TEST(HbRecordSensorValues, NullRecordIsLiveAndEmpty)
{
    vesk_hb_record_sensor_values rec;
    EXPECT_EQ(0, vesk_hb_record_sensor_values_init_null(&rec));
    EXPECT_EQ(2, rec.version);
    EXPECT_NE(0, timestamp_is_null(&rec.start));
    EXPECT_NE(0, timestamp_is_null(&rec.end));
    EXPECT_EQ(nullptr, vesk_hb_record_sensor_values_get_hist_values(&rec));
    EXPECT_EQ(0U, vesk_hb_record_sensor_values_get_number_hist_values(&rec));
    EXPECT_EQ(1, rec.events.version);
    vesk_hb_record_sensor_values_destruct(&rec);
    EXPECT_EQ(0, rec.version);
    EXPECT_EQ(0, rec.events.version);
}

TEST(HbRecordSensorValues, DestroySetsThePointerToNull)
{
    vesk_hb_record_sensor_values *rec = make_values().release();
    vesk_hb_record_sensor_values_destroy(&rec);
    EXPECT_EQ(nullptr, rec);
}

TEST(HbRecordSensorValues, CreateReportsEveryFailedAllocation)
{
    const owned_hist_list list = make_list({{"a", {1}}});
    const timestamp t = make_timestamp(1000);
    for (int n = 1; n <= 2; ++n) {
        qe_set_last_error(0);
        const failing_allocation failing(n);
        EXPECT_EQ(nullptr, vesk_hb_record_sensor_values_create(&t, &t, list.get(), nullptr)) << n;
        EXPECT_EQ(-22, qe_get_last_error());
    }
    qe_set_last_error(0);
    const failing_allocation failing(1);
    EXPECT_EQ(nullptr, vesk_hb_record_sensor_values_create_null());
    EXPECT_EQ(-22, qe_get_last_error());
}

TEST(HbRecordSensorValues, FormIsVersionTimesCountSummariesAndEvents)
{
    const owned_statistics rec = make_values();
    memory_writer target;
    EXPECT_EQ(118, write_statistics(rec.get(), target));
    EXPECT_EQ(from_hex("02"
                       "01 00 00 03 E8 00 00 00 00"
                       "01 00 00 03 E9 00 00 00 00"
                       "00 00 00 02"
                       "01 00 00 00 02"
                       "3F 80 00 00  40 00 00 00  3F 80 00 00  40 00 00 00"
                       "40 40 00 00  40 A0 00 00  41 10 00 00  41 88 00 00"
                       "01 00 00 00 01"
                       "40 40 00 00  40 40 00 00  40 40 00 00  40 40 00 00"
                       "40 40 00 00  41 10 00 00  41 D8 00 00  42 A2 00 00"
                       "01 00 00 00 00  00 00 00 07  00 00 00 05  00 00 00 00  00 00 00 00"),
              target.bytes());
    EXPECT_EQ(stored_values(), target.bytes());
}

TEST(HbRecordSensorValues, ReadsWhatWasWritten)
{
    const owned_statistics rec = make_values();
    const owned_statistics read_back(vesk_hb_record_sensor_values_create_null());
    EXPECT_EQ(118, read(read_back.get(), stored_values()));
    EXPECT_EQ(1, vesk_hb_record_sensor_values_is_equal(rec.get(), read_back.get()));
}

TEST(HbRecordSensorValues, AFormOfVersion1EndsBeforeTheEvents)
{
    const owned_statistics rec = make_values();
    std::string form = stored_values();
    form[0] = 1;
    form.resize(events_offset);
    EXPECT_EQ(static_cast<int>(events_offset), read(rec.get(), form));
    EXPECT_EQ(2, rec->version);
    const vesk_hb_record_events none = make_events(0, 0);
    EXPECT_EQ(1, vesk_hb_record_events_is_equal(&none, &rec->events));
}

TEST(HbRecordSensorValues, RefusesOtherVersions)
{
    std::string form = stored_values();
    for (const int version : {0, 3, 127, 128, 255}) {
        form[0] = static_cast<char>(version);
        EXPECT_EQ(-12, read_new_statistics(form)) << version;
    }
    form = stored_values();
    form[hvalues_offset] = 2;
    EXPECT_EQ(-12, read_new_statistics(form)) << "that of a summary";
}

TEST(HbRecordSensorValues, TenThousandSummariesAreTheLimit)
{
    owned_statistics rec(vesk_hb_record_sensor_values_create_null());
    rec->hvalues = static_cast<hist_value *>(malloc(10001 * sizeof(hist_value)));
    for (uint32_t i = 0; i < 10001; ++i) {
        hist_value_init(&rec->hvalues[i]);
    }
    rec->n_sensors = 10001;
    memory_writer refused;
    EXPECT_EQ(-49, write_statistics(rec.get(), refused));
    EXPECT_EQ("", refused.bytes());
    rec->n_sensors = 10000;
    memory_writer target;
    EXPECT_EQ(23 + 10000 * 37 + 21, write_statistics(rec.get(), target));
    EXPECT_EQ(23 + 10000 * 37 + 21, read_new_statistics(target.bytes()));
}

TEST(HbRecordSensorValues, CountsOutOfRangeAreNotRead)
{
    const std::string head = stored_values().substr(0, count_offset);
    EXPECT_EQ(-6, read_new_statistics(head + stored_u32(0)));
    EXPECT_EQ(-6, read_new_statistics(head + stored_u32(10001)));
    EXPECT_EQ(-6, read_new_statistics(head + stored_u32(UINT32_MAX)));
}

TEST(HbRecordSensorValues, ReadingReusesAnArrayOfTheRightLength)
{
    const owned_statistics rec = make_values();
    const hist_value *hvalues = rec->hvalues;
    EXPECT_LT(0, read(rec.get(), stored_values()));
    EXPECT_EQ(hvalues, rec->hvalues);
    EXPECT_LT(0, read(rec.get(), stored_interval_record(1, 2, {stored_summary({9})}).substr(4)));
    EXPECT_EQ(1U, rec->n_sensors);
    EXPECT_EQ(9.0F, rec->hvalues[0].sum);
    EXPECT_LT(0, read(rec.get(), stored_values()));
    EXPECT_EQ(2U, rec->n_sensors);
}

TEST(HbRecordSensorValues, DataThatEndsInsideGivesTheCodeOfThePlace)
{
    const std::string form = stored_values();
    EXPECT_EQ(0, read_new_statistics(""));
    for (std::size_t n = 1; n < form.size(); ++n) {
        if (n == events_offset + 5) {
            EXPECT_ABORTS(read_new_statistics(form.substr(0, n)), "nread != 0");
        } else {
            EXPECT_EQ(-48, read_new_statistics(form.substr(0, n))) << n;
        }
    }
}

TEST(HbRecordSensorValues, CountsTheSummariesThatWereReadBeforeAFailure)
{
    const owned_statistics fresh(vesk_hb_record_sensor_values_create_null());
    EXPECT_EQ(-48, read(fresh.get(), stored_values().substr(0, hvalues_offset + 37 + 9)));
    EXPECT_EQ(1U, fresh->n_sensors);
    EXPECT_EQ(3.0F, fresh->hvalues[0].sum);

    const owned_statistics reused = make_values();
    EXPECT_EQ(-48, read(reused.get(), stored_values().substr(0, hvalues_offset + 9)));
    EXPECT_EQ(0U, reused->n_sensors);
    EXPECT_EQ(118, read(reused.get(), stored_values())) << "and can be read into again";
    EXPECT_EQ(2U, reused->n_sensors);
}

TEST(HbRecordSensorValues, FailureOfTheReaderIsPassedOn)
{
    const std::string form = stored_values();
    for (std::size_t n = 0; n < form.size(); ++n) {
        memory_reader source(form.substr(0, n), -41);
        const owned_statistics rec(vesk_hb_record_sensor_values_create_null());
        EXPECT_EQ(-41, binary_serializer_read_vesk_hb_record_sensor_values(rec.get(), source.get()))
            << n;
    }
}

TEST(HbRecordSensorValues, ReadingWithoutMemoryGives22)
{
    memory_reader source(stored_values());
    const owned_statistics rec(vesk_hb_record_sensor_values_create_null());
    const failing_allocation failing(1);
    EXPECT_EQ(-22, binary_serializer_read_vesk_hb_record_sensor_values(rec.get(), source.get()));
    EXPECT_EQ(0U, rec->n_sensors);
}

TEST(HbRecordSensorValues, WritingStopsAtTheFirstFailure)
{
    const owned_statistics rec = make_values();
    for (std::size_t room = 0; room < 118; ++room) {
        memory_writer target(room, -41);
        EXPECT_EQ(-41, write_statistics(rec.get(), target)) << room;
    }
}

TEST(HbRecordSensorValues, IsEqualByTimesEventsAndSummaries)
{
    const auto equal = vesk_hb_record_sensor_values_is_equal;
    const owned_statistics rec = make_values();
    EXPECT_EQ(1, equal(rec.get(), make_values().get()));
    EXPECT_EQ(0, equal(rec.get(), make_values(999).get()));
    EXPECT_EQ(0, equal(rec.get(), make_values(1000, 1002).get()));
    EXPECT_EQ(0, equal(rec.get(), make_values(1000, 1001, 6).get()));
    const owned_statistics other = make_values();
    other->hvalues[1].last_value += 1;
    EXPECT_EQ(0, equal(rec.get(), other.get()));
    const owned_statistics shorter(vesk_hb_record_sensor_values_create_null());
    EXPECT_LT(0, read(shorter.get(),
                      stored_interval_record(1000, 1001, {stored_summary({1})}).substr(4)));
    EXPECT_EQ(0, equal(rec.get(), shorter.get()));
}

TEST(HbRecordSensorValues, CopyLeavesTheEventsOut)
{
    const owned_statistics rec = make_values();
    const owned_statistics copy(vesk_hb_record_sensor_values_copy(rec.get(), nullptr));
    ASSERT_TRUE(copy);
    vesk_hb_record_events_copy(&rec->events, &copy->events);
    EXPECT_EQ(1, vesk_hb_record_sensor_values_is_equal(rec.get(), copy.get()));
    EXPECT_NE(rec->hvalues, copy->hvalues);

    const owned_statistics onto = make_values(1, 2, 99);
    EXPECT_EQ(onto.get(), vesk_hb_record_sensor_values_copy(rec.get(), onto.get()));
    EXPECT_EQ(99U, onto->events.n_type2_events);
    EXPECT_EQ(1000, onto->start.tv.tv_sec);
}

TEST(HbRecordSensorValues, CopyMarksItsSourceLive)
{
    const owned_statistics rec = make_values();
    rec->version = 1;
    const owned_statistics copy(vesk_hb_record_sensor_values_copy(rec.get(), nullptr));
    EXPECT_EQ(2, rec->version);
    EXPECT_EQ(2, copy->version);
}

TEST(HbRecordSensorValues, ACopyOntoItselfChangesNothing)
{
    const owned_statistics rec = make_values();
    EXPECT_EQ(rec.get(), vesk_hb_record_sensor_values_copy(rec.get(), rec.get()));
    EXPECT_EQ(1, vesk_hb_record_sensor_values_is_equal(rec.get(), make_values().get()));
}

TEST(HbRecordSensorValues, FailedCopyLeavesTheDestinationAlone)
{
    const owned_statistics rec = make_values();
    const owned_statistics onto = make_values(1, 2, 3);
    for (int n = 1; n <= 2; ++n) {
        qe_set_last_error(0);
        const failing_allocation failing(n);
        EXPECT_EQ(nullptr, vesk_hb_record_sensor_values_copy(rec.get(), nullptr)) << n;
        EXPECT_EQ(-22, qe_get_last_error());
    }
    const failing_allocation failing(1);
    EXPECT_EQ(nullptr, vesk_hb_record_sensor_values_copy(rec.get(), onto.get()));
    EXPECT_EQ(1, onto->start.tv.tv_sec);
    EXPECT_EQ(2U, onto->n_sensors);
}

TEST(HbRecordSensorValues, AbortsWithoutSummaries)
{
    const owned_statistics full = make_values();
    const owned_statistics null(vesk_hb_record_sensor_values_create_null());
    const owned_hist_list list = make_list({});
    const timestamp t = make_timestamp(1);
    memory_writer target;
    EXPECT_ABORTS(vesk_hb_record_sensor_values_create(&t, &t, list.get(), nullptr),
                  "rec->n_sensors > 0");
    EXPECT_ABORTS(write_statistics(null.get(), target), "rec->hvalues != ((void *)0)");
    EXPECT_ABORTS(vesk_hb_record_sensor_values_is_equal(null.get(), full.get()),
                  "rec1->hvalues != ((void *)0)");
    EXPECT_ABORTS(vesk_hb_record_sensor_values_is_equal(full.get(), null.get()),
                  "rec2->hvalues != ((void *)0)");
    full->n_sensors = 0;
    EXPECT_ABORTS(write_statistics(full.get(), target), "rec->n_sensors > 0");
    EXPECT_ABORTS(vesk_hb_record_sensor_values_is_equal(full.get(), full.get()),
                  "rec1->n_sensors > 0");
    const owned_statistics other = make_values();
    EXPECT_ABORTS(vesk_hb_record_sensor_values_is_equal(other.get(), full.get()),
                  "rec2->n_sensors > 0");
}

TEST(HbRecordSensorValues, AbortsOnDeadRecords)
{
    const owned_statistics live = make_values();
    vesk_hb_record_sensor_values dead;
    vesk_hb_record_sensor_values_init_null(&dead);
    vesk_hb_record_sensor_values_destruct(&dead);
    memory_writer target;
    memory_reader source("");
    const char *const text = "rec->version == ((char) 2)";
    EXPECT_ABORTS(vesk_hb_record_sensor_values_destruct(&dead), text);
    EXPECT_ABORTS(vesk_hb_record_sensor_values_get_hist_values(&dead), text);
    EXPECT_ABORTS(vesk_hb_record_sensor_values_get_number_hist_values(&dead), text);
    EXPECT_ABORTS(vesk_hb_record_sensor_values_get_start_timestamp(&dead), text);
    EXPECT_ABORTS(vesk_hb_record_sensor_values_get_end_timestamp(&dead), text);
    EXPECT_ABORTS(vesk_hb_record_sensor_values_get_events(&dead), text);
    EXPECT_ABORTS(vesk_hb_record_sensor_values_is_equal(&dead, live.get()),
                  "rec1->version == ((char) 2)");
    EXPECT_ABORTS(vesk_hb_record_sensor_values_is_equal(live.get(), &dead),
                  "rec2->version == ((char) 2)");
    EXPECT_ABORTS(write_statistics(&dead, target), "rec->version == 2");
    EXPECT_ABORTS(binary_serializer_read_vesk_hb_record_sensor_values(&dead, source.get()),
                  "rec->version == 2");
}

TEST(HbRecordSensorValues, AbortsOnNullPointers)
{
    const owned_statistics live = make_values();
    const owned_hist_list list = make_list({{"a", {1}}});
    const timestamp t = make_timestamp(1);
    vesk_hb_record_sensor_values rec;
    vesk_hb_record_sensor_values *none = nullptr;
    memory_writer target;
    memory_reader source("");
    const char *const text = "rec != ((void *)0)";
    EXPECT_ABORTS(vesk_hb_record_sensor_values_init(nullptr, &t, &t, list.get(), nullptr), text);
    EXPECT_ABORTS(vesk_hb_record_sensor_values_init(&rec, nullptr, &t, list.get(), nullptr),
                  "start != ((void *)0)");
    EXPECT_ABORTS(vesk_hb_record_sensor_values_init(&rec, &t, nullptr, list.get(), nullptr),
                  "end != ((void *)0)");
    EXPECT_ABORTS(vesk_hb_record_sensor_values_init(&rec, &t, &t, nullptr, nullptr),
                  "hvlist != ((void *)0)");
    EXPECT_ABORTS(vesk_hb_record_sensor_values_init_null(nullptr), text);
    EXPECT_ABORTS(vesk_hb_record_sensor_values_destruct(nullptr), text);
    EXPECT_ABORTS(vesk_hb_record_sensor_values_destroy(nullptr), text);
    EXPECT_ABORTS(vesk_hb_record_sensor_values_destroy(&none), "*rec != ((void *)0)");
    EXPECT_ABORTS(vesk_hb_record_sensor_values_get_hist_values(nullptr), text);
    EXPECT_ABORTS(vesk_hb_record_sensor_values_get_number_hist_values(nullptr), text);
    EXPECT_ABORTS(vesk_hb_record_sensor_values_get_start_timestamp(nullptr), text);
    EXPECT_ABORTS(vesk_hb_record_sensor_values_get_end_timestamp(nullptr), text);
    EXPECT_ABORTS(vesk_hb_record_sensor_values_get_events(nullptr), text);
    EXPECT_ABORTS(vesk_hb_record_sensor_values_is_equal(nullptr, live.get()),
                  "rec1 != ((void *)0)");
    EXPECT_ABORTS(vesk_hb_record_sensor_values_is_equal(live.get(), nullptr),
                  "rec2 != ((void *)0)");
    EXPECT_ABORTS(vesk_hb_record_sensor_values_copy(nullptr, nullptr), text);
    EXPECT_ABORTS(write_statistics(nullptr, target), text);
    EXPECT_ABORTS(binary_serializer_write_vesk_hb_record_sensor_values(live.get(), nullptr),
                  "writer != ((void *)0)");
    EXPECT_ABORTS(binary_serializer_read_vesk_hb_record_sensor_values(nullptr, source.get()), text);
    EXPECT_ABORTS(binary_serializer_read_vesk_hb_record_sensor_values(live.get(), nullptr),
                  "reader != ((void *)0)");
}
