// Writes to a history buffer that fail or are refused: what is kept, what is not counted, and what
// goes on.
#include "buffers/hist_buffer_fixture.hpp"

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
