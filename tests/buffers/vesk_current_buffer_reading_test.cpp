// Reading a current buffer, and appending to it.
#include "buffers/current_buffer_fixture.hpp"

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
