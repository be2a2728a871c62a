// A record of a history buffer, of whatever type: which payload it owns, which it reuses when the
// next record is read, and which types it knows.
#include <string>
#include <vector>

#include <vesk/error.h>
#include <vesk/vesk_hb_record.h>

#include "common/aborts.hpp"
#include "common/buffer_files.hpp"
#include "common/failing_calls.hpp"
#include "common/history.hpp"
#include "common/memory_streams.hpp"
#include "common/telemetry.hpp"

namespace
{

using owned_hist_names = owned<vesk_hb_record_sensor_names, vesk_hb_record_sensor_names_destroy>;
using owned_statistics = owned<vesk_hb_record_sensor_values, vesk_hb_record_sensor_values_destroy>;

// A record of its own, empty at first.
class HbRecord : public testing::Test
{
protected:
    HbRecord() { vesk_hb_record_init_null(&rec_); }
    ~HbRecord() override { vesk_hb_record_destruct(&rec_); }

    int read(const std::string &bytes)
    {
        memory_reader source(bytes);
        return binary_serializer_read_vesk_hb_record(&rec_, source.get());
    }
    int write(memory_writer &target)
    {
        return binary_serializer_write_vesk_hb_record(&rec_, target.get());
    }
    void expect_empty()
    {
        EXPECT_EQ(0U, rec_.type);
        EXPECT_EQ(nullptr, rec_.data);
        EXPECT_EQ(0U, rec_.owns_data);
    }

    vesk_hb_record rec_;
    const std::string names_ = stored_names_record(1000, {"ab", "cd"});
    const std::string values_ =
        stored_interval_record(1000, 1001, {stored_summary({1, 2}), stored_summary({3})});
};

} // namespace

TEST_F(HbRecord, StartsEmpty)
{
    expect_empty();
}

TEST_F(HbRecord, BorrowsThePayloadOfItsMaker)
{
    const owned_hist_names names(vesk_hb_record_sensor_names_create_null());
    const owned_statistics values(vesk_hb_record_sensor_values_create_null());
    EXPECT_EQ(0, vesk_hb_record_init_sensor_names(&rec_, names.get()));
    EXPECT_EQ(1U, rec_.type);
    EXPECT_EQ(names.get(), rec_.names);
    EXPECT_EQ(0U, rec_.owns_data);
    EXPECT_EQ(0, vesk_hb_record_init_sensor_values(&rec_, values.get()));
    EXPECT_EQ(2U, rec_.type);
    EXPECT_EQ(values.get(), rec_.values);
    EXPECT_EQ(0U, rec_.owns_data);
    vesk_hb_record_destruct(&rec_);
    expect_empty();
}

TEST_F(HbRecord, WritesItsTypeBeforeItsPayload)
{
    const owned_hist_list list = make_list({{"ab", {1, 2}}, {"cd", {3}}});
    const timestamp start = make_timestamp(1000);
    const timestamp end = make_timestamp(1001);
    const owned_hist_names names(vesk_hb_record_sensor_names_create(&start, list.get()));
    const owned_statistics values(
        vesk_hb_record_sensor_values_create(&start, &end, list.get(), nullptr));
    memory_writer target;
    vesk_hb_record_init_sensor_names(&rec_, names.get());
    EXPECT_EQ(static_cast<int>(names_.size()), write(target));
    vesk_hb_record_init_sensor_values(&rec_, values.get());
    EXPECT_EQ(static_cast<int>(values_.size()), write(target));
    EXPECT_EQ(names_ + values_, target.bytes());
    for (std::size_t room = 0; room < values_.size(); ++room) {
        memory_writer full(room, -41);
        EXPECT_EQ(-41, write(full)) << room;
    }
}

TEST_F(HbRecord, OwnsWhatItReads)
{
    EXPECT_EQ(static_cast<int>(names_.size()), read(names_));
    EXPECT_EQ(1U, rec_.type);
    EXPECT_EQ(1U, rec_.owns_data);
    EXPECT_EQ(2U, vesk_hb_record_sensor_names_get_number_sensors(rec_.names));
    EXPECT_EQ(static_cast<int>(values_.size()), read(values_));
    EXPECT_EQ(2U, rec_.type);
    EXPECT_EQ(1U, rec_.owns_data);
    EXPECT_EQ(2U, vesk_hb_record_sensor_values_get_number_hist_values(rec_.values));
    EXPECT_EQ(static_cast<int>(names_.size()), read(names_));
    EXPECT_EQ(1U, rec_.type);
}

TEST_F(HbRecord, ReadsAStreamOfRecords)
{
    memory_reader source(names_ + values_ + values_ + names_ + names_ + values_);
    std::vector<uint32_t> types;
    int nread = 0;
    while ((nread = binary_serializer_read_vesk_hb_record(&rec_, source.get())) > 0) {
        types.push_back(rec_.type);
    }
    EXPECT_EQ(0, nread);
    EXPECT_EQ((std::vector<uint32_t>{1, 2, 2, 1, 1, 2}), types);
}

TEST_F(HbRecord, TheEndOfTheRecordsLeavesItUntouched)
{
    ASSERT_LT(0, read(values_));
    const vesk_hb_record before = rec_;
    EXPECT_EQ(0, read(""));
    EXPECT_EQ(before.type, rec_.type);
    EXPECT_EQ(before.data, rec_.data);
    EXPECT_EQ(before.owns_data, rec_.owns_data);
}

