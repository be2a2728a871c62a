#include <string>
#include <vector>

#include <vesk/error.h>
#include <vesk/vesk_buffer.h>
#include <vesk/vesk_hist_buffer.h>

#include "buffers/buffer_internal.hpp"
#include "common/aborts.hpp"
#include "common/buffer_files.hpp"
#include "common/failing_calls.hpp"
#include "common/file_size_limit.hpp"
#include "common/history.hpp"
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

using owned_hbuf = owned<vesk_hist_buffer, vesk_hist_buffer_close>;
using strings = std::vector<std::string>;

class HistBuffer : public testing::Test
{
protected:
    owned_hbuf create(uint32_t capacity)
    {
        return owned_hbuf(vesk_hist_buffer_create(path_.c_str(), capacity));
    }
    owned_hbuf open() { return owned_hbuf(vesk_hist_buffer_open_for_read_write(path_.c_str())); }
    std::string bytes() { return read_file(path_); }
    strings contents() { return zlib_contents(bytes()); }

    temporary_directory directory_;
    std::string path_ = directory_.file("r.4.hbuf.z");
};

int write(vesk_hist_buffer *hbuf, long start, long end, const std::vector<samples_of> &sensors,
          const vesk_hb_record_events *events = nullptr)
{
    const timestamp first = make_timestamp(start);
    const timestamp last = make_timestamp(end);
    const owned_hist_list list = make_list(sensors);
    return vesk_hist_buffer_write_interval(hbuf, &first, &last, list.get(), events);
}

// A record that a test reads into.
class read_into
{
public:
    read_into() { vesk_hb_record_init_null(&record_); }
    read_into(const read_into &) = delete;
    read_into &operator=(const read_into &) = delete;
    ~read_into() { vesk_hb_record_destruct(&record_); }
    vesk_hb_record *get() { return &record_; }
    vesk_hb_record *operator->() { return &record_; }

private:
    vesk_hb_record record_;
};

} // namespace

// ---- Creating and writing ---------------------------------------------------------------------

TEST_F(HistBuffer, ANewFileIsEmptyUntilSomethingIsWritten)
{
    owned_hbuf hbuf = create(4);
    ASSERT_TRUE(hbuf);
    EXPECT_EQ(1, hbuf->version);
    EXPECT_EQ(path_, hbuf->filename);
    EXPECT_EQ(4U, hbuf->max_data_records);
    EXPECT_EQ(0U, hbuf->num_data_records);
    EXPECT_EQ(nullptr, hbuf->reader);
    EXPECT_EQ(nullptr, vesk_hist_buffer_get_sensor_working_set(hbuf.get()));
    EXPECT_EQ("", bytes());
    hbuf.reset();
    EXPECT_THAT(contents(), ElementsAre(stored_buffer_header(2, 4)));
}

TEST_F(HistBuffer, CreatingWhereNoFileCanBeGives40)
{
    qe_set_last_error(0);
    EXPECT_EQ(nullptr, vesk_hist_buffer_create(directory_.file("missing/r.4.hbuf.z").c_str(), 2));
    EXPECT_EQ(-40, qe_get_last_error());
}

TEST_F(HistBuffer, CreatingWithoutMemoryLeavesNothing)
{
    const auto before = count_open_files();
    bool succeeded = false;
    for (int n = 1; !succeeded; ++n) {
        failing_allocation fault(n);
        qe_set_last_error(0);
        const owned_hbuf hbuf = create(2);
        succeeded = !failing_allocation::happened();
        EXPECT_EQ(succeeded, static_cast<bool>(hbuf)) << n;
        if (!succeeded) {
            EXPECT_EQ(-22, qe_get_last_error()) << n;
            EXPECT_EQ(before, count_open_files()) << n;
        }
    }
}

