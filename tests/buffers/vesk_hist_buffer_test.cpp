// A history buffer: creating it, writing intervals to it, its header, and what its functions
// require of their arguments.
#include "buffers/hist_buffer_fixture.hpp"

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
