// A record of a current buffer, of whatever type: which payload it owns, which it reuses when the
// next record is read, and which types it knows.
#include <string>
#include <vector>

#include <vesk/error.h>
#include <vesk/vesk_cb_record.h>

#include "common/aborts.hpp"
#include "common/buffer_files.hpp"
#include "common/failing_calls.hpp"
#include "common/memory_streams.hpp"
#include "common/telemetry.hpp"

namespace
{

using owned_names = owned<vesk_cb_record_sensor_names, vesk_cb_record_sensor_names_destroy>;
using owned_values = owned<vesk_cb_record_sensor_values, vesk_cb_record_sensor_values_destroy>;

// A record of its own, empty at first.
class CbRecord : public testing::Test
{
protected:
    CbRecord() { vesk_cb_record_init_null(&rec_); }
    ~CbRecord() override { vesk_cb_record_destruct(&rec_); }

    int read(const std::string &bytes)
    {
        memory_reader source(bytes);
        return binary_serializer_read_vesk_cb_record(&rec_, source.get());
    }
    int write(memory_writer &target)
    {
        return binary_serializer_write_vesk_cb_record(&rec_, target.get());
    }
    void expect_empty()
    {
        EXPECT_EQ(0U, rec_.type);
        EXPECT_EQ(nullptr, rec_.data);
        EXPECT_EQ(0U, rec_.owns_data);
    }

    vesk_cb_record rec_;
    const std::string names_ = stored_names_record(1000, {"ab", "cd"});
    const std::string values_ = stored_values_record(1001, {1, 2});
    const std::string event_ = stored_event_record(3, 1002, "text");
};

} // namespace

TEST_F(CbRecord, StartsEmpty)
{
    expect_empty();
}

TEST_F(CbRecord, BorrowsThePayloadOfItsMaker)
{
    const owned_matrix vector = make_vector(1000, {{"a", 1}});
    const owned_names names(vesk_cb_record_sensor_names_create(vector.get()));
    EXPECT_EQ(0, vesk_cb_record_init_sensor_names(&rec_, names.get()));
    EXPECT_EQ(1U, rec_.type);
    EXPECT_EQ(names.get(), rec_.names);
    EXPECT_EQ(0U, rec_.owns_data);

    const owned_values values(vesk_cb_record_sensor_values_create(vector.get()));
    EXPECT_EQ(0, vesk_cb_record_init_sensor_values(&rec_, values.get()));
    EXPECT_EQ(2U, rec_.type);
    EXPECT_EQ(values.get(), rec_.values);
    EXPECT_EQ(0U, rec_.owns_data);

    const owned_event event = make_event(1, 1, "x");
    EXPECT_EQ(0, vesk_cb_record_init_event(&rec_, event.get()));
    EXPECT_EQ(3U, rec_.type);
    EXPECT_EQ(event.get(), rec_.event);
    EXPECT_EQ(0U, rec_.owns_data);

    vesk_cb_record_destruct(&rec_);
    expect_empty();
    EXPECT_STREQ("x", event->text) << "the event is still its maker's";
}

TEST_F(CbRecord, WritesItsTypeBeforeItsPayload)
{
    const owned_matrix vector = make_vector(1000, {{"ab", 1}, {"cd", 2}});
    const owned_names names(vesk_cb_record_sensor_names_create(vector.get()));
    const owned_values values(vesk_cb_record_sensor_values_create(vector.get()));
    const owned_event event = make_event(3, 1002, "text");
    memory_writer target;
    vesk_cb_record_init_sensor_names(&rec_, names.get());
    EXPECT_EQ(static_cast<int>(names_.size()), write(target));
    vesk_cb_record_init_sensor_values(&rec_, values.get());
    EXPECT_EQ(26, write(target));
    vesk_cb_record_init_event(&rec_, event.get());
    EXPECT_EQ(static_cast<int>(event_.size()), write(target));
    EXPECT_EQ(names_ + stored_values_record(1000, {1, 2}) + event_, target.bytes());
}

TEST_F(CbRecord, WritingStopsAtTheFirstFailure)
{
    const owned_event event = make_event(3, 1002, "text");
    vesk_cb_record_init_event(&rec_, event.get());
    for (std::size_t room = 0; room < event_.size(); ++room) {
        memory_writer target(room, -41);
        EXPECT_EQ(-41, write(target)) << room;
    }
}

TEST_F(CbRecord, ARefusedPayloadLeavesItsTypeInTheStream)
{
    const owned_values values(vesk_cb_record_sensor_values_create_null());
    values->values = static_cast<float *>(calloc(10001, sizeof(float)));
    values->n_sensors = 10001;
    vesk_cb_record_init_sensor_values(&rec_, values.get());
    memory_writer target;
    EXPECT_EQ(-49, write(target));
    EXPECT_EQ(stored_u32(2), target.bytes());
}

