// Reading a history buffer, and appending to it: where an opened buffer stands, what each record
// gives, and what is refused.
#include "buffers/hist_buffer_fixture.hpp"

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