TEST_F(HistBuffer, EveryIntervalIsOneCompleteStream)
{
    owned_hbuf hbuf = create(4);
    EXPECT_EQ(0, write(hbuf.get(), 100, 109, {{"a", {1, 2}}, {"b", {}}}));
    EXPECT_EQ(1U, hbuf->num_data_records);
    const std::string first =
        stored_buffer_header(2, 4) + stored_names_record(100, {"a", "b"}) +
        stored_interval_record(100, 109, {stored_summary({1, 2}), stored_summary({})});
    EXPECT_THAT(contents(), ElementsAre(first));
    EXPECT_EQ(0, write(hbuf.get(), 110, 119, {{"a", {-3}}, {"b", {0.5F}}}));
    const std::string second =
        stored_interval_record(110, 119, {stored_summary({-3}), stored_summary({0.5F})});
    EXPECT_THAT(contents(), ElementsAre(first, second));
    for (const zlib_stream &stream : split_zlib_streams(bytes())) {
        EXPECT_TRUE(stream.complete);
    }
    const std::string open = bytes();
    hbuf.reset();
    EXPECT_EQ(open, bytes()) << "closing adds nothing";
}

TEST_F(HistBuffer, NamesAreWrittenAgainOnlyWhenTheSensorsChange)
{
    owned_hbuf hbuf = create(8);
    write(hbuf.get(), 1, 2, {{"a", {1}}, {"b", {1}}});
    write(hbuf.get(), 3, 4, {{"b", {1}}, {"a", {1}}}); // the order of the list is another
    write(hbuf.get(), 5, 6, {{"a", {1}}, {"b", {1}}, {"c", {1}}});
    write(hbuf.get(), 7, 8, {{"a", {1}}, {"b", {1}}, {"d", {1}}});
    write(hbuf.get(), 9, 10, {{"d", {1}}});
    const std::string one = stored_summary({1});
    EXPECT_THAT(
        contents(),
        ElementsAre(
            stored_buffer_header(2, 8) + stored_names_record(1, {"a", "b"}) +
                stored_interval_record(1, 2, {one, one}),
            stored_interval_record(3, 4, {one, one}),
            stored_names_record(5, {"a", "b", "c"}) + stored_interval_record(5, 6, {one, one, one}),
            stored_names_record(7, {"a", "b", "d"}) + stored_interval_record(7, 8, {one, one, one}),
            stored_names_record(9, {"d"}) + stored_interval_record(9, 10, {one})));
    const auto *names = vesk_hist_buffer_get_sensor_working_set(hbuf.get());
    EXPECT_EQ(1U, vesk_hb_record_sensor_names_get_number_sensors(names));
}

TEST_F(HistBuffer, AnotherOrderOfTheSameSensorsIsNamed)
{
    // Anagrams share a bucket, where the one that was seen last comes first.
    owned_hbuf hbuf = create(8);
    write(hbuf.get(), 1, 2, {{"ab", {1}}, {"ba", {2}}});
    write(hbuf.get(), 3, 4, {{"ba", {2}}, {"ab", {1}}});
    EXPECT_EQ(stored_names_record(3, {"ab", "ba"}) +
                  stored_interval_record(3, 4, {stored_summary({1}), stored_summary({2})}),
              contents().back());
}

TEST_F(HistBuffer, EventsAreStoredWithTheirInterval)
{
    vesk_hb_record_events events;
    vesk_hb_record_events_init_null(&events);
    events.n_type1_events = 1;
    events.n_type2_events = 2;
    events.n_type3_events = 3;
    events.n_type4_events = 4;
    events.n_type5_events = 5;
    owned_hbuf hbuf = create(2);
    EXPECT_EQ(0, write(hbuf.get(), 1, 2, {{"a", {1}}}, &events));
    EXPECT_EQ(0, write(hbuf.get(), 3, 4, {{"a", {1}}}));
    const std::string one = stored_summary({1});
    EXPECT_THAT(contents(), ElementsAre(stored_buffer_header(2, 2) + stored_names_record(1, {"a"}) +
                                            stored_interval_record(1, 2, {one}, {1, 2, 3, 4, 5}),
                                        stored_interval_record(3, 4, {one})));
    EXPECT_EQ(4U, events.n_type4_events) << "the caller's counts stay";
}

TEST_F(HistBuffer, AFullBufferRefusesIntervals)
{
    owned_hbuf hbuf = create(2);
    EXPECT_EQ(2, vesk_hist_buffer_get_number_empty_intervals(hbuf.get()));
    EXPECT_EQ(0, write(hbuf.get(), 1, 2, {{"a", {1}}}));
    EXPECT_EQ(1, vesk_hist_buffer_get_number_empty_intervals(hbuf.get()));
    EXPECT_EQ(0, write(hbuf.get(), 3, 4, {{"a", {1}}}));
    EXPECT_EQ(0, vesk_hist_buffer_get_number_empty_intervals(hbuf.get()));
    const std::string full = bytes();
    EXPECT_EQ(-2, write(hbuf.get(), 5, 6, {{"a", {1}}}));
    EXPECT_EQ(-2, write(hbuf.get(), 5, 6, {{"b", {1}}}));
    EXPECT_EQ(full, bytes());
    EXPECT_EQ(2U, hbuf->num_data_records);
}