TEST_F(CbRecord, OwnsWhatItReads)
{
    EXPECT_EQ(static_cast<int>(names_.size()), read(names_));
    EXPECT_EQ(1U, rec_.type);
    EXPECT_EQ(1U, rec_.owns_data);
    EXPECT_EQ(2U, vesk_cb_record_sensor_names_get_number_sensors(rec_.names));

    EXPECT_EQ(static_cast<int>(values_.size()), read(values_));
    EXPECT_EQ(2U, rec_.type);
    EXPECT_EQ(1U, rec_.owns_data);
    EXPECT_EQ(2.0F, vesk_cb_record_sensor_values_get_values(rec_.values)[1]);

    EXPECT_EQ(static_cast<int>(event_.size()), read(event_));
    EXPECT_EQ(3U, rec_.type);
    EXPECT_EQ(1U, rec_.owns_data);
    EXPECT_STREQ("text", rec_.event->text);
}

TEST_F(CbRecord, ReadsAStreamOfRecords)
{
    memory_reader source(names_ + values_ + event_ + event_ + values_ + names_ + names_);
    std::vector<uint32_t> types;
    int nread = 0;
    while ((nread = binary_serializer_read_vesk_cb_record(&rec_, source.get())) > 0) {
        types.push_back(rec_.type);
    }
    EXPECT_EQ(0, nread);
    EXPECT_EQ((std::vector<uint32_t>{1, 2, 3, 3, 2, 1, 1}), types);
}

TEST_F(CbRecord, TheEndOfTheRecordsLeavesItUntouched)
{
    ASSERT_LT(0, read(event_));
    const vesk_cb_record before = rec_;
    EXPECT_EQ(0, read(""));
    EXPECT_EQ(before.type, rec_.type);
    EXPECT_EQ(before.data, rec_.data);
    EXPECT_EQ(before.owns_data, rec_.owns_data);
}

TEST_F(CbRecord, UnknownTypesLeaveItUntouched)
{
    ASSERT_LT(0, read(event_));
    const vesk_cb_record before = rec_;
    for (const uint32_t type : {0U, 4U, 7U, 0x01000000U, UINT32_MAX}) {
        memory_reader source(stored_u32(type) + "more");
        EXPECT_EQ(-6, binary_serializer_read_vesk_cb_record(&rec_, source.get())) << type;
        EXPECT_EQ(4U, source.consumed());
        EXPECT_EQ(before.type, rec_.type);
        EXPECT_EQ(before.data, rec_.data);
        EXPECT_EQ(before.owns_data, rec_.owns_data);
    }
}

TEST_F(CbRecord, ABareEventIsNoRecord)
{
    EXPECT_EQ(-6, read(stored_event_body(3, 1002, "text")));
}

TEST_F(CbRecord, ReusesThePayloadOfTheSameType)
{
    for (const std::string *form : {&names_, &values_, &event_}) {
        ASSERT_LT(0, read(*form));
        const void *payload = rec_.data;
        ASSERT_LT(0, read(*form));
        EXPECT_EQ(payload, rec_.data);
    }
}

TEST_F(CbRecord, ReusesTheArrayOfASampleOfTheSameLength)
{
    ASSERT_LT(0, read(values_));
    const float *array = rec_.values->values;
    ASSERT_LT(0, read(stored_values_record(1002, {3, 4})));
    EXPECT_EQ(array, rec_.values->values);
    EXPECT_EQ(4.0F, array[1]);
}

TEST_F(CbRecord, NeverReusesAPayloadThatIsNotItsOwn)
{
    const owned_event event = make_event(1, 1, "borrowed");
    vesk_cb_record_init_event(&rec_, event.get());
    ASSERT_LT(0, read(event_));
    EXPECT_NE(event.get(), rec_.event);
    EXPECT_STREQ("borrowed", event->text);

    ASSERT_LT(0, read(names_));
    const owned_names taken(rec_.names);
    vesk_cb_record_detach(&rec_);
    ASSERT_LT(0, read(stored_names_record(1003, {"c"})));
    EXPECT_NE(taken.get(), rec_.names);
    EXPECT_EQ(2U, vesk_cb_record_sensor_names_get_number_sensors(taken.get()));
}

TEST_F(CbRecord, DetachGivesThePayloadAway)
{
    ASSERT_LT(0, read(event_));
    const owned_event taken(rec_.event);
    vesk_cb_record_detach(&rec_);
    EXPECT_EQ(3U, rec_.type);
    EXPECT_EQ(taken.get(), rec_.event);
    EXPECT_EQ(0U, rec_.owns_data);
    vesk_cb_record_destruct(&rec_);
    EXPECT_STREQ("text", taken->text);
}

TEST_F(CbRecord, AFailedReadLeavesNoPayload)
{
    for (const std::string *form : {&names_, &values_, &event_}) {
        ASSERT_LT(0, read(*form));
        const uint32_t type = rec_.type;
        EXPECT_EQ(-48, read(form->substr(0, form->size() - 1)));
        EXPECT_EQ(type, rec_.type);
        EXPECT_EQ(nullptr, rec_.data);
        EXPECT_EQ(0U, rec_.owns_data);
        EXPECT_EQ(static_cast<int>(form->size()), read(*form)) << "and can be used again";
    }
}

