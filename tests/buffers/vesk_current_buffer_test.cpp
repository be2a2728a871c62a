// A current buffer: creating, writing, its header, and what its functions require.
#include "buffers/current_buffer_fixture.hpp"

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