TEST_F(HistBuffer, MoreIntervalsThanTheCapacityLeaveNoNumber)
{
    owned_hbuf hbuf = create(2);
    hbuf->num_data_records = 3;
    EXPECT_EQ(-6, vesk_hist_buffer_get_number_empty_intervals(hbuf.get()));
    hbuf->max_data_records = UINT32_MAX;
    hbuf->num_data_records = 0;
    EXPECT_GT(0, vesk_hist_buffer_get_number_empty_intervals(hbuf.get()));
}

// ---- Failing writes ---------------------------------------------------------------------------

TEST_F(HistBuffer, AnEmptyListGives6AndLeavesNoWorkingSet)
{
    owned_hbuf hbuf = create(4);
    write(hbuf.get(), 1, 2, {{"a", {1}}});
    const std::string before = bytes();
    qe_set_last_error(0);
    EXPECT_EQ(-6, write(hbuf.get(), 3, 4, {}));
    EXPECT_EQ(nullptr, vesk_hist_buffer_get_sensor_working_set(hbuf.get()));
    EXPECT_EQ(before, bytes());
    EXPECT_EQ(0, write(hbuf.get(), 5, 6, {{"a", {1}}}));
    EXPECT_EQ(stored_names_record(5, {"a"}) + stored_interval_record(5, 6, {stored_summary({1})}),
              contents().back());
}

TEST_F(HistBuffer, AnIntervalThatDoesNotReachTheFileIsNotCounted)
{
    owned_hbuf hbuf = create(4);
    EXPECT_EQ(0, write(hbuf.get(), 1, 2, {{"a", {1}}}));
    const std::string before = bytes();
    {
        const file_size_limit full(before.size());
        EXPECT_EQ(-41, write(hbuf.get(), 3, 4, {{"a", {1}}}));
        EXPECT_EQ(1U, hbuf->num_data_records);
        EXPECT_EQ(before, bytes());
    }
    EXPECT_EQ(0, write(hbuf.get(), 5, 6, {{"a", {1}}}));
    EXPECT_EQ(2U, hbuf->num_data_records);
    hbuf.reset();
    EXPECT_EQ(stored_interval_record(5, 6, {stored_summary({1})}), contents().back());
}

TEST_F(HistBuffer, NamesThatWereNotWrittenStayTheWorkingSet)
{
    owned_hbuf hbuf = create(4);
    write(hbuf.get(), 1, 2, {{"a", {1}}});
    {
        const file_size_limit full(bytes().size());
        EXPECT_EQ(-41, write(hbuf.get(), 3, 4, {{"a", {1}}, {"b", {1}}}));
    }
    const auto *names = vesk_hist_buffer_get_sensor_working_set(hbuf.get());
    EXPECT_EQ(2U, vesk_hb_record_sensor_names_get_number_sensors(names));
    EXPECT_EQ(0, write(hbuf.get(), 5, 6, {{"a", {1}}, {"b", {1}}}));
    EXPECT_EQ(stored_interval_record(5, 6, {stored_summary({1}), stored_summary({1})}),
              contents().back());
}

TEST_F(HistBuffer, NamesThatAreRefusedAreNotFlushed)
{
    const std::string name(10001, 'n');
    owned_hbuf hbuf = create(4);
    EXPECT_EQ(-49, write(hbuf.get(), 1, 2, {{name, {1}}}));
    EXPECT_EQ("", bytes());
    EXPECT_EQ(0U, hbuf->num_data_records);
    EXPECT_EQ(0, write(hbuf.get(), 3, 4, {{name, {1}}}));
    EXPECT_THAT(contents(),
                ElementsAre(stored_buffer_header(2, 4) +
                            from_hex("00000001 01 01 00000001 00000000 01 00000001 01") +
                            stored_interval_record(3, 4, {stored_summary({1})})));
}