TEST_F(CbRecord, DataThatEndsInsideIsNeverTheEndOfTheRecords)
{
    for (const std::string *form : {&values_, &event_, &names_}) {
        for (std::size_t n = 1; n < 12; ++n) {
            EXPECT_EQ(-48, read(form->substr(0, n))) << n;
        }
    }
}

TEST_F(CbRecord, ATextCutOffBeforeItsLengthGivesTheCodeOfStrings)
{
    EXPECT_EQ(-43, read(event_.substr(0, 4 + 14)));
    EXPECT_EQ(nullptr, rec_.data);
}

TEST_F(CbRecord, FailureOfTheReaderIsPassedOn)
{
    for (std::size_t n = 0; n < values_.size(); ++n) {
        memory_reader source(values_.substr(0, n), -41);
        EXPECT_EQ(-41, binary_serializer_read_vesk_cb_record(&rec_, source.get())) << n;
        EXPECT_EQ(nullptr, rec_.data);
    }
}

TEST_F(CbRecord, EveryFlippedByteIsARecordOrACode)
{
    for (const std::string *form : {&names_, &values_, &event_}) {
        for (std::size_t i = 0; i < form->size(); ++i) {
            for (const int flip : {0x01, 0x80, 0xFF}) {
                std::string bad = *form;
                bad[i] = static_cast<char>(bad[i] ^ flip);
                vesk_cb_record_destruct(&rec_);
                const int nread = read(bad);
                EXPECT_EQ(nread > 0, rec_.owns_data == 1) << i;
                EXPECT_LE(nread, static_cast<int>(bad.size()));
            }
        }
    }
}

TEST_F(CbRecord, ReadingWithoutMemoryGives22)
{
    for (const std::string *form : {&names_, &values_, &event_}) {
        for (int n = 1;; ++n) {
            vesk_cb_record_destruct(&rec_);
            memory_reader source(*form);
            qe_set_last_error(0);
            const failing_allocation failing(n);
            const int nread = binary_serializer_read_vesk_cb_record(&rec_, source.get());
            if (!failing_allocation::happened()) {
                EXPECT_EQ(static_cast<int>(form->size()), nread);
                break;
            }
            EXPECT_EQ(-22, nread) << n;
            EXPECT_EQ(nullptr, rec_.data);
        }
    }
}

TEST_F(CbRecord, AbortsOnBadCalls)
{
    memory_writer target;
    memory_reader source("");
    EXPECT_ABORTS(vesk_cb_record_init_null(nullptr), "rec != ((void *)0)");
    EXPECT_ABORTS(vesk_cb_record_init_sensor_names(&rec_, nullptr), "names != ((void *)0)");
    EXPECT_ABORTS(vesk_cb_record_init_sensor_values(&rec_, nullptr), "values != ((void *)0)");
    EXPECT_ABORTS(vesk_cb_record_init_event(&rec_, nullptr), "event != ((void *)0)");
    EXPECT_ABORTS(vesk_cb_record_destruct(nullptr), "rec != ((void *)0)");
    EXPECT_ABORTS(vesk_cb_record_detach(nullptr), "rec != ((void *)0)");
    EXPECT_ABORTS(vesk_cb_record_detach(&rec_), "rec->type > 0");
    EXPECT_ABORTS(binary_serializer_write_vesk_cb_record(nullptr, target.get()),
                  "rec != ((void *)0)");
    EXPECT_ABORTS(binary_serializer_write_vesk_cb_record(&rec_, nullptr), "writer != ((void *)0)");
    EXPECT_ABORTS(binary_serializer_read_vesk_cb_record(nullptr, source.get()),
                  "rec != ((void *)0)");
    EXPECT_ABORTS(binary_serializer_read_vesk_cb_record(&rec_, nullptr), "reader != ((void *)0)");
}

TEST_F(CbRecord, AbortsWithoutAPayload)
{
    memory_writer target;
    rec_.type = VESK_CB_RECORD_SENSOR_NAMES;
    EXPECT_ABORTS(vesk_cb_record_detach(&rec_), "rec->data != ((void *)0)");
    EXPECT_ABORTS(write(target), "rec->names != ((void *)0)");
    rec_.type = VESK_CB_RECORD_SENSOR_VALUES;
    EXPECT_ABORTS(write(target), "rec->values != ((void *)0)");
    rec_.type = VESK_CB_RECORD_EVENT;
    EXPECT_ABORTS(write(target), "rec->event != ((void *)0)");
}

TEST_F(CbRecord, AbortsOnUnknownTypes)
{
    memory_writer target;
    EXPECT_ABORTS(write(target), "0");
    ASSERT_LT(0, read(event_));
    rec_.type = 4;
    EXPECT_ABORTS(write(target), "0");
    EXPECT_ABORTS(vesk_cb_record_destruct(&rec_), "0");
    rec_.type = 3;
}
