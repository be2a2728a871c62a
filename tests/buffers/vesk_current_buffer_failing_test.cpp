// Writes to a current buffer that fail or are refused: what is kept, and what goes on.
#include "buffers/current_buffer_fixture.hpp"

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