TEST_F(HistBuffer, WritingWithoutMemoryIsReportedAndRepeatable)
{
    bool succeeded = false;
    for (int n = 1; !succeeded; ++n) {
        owned_hbuf hbuf = create(4);
        write(hbuf.get(), 1, 2, {{"a", {1}}}); // takes zlib's memory
        const owned_hist_list list = make_list({{"a", {1}}, {"b", {1}}});
        const timestamp start = make_timestamp(3);
        const timestamp end = make_timestamp(4);
        const auto write_it = [&] {
            return vesk_hist_buffer_write_interval(hbuf.get(), &start, &end, list.get(), nullptr);
        };
        {
            failing_allocation fault(n);
            const int result = write_it();
            succeeded = !failing_allocation::happened();
            EXPECT_EQ(succeeded ? 0 : -22, result) << n;
        }
        if (!succeeded) {
            EXPECT_EQ(1U, hbuf->num_data_records) << n;
            EXPECT_EQ(0, write_it()) << n;
        }
        EXPECT_EQ(2U, hbuf->num_data_records) << n;
        hbuf.reset();
        EXPECT_EQ(0, model_buffer_reader(bytes()).read_all(VESK_BUFFER_TYPE_HIST)) << n;
    }
}

// ---- Reading ----------------------------------------------------------------------------------

TEST_F(HistBuffer, AnOpenedBufferStandsBehindItsFirstRecord)
{
    owned_hbuf hbuf = create(4);
    write(hbuf.get(), 100, 109, {{"a", {1, 2}}, {"b", {3}}});
    write(hbuf.get(), 110, 119, {{"a", {4}}});
    hbuf.reset();
    const std::string before = bytes();
    hbuf = open();
    ASSERT_TRUE(hbuf);
    EXPECT_EQ(path_, hbuf->filename);
    EXPECT_EQ(4U, hbuf->max_data_records);
    EXPECT_EQ(0U, hbuf->num_data_records);
    const auto *names = vesk_hist_buffer_get_sensor_working_set(hbuf.get());
    EXPECT_EQ(2U, vesk_hb_record_sensor_names_get_number_sensors(names));

    read_into rec;
    ASSERT_EQ(0, vesk_hist_buffer_read_record(hbuf.get(), rec.get()));
    ASSERT_EQ(VESK_HB_RECORD_SENSOR_VALUES, static_cast<int>(rec->type));
    EXPECT_EQ(1U, rec->owns_data);
    EXPECT_EQ(100, rec->values->start.tv.tv_sec);
    EXPECT_EQ(109, rec->values->end.tv.tv_sec);
    EXPECT_EQ(2U, rec->values->hvalues[0].count);
    EXPECT_EQ(3.0F, rec->values->hvalues[1].sum);
    EXPECT_EQ(1U, hbuf->num_data_records);
    ASSERT_EQ(0, vesk_hist_buffer_read_record(hbuf.get(), rec.get()));
    ASSERT_EQ(VESK_HB_RECORD_SENSOR_NAMES, static_cast<int>(rec->type));
    EXPECT_EQ(0U, rec->owns_data);
    EXPECT_EQ(vesk_hist_buffer_get_sensor_working_set(hbuf.get()), rec->names);
    EXPECT_EQ(1U, hbuf->num_data_records);
    ASSERT_EQ(0, vesk_hist_buffer_read_record(hbuf.get(), rec.get()));
    EXPECT_EQ(1U, rec->values->n_sensors);
    EXPECT_EQ(2U, hbuf->num_data_records);
    EXPECT_EQ(2, vesk_hist_buffer_get_number_empty_intervals(hbuf.get()));
    EXPECT_EQ(-43, vesk_hist_buffer_read_record(hbuf.get(), rec.get()));
    EXPECT_EQ(-43, vesk_hist_buffer_read_record(hbuf.get(), rec.get())) << "for ever";
    hbuf.reset();
    EXPECT_EQ(before, bytes()) << "reading changes nothing";
}

TEST_F(HistBuffer, AFileWithoutRecordsIsAtItsEndAtOnce)
{
    create(4).reset();
    owned_hbuf hbuf = open();
    ASSERT_TRUE(hbuf);
    EXPECT_EQ(nullptr, vesk_hist_buffer_get_sensor_working_set(hbuf.get()));
    EXPECT_EQ(4, vesk_hist_buffer_get_number_empty_intervals(hbuf.get()));
    read_into rec;
    EXPECT_EQ(-43, vesk_hist_buffer_read_record(hbuf.get(), rec.get()));
}