TEST_F(HbRecord, UnknownTypesEmptyIt)
{
    for (const uint32_t type : {0U, 3U, 7U, 0x01000000U, UINT32_MAX}) {
        ASSERT_LT(0, read(values_));
        memory_reader source(stored_u32(type) + "more");
        EXPECT_EQ(-6, binary_serializer_read_vesk_hb_record(&rec_, source.get())) << type;
        EXPECT_EQ(4U, source.consumed());
        expect_empty();
    }
}

TEST_F(HbRecord, ReusesThePayloadOfTheSameType)
{
    for (const std::string *form : {&names_, &values_}) {
        ASSERT_LT(0, read(*form));
        const void *payload = rec_.data;
        ASSERT_LT(0, read(*form));
        EXPECT_EQ(payload, rec_.data);
    }
}

TEST_F(HbRecord, NeverReusesAPayloadThatIsNotItsOwn)
{
    ASSERT_LT(0, read(names_));
    const owned_hist_names taken(rec_.names);
    vesk_hb_record_detach(&rec_);
    ASSERT_LT(0, read(stored_names_record(1003, {"c"})));
    EXPECT_NE(taken.get(), rec_.names);
    EXPECT_EQ(2U, vesk_hb_record_sensor_names_get_number_sensors(taken.get()));
}

TEST_F(HbRecord, AFailedReadLeavesNoPayload)
{
    for (const std::string *form : {&names_, &values_}) {
        ASSERT_LT(0, read(*form));
        EXPECT_EQ(-48, read(form->substr(0, form->size() - 1)));
        EXPECT_EQ(nullptr, rec_.data);
        EXPECT_EQ(0U, rec_.owns_data);
        EXPECT_EQ(static_cast<int>(form->size()), read(*form)) << "and can be used again";
    }
}

TEST_F(HbRecord, DataThatEndsInsideIsNeverTheEndOfTheRecords)
{
    for (const std::string *form : {&values_, &names_}) {
        for (std::size_t n = 1; n < 12; ++n) {
            EXPECT_EQ(-48, read(form->substr(0, n))) << n;
        }
    }
}

TEST_F(HbRecord, FailureOfTheReaderIsPassedOn)
{
    for (std::size_t n = 0; n < values_.size(); ++n) {
        memory_reader source(values_.substr(0, n), -41);
        EXPECT_EQ(-41, binary_serializer_read_vesk_hb_record(&rec_, source.get())) << n;
        EXPECT_EQ(nullptr, rec_.data);
    }
}

TEST_F(HbRecord, ReadingWithoutMemoryGives22)
{
    for (const std::string *form : {&names_, &values_}) {
        for (int n = 1;; ++n) {
            vesk_hb_record_destruct(&rec_);
            memory_reader source(*form);
            const failing_allocation failing(n);
            const int nread = binary_serializer_read_vesk_hb_record(&rec_, source.get());
            if (!failing_allocation::happened()) {
                EXPECT_EQ(static_cast<int>(form->size()), nread);
                break;
            }
            EXPECT_EQ(-22, nread) << n;
            EXPECT_EQ(nullptr, rec_.data);
        }
    }
}

TEST_F(HbRecord, EveryFlippedByteIsARecordOrACode)
{
    for (const std::string *form : {&names_, &values_}) {
        for (std::size_t i = 0; i < form->size(); ++i) {
            for (const int flip : {0x01, 0x80, 0xFF}) {
                std::string bad = *form;
                bad[i] = static_cast<char>(bad[i] ^ flip);
                const int nread = read(bad);
                EXPECT_EQ(nread > 0, rec_.owns_data == 1) << i;
                EXPECT_LE(nread, static_cast<int>(bad.size()));
            }
        }
    }
}

TEST_F(HbRecord, AbortsOnBadCalls)
{
    memory_writer target;
    memory_reader source("");
    EXPECT_ABORTS(vesk_hb_record_init_null(nullptr), "rec != ((void *)0)");
    EXPECT_ABORTS(vesk_hb_record_init_sensor_names(&rec_, nullptr), "names != ((void *)0)");
    EXPECT_ABORTS(vesk_hb_record_init_sensor_values(&rec_, nullptr), "values != ((void *)0)");
    EXPECT_ABORTS(vesk_hb_record_destruct(nullptr), "rec != ((void *)0)");
    EXPECT_ABORTS(vesk_hb_record_detach(nullptr), "rec != ((void *)0)");
    EXPECT_ABORTS(vesk_hb_record_detach(&rec_), "rec->type > 0");
    rec_.type = VESK_HB_RECORD_SENSOR_NAMES;
    EXPECT_ABORTS(vesk_hb_record_detach(&rec_), "rec->data != ((void *)0)");
    EXPECT_ABORTS(write(target), "rec->names != ((void *)0)");
    rec_.type = VESK_HB_RECORD_SENSOR_VALUES;
    EXPECT_ABORTS(write(target), "rec->values != ((void *)0)");
    EXPECT_ABORTS(binary_serializer_write_vesk_hb_record(nullptr, target.get()),
                  "rec != ((void *)0)");
    EXPECT_ABORTS(binary_serializer_write_vesk_hb_record(&rec_, nullptr), "writer != ((void *)0)");
    EXPECT_ABORTS(binary_serializer_read_vesk_hb_record(nullptr, source.get()),
                  "rec != ((void *)0)");
    EXPECT_ABORTS(binary_serializer_read_vesk_hb_record(&rec_, nullptr), "reader != ((void *)0)");
}

TEST_F(HbRecord, AbortsOnUnknownTypes)
{
    memory_writer target;
    EXPECT_ABORTS(write(target), "0");
    ASSERT_LT(0, read(values_));
    rec_.type = 3;
    EXPECT_ABORTS(write(target), "0");
    EXPECT_ABORTS(vesk_hb_record_destruct(&rec_), "0");
    rec_.type = 2;
}