TEST_F(HistBuffer, NamesInARowAreReadIntoOneRecord)
{
    write_file(path_,
               deflate_stream(stored_buffer_header(2, 4) + stored_names_record(1, {"a"}) +
                              stored_names_record(2, {"b", "c"}) + stored_names_record(3, {"d"})));
    owned_hbuf hbuf = open();
    read_into rec;
    for (const uint32_t size : {2U, 1U}) {
        ASSERT_EQ(0, vesk_hist_buffer_read_record(hbuf.get(), rec.get()));
        EXPECT_EQ(vesk_hist_buffer_get_sensor_working_set(hbuf.get()), rec->names);
        EXPECT_EQ(size, vesk_hb_record_sensor_names_get_number_sensors(rec->names));
    }
}

TEST_F(HistBuffer, ReadingNextKeepsNoBooks)
{
    write_file(path_, deflate_stream(stored_buffer_header(2, 4) + stored_names_record(1, {"a"}) +
                                     stored_names_record(2, {"b"}) +
                                     stored_interval_record(2, 3, {stored_summary({1})})));
    owned_hbuf hbuf = open();
    const auto *names = vesk_hist_buffer_get_sensor_working_set(hbuf.get());
    read_into rec;
    EXPECT_EQ(0, _vesk_hist_buffer_read_next(hbuf.get(), rec.get()));
    EXPECT_EQ(VESK_HB_RECORD_SENSOR_NAMES, static_cast<int>(rec->type));
    EXPECT_EQ(1U, rec->owns_data);
    EXPECT_EQ(names, vesk_hist_buffer_get_sensor_working_set(hbuf.get()));
    EXPECT_EQ(0, _vesk_hist_buffer_read_next(hbuf.get(), rec.get()));
    EXPECT_EQ(0U, hbuf->num_data_records);
    EXPECT_EQ(-43, _vesk_hist_buffer_read_next(hbuf.get(), rec.get()));
}

TEST_F(HistBuffer, AppendingContinuesBehindTheEnd)
{
    owned_hbuf hbuf = create(4);
    write(hbuf.get(), 1, 2, {{"a", {1}}});
    hbuf.reset();
    const std::string before = bytes();
    hbuf = open();
    read_into rec;
    while (vesk_hist_buffer_read_record(hbuf.get(), rec.get()) == 0) {
    }
    EXPECT_EQ(0, write(hbuf.get(), 3, 4, {{"a", {2}}}));
    EXPECT_EQ(nullptr, hbuf->reader) << "what was written to is no longer read";
    EXPECT_EQ(2U, hbuf->num_data_records);
    EXPECT_THAT(bytes(), StartsWith(before));
    EXPECT_EQ(stored_interval_record(3, 4, {stored_summary({2})}), contents().back());
}

TEST_F(HistBuffer, ARefusedWriteKeepsTheReader)
{
    owned_hbuf hbuf = create(2);
    write(hbuf.get(), 1, 2, {{"a", {1}}});
    write(hbuf.get(), 3, 4, {{"a", {1}}});
    hbuf.reset();
    hbuf = open();
    read_into rec;
    while (vesk_hist_buffer_read_record(hbuf.get(), rec.get()) == 0) {
    }
    EXPECT_EQ(-2, write(hbuf.get(), 5, 6, {{"a", {1}}}));
    EXPECT_NE(nullptr, hbuf->reader);
}

TEST_F(HistBuffer, AnIntervalOfTheFirstVersionHasNoEvents)
{
    std::string interval = stored_interval_record(1, 2, {stored_summary({1})}, {1, 1, 1, 1, 1});
    interval[4] = '\1';
    interval.resize(interval.size() - 21);
    write_file(path_, deflate_stream(stored_buffer_header(2, 4) + stored_names_record(1, {"a"}) +
                                     interval + interval));
    owned_hbuf hbuf = open();
    read_into rec;
    EXPECT_EQ(0, vesk_hist_buffer_read_record(hbuf.get(), rec.get()));
    EXPECT_EQ(0U, rec->values->events.n_type1_events);
    EXPECT_EQ(0, vesk_hist_buffer_read_record(hbuf.get(), rec.get()));
    EXPECT_EQ(-43, vesk_hist_buffer_read_record(hbuf.get(), rec.get()));
}

TEST_F(HistBuffer, ACurrentBufferIsRefused)
{
    write_file(path_, deflate_stream(stored_buffer_header(1, 4)));
    const auto before = count_open_files();
    qe_set_last_error(0);
    EXPECT_FALSE(open());
    EXPECT_EQ(-3, qe_get_last_error());
    EXPECT_EQ(before, count_open_files());
}

TEST_F(HistBuffer, AnOddCapacityIsWrittenButNotRead)
{
    owned_hbuf hbuf = create(3);
    ASSERT_TRUE(hbuf);
    EXPECT_EQ(0, write(hbuf.get(), 1, 2, {{"a", {1}}}));
    hbuf.reset();
    qe_set_last_error(0);
    EXPECT_FALSE(open());
    EXPECT_EQ(-41, qe_get_last_error());
}

TEST_F(HistBuffer, OpeningAMissingFileGives40)
{
    qe_set_last_error(0);
    EXPECT_FALSE(open());
    EXPECT_EQ(-40, qe_get_last_error());
}

TEST_F(HistBuffer, ReadingWithoutMemoryLeavesNothing)
{
    write_file(path_, deflate_stream(stored_buffer_header(2, 4) + stored_names_record(1, {"a"}) +
                                     stored_interval_record(1, 2, {stored_summary({1})}) +
                                     stored_names_record(2, {"b", "c"})));
    const auto before = count_open_files();
    bool succeeded = false;
    for (int n = 1; !succeeded; ++n) {
        failing_allocation fault(n);
        qe_set_last_error(0);
        owned_hbuf hbuf = open();
        read_into rec;
        int result = hbuf ? 0 : qe_get_last_error();
        while (result == 0) {
            result = vesk_hist_buffer_read_record(hbuf.get(), rec.get());
        }
        succeeded = !failing_allocation::happened();
        if (succeeded) {
            EXPECT_EQ(-43, result);
        } else {
            EXPECT_THAT(result, testing::AnyOf(-22, -41)) << n;
        }
        hbuf.reset();
        EXPECT_EQ(before, count_open_files()) << n;
    }
}

// ---- Cut and damaged files --------------------------------------------------------------------

namespace
{

// A small file with both kinds of records.
std::string small_file()
{
    return deflate_stream(stored_buffer_header(2, 4) + stored_names_record(1, {"a", "bc"}) +
                          stored_interval_record(1, 2, {stored_summary({1, 2}), stored_summary({})},
                                                 {1, 0, 0, 2, 0})) +
           deflate_stream(stored_names_record(3, {"d"}) +
                          stored_interval_record(3, 4, {stored_summary({5})}));
}

std::string small_content()
{
    std::string content;
    for (const std::string &part : zlib_contents(small_file())) {
        content += part;
    }
    return content;
}

} // namespace

class DamagedHistBuffer : public HistBuffer
{
protected:
    // Reads the bytes as a file and compares with what has to come of it.
    void expect_stated_answer(const std::string &file)
    {
        model_buffer_reader model(file);
        const int expected = model.read_all(VESK_BUFFER_TYPE_HIST);
        write_file(path_, file);
        if (expected == model_aborts) {
            EXPECT_ABORTS(read_all(model), "nread != 0");
            return;
        }
        EXPECT_EQ(expected, read_all(model));
    }

private:
    int read_all(const model_buffer_reader &model)
    {
        qe_set_last_error(0);
        const owned_hbuf hbuf = open();
        EXPECT_EQ(model.opened(), static_cast<bool>(hbuf));
        if (!hbuf) {
            return qe_get_last_error();
        }
        read_into rec;
        int result = 0;
        while (result == 0) {
            result = vesk_hist_buffer_read_record(hbuf.get(), rec.get());
        }
        EXPECT_EQ(model.values(), hbuf->num_data_records);
        return result == -43 ? 0 : result;
    }
};

TEST_F(DamagedHistBuffer, ContentThatEndsAnywhereGivesItsCode)
{
    const std::string content = small_content();
    const auto before = count_open_files();
    for (std::size_t size = 0; size <= content.size(); ++size) {
        SCOPED_TRACE(size);
        expect_stated_answer(deflate_stream(content.substr(0, size)));
    }
    EXPECT_EQ(before, count_open_files());
}

TEST_F(DamagedHistBuffer, AFileThatEndsAnywhereGivesItsCode)
{
    const std::string file = small_file();
    const auto before = count_open_files();
    for (std::size_t size = 0; size <= file.size(); ++size) {
        SCOPED_TRACE(size);
        expect_stated_answer(file.substr(0, size));
    }
    EXPECT_EQ(before, count_open_files());
}

TEST_F(DamagedHistBuffer, AFileWithAnyBitFlippedGivesItsCode)
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

TEST_F(DamagedHistBuffer, ContentWithAnyByteChangedGivesItsCode)
{
    const std::string content = small_content();
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

// ---- The header -------------------------------------------------------------------------------

TEST_F(HistBuffer, TheHeaderIsAVersionAndTheCapacity)
{
    const owned_hbuf hbuf = create(0x01020304);
    memory_writer target;
    EXPECT_EQ(5, binary_serializer_write_vesk_hist_buffer(hbuf.get(), target.get()));
    EXPECT_EQ(from_hex("01 01020304"), target.bytes());
    for (std::size_t capacity = 0; capacity < 5; ++capacity) {
        memory_writer full(capacity, -41);
        EXPECT_EQ(-41, binary_serializer_write_vesk_hist_buffer(hbuf.get(), full.get()));
    }
}

TEST_F(HistBuffer, ReadingTheHeaderJudgesIt)
{
    const owned_hbuf hbuf = create(2);
    const auto read = [&](const std::string &bytes, int failure = 0) {
        memory_reader source(bytes, failure);
        return binary_serializer_read_vesk_hist_buffer(hbuf.get(), source.get());
    };
    EXPECT_EQ(5, read(from_hex("01 00000006")));
    EXPECT_EQ(6U, hbuf->max_data_records);
    EXPECT_EQ(0, read(""));
    for (const char *cut : {"01", "01 00", "01 0000", "01 000000"}) {
        EXPECT_EQ(-48, read(from_hex(cut))) << cut;
    }
    EXPECT_EQ(-12, read(from_hex("00 00000006")));
    EXPECT_EQ(-12, read(from_hex("02 00000006")));
    EXPECT_EQ(-41, read("", -41));
    EXPECT_EQ(-41, read("\1", -41));
    EXPECT_EQ(-6, read(from_hex("01 00000003")));
    EXPECT_EQ(3U, hbuf->max_data_records) << "stored before it is judged";
    EXPECT_EQ(-6, read(from_hex("01 00000000")));
}

// ---- Preconditions ----------------------------------------------------------------------------

TEST_F(HistBuffer, RequiresItsArguments)
{
    const owned_hbuf hbuf = create(2);
    const owned_hist_list list = make_list({{"a", {1}}});
    const timestamp t = make_timestamp(1);
    memory_reader source("");
    memory_writer target;
    read_into rec;
    EXPECT_ABORTS(vesk_hist_buffer_create(nullptr, 0), "filename != ((void *)0)");
    EXPECT_ABORTS(vesk_hist_buffer_create(path_.c_str(), 0), "max_data_records != 0");
    EXPECT_ABORTS(vesk_hist_buffer_open_for_read_write(nullptr), "filename != ((void *)0)");
    EXPECT_ABORTS(vesk_hist_buffer_write_interval(nullptr, &t, &t, list.get(), nullptr),
                  "hbuf != ((void *)0)");
    EXPECT_ABORTS(vesk_hist_buffer_write_interval(hbuf.get(), nullptr, &t, list.get(), nullptr),
                  "start != ((void *)0)");
    EXPECT_ABORTS(vesk_hist_buffer_write_interval(hbuf.get(), &t, nullptr, list.get(), nullptr),
                  "end != ((void *)0)");
    EXPECT_ABORTS(vesk_hist_buffer_write_interval(hbuf.get(), &t, &t, nullptr, nullptr),
                  "hvlist != ((void *)0)");
    EXPECT_ABORTS(vesk_hist_buffer_read_record(nullptr, rec.get()), "hbuf != ((void *)0)");
    EXPECT_ABORTS(_vesk_hist_buffer_read_next(nullptr, rec.get()), "hbuf != ((void *)0)");
    EXPECT_ABORTS(vesk_hist_buffer_get_number_empty_intervals(nullptr), "hbuf != ((void *)0)");
    EXPECT_ABORTS(vesk_hist_buffer_get_sensor_working_set(nullptr), "hbuf != ((void *)0)");
    EXPECT_ABORTS(binary_serializer_write_vesk_hist_buffer(nullptr, target.get()),
                  "hbuf != ((void *)0)");
    EXPECT_ABORTS(binary_serializer_write_vesk_hist_buffer(hbuf.get(), nullptr),
                  "writer != ((void *)0)");
    EXPECT_ABORTS(binary_serializer_read_vesk_hist_buffer(nullptr, source.get()),
                  "hbuf != ((void *)0)");
    EXPECT_ABORTS(binary_serializer_read_vesk_hist_buffer(hbuf.get(), nullptr),
                  "reader != ((void *)0)");
}

TEST_F(HistBuffer, ABufferThatWasNotOpenedCannotBeRead)
{
    owned_hbuf hbuf = create(2);
    read_into rec;
    EXPECT_ABORTS(vesk_hist_buffer_read_record(hbuf.get(), rec.get()),
                  "hbuf->reader != ((void *)0)");
    EXPECT_ABORTS(_vesk_hist_buffer_read_next(hbuf.get(), rec.get()),
                  "hbuf->reader != ((void *)0)");
    hbuf.reset();
    hbuf = open();
    EXPECT_ABORTS(vesk_hist_buffer_read_record(hbuf.get(), nullptr), "rec != ((void *)0)");
    EXPECT_ABORTS(_vesk_hist_buffer_read_next(hbuf.get(), nullptr), "rec != ((void *)0)");
}

TEST_F(HistBuffer, OnlyALiveBufferIsUsed)
{
    const owned_hbuf hbuf = create(2);
    memory_reader source("");
    memory_writer target;
    read_into rec;
    const char *text = "hbuf->version == ((char) 1)";
    hbuf->version = 0;
    EXPECT_ABORTS(write(hbuf.get(), 1, 2, {{"a", {1}}}), text);
    EXPECT_ABORTS(vesk_hist_buffer_read_record(hbuf.get(), rec.get()), text);
    EXPECT_ABORTS(vesk_hist_buffer_get_number_empty_intervals(hbuf.get()), text);
    EXPECT_ABORTS(vesk_hist_buffer_get_sensor_working_set(hbuf.get()), text);
    EXPECT_ABORTS(binary_serializer_write_vesk_hist_buffer(hbuf.get(), target.get()), text);
    EXPECT_ABORTS(binary_serializer_read_vesk_hist_buffer(hbuf.get(), source.get()), text);
}

TEST_F(HistBuffer, ClosingRequiresAWholeBuffer)
{
    vesk_hist_buffer *none = nullptr;
    EXPECT_ABORTS(vesk_hist_buffer_close(nullptr), "hbuf != ((void *)0)");
    EXPECT_ABORTS(vesk_hist_buffer_close(&none), "*hbuf != ((void *)0)");
    vesk_hist_buffer partial = {};
    vesk_hist_buffer *hbuf = &partial;
    EXPECT_ABORTS(vesk_hist_buffer_close(&hbuf), "(*hbuf)->writer != ((void *)0)");
    writer unused = {};
    partial.writer = &unused;
    EXPECT_ABORTS(vesk_hist_buffer_close(&hbuf), "(*hbuf)->filename != ((void *)0)");
    partial.version = 1;
    partial.writer = nullptr;
    EXPECT_ABORTS(write(hbuf, 1, 2, {{"a", {1}}}), "hbuf->writer != ((void *)0)");
}

TEST_F(HistBuffer, ClosingLeavesAloneAFileThatWasTakenAway)
{
    owned_hbuf hbuf = create(2);
    FILE *file = hbuf->fp;
    hbuf->fp = nullptr;
    hbuf.reset();
    EXPECT_EQ(0, fclose(file));
    EXPECT_EQ(1U, contents().size());
}

TEST_F(HistBuffer, ClosingNullsTheCallersPointerAndTheDescriptor)
{
    const auto before = count_open_files();
    vesk_hist_buffer *hbuf = vesk_hist_buffer_create(path_.c_str(), 2);
    vesk_hist_buffer_close(&hbuf);
    EXPECT_EQ(nullptr, hbuf);
    EXPECT_EQ(before, count_open_files());
}
