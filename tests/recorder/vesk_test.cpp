// A recorder: creating, rotating, opening, and what its functions require.

#include "common/failing_calls.hpp"
#include "common/matrices.hpp"
#include "common/memory_streams.hpp"
#include "common/open_files.hpp"
#include "recorder/recorder_fixture.hpp"

// ---- Creating ---------------------------------------------------------------------------------

TEST_F(Recorder, CreatesItsStateFileAndItsFirstBuffer)
{
    const owned_recorder recorder = create();
    ASSERT_TRUE(recorder);
    EXPECT_EQ((name_set{"r.state", "r.1.cbuf.z"}), files());
    EXPECT_EQ(1, recorder->version);
    EXPECT_STREQ("r", recorder->filename);
    EXPECT_STREQ("r.state", recorder->state_filename);
    EXPECT_EQ(1U, recorder->state);
    EXPECT_EQ(4U, recorder->num_cb_samples);
    EXPECT_EQ(2U, recorder->num_hb_intervals);
    EXPECT_EQ(2U, recorder->num_samples_per_interval);
    EXPECT_EQ(2U, recorder->next_file_number);
    EXPECT_STREQ("r.1.cbuf.z", vesk_zcf_state_c00_get_filename(recorder->c00));
}

TEST_F(Recorder, RequiresANameAndSizesThatFit)
{
    EXPECT_ABORTS(vesk_create(nullptr, 4, 2), "filename != ((void *)0)");
    EXPECT_ABORTS(vesk_create("", 4, 2), "filename[0] != 0");
    EXPECT_ABORTS(vesk_create("r", 0, 0), "num_cb_samples > 0");
    EXPECT_ABORTS(vesk_create("r", 4, 0), "num_hb_intervals > 0");
    EXPECT_ABORTS(vesk_create("r", 6, 4), "num_cb_samples % num_hb_intervals == 0");
    EXPECT_ABORTS(vesk_create("r", 5, 5), "num_cb_samples % 2 == 0");
    EXPECT_ABORTS(vesk_create("r", 6, 3), "num_hb_intervals % 2 == 0");
    const owned_recorder recorder(vesk_create("r", 6, 2));
    ASSERT_TRUE(recorder);
    EXPECT_EQ(3U, recorder->num_samples_per_interval);
}

TEST_F(Recorder, NullRecorderIsLiveAndEmpty)
{
    const owned_recorder recorder(vesk_create_null());
    ASSERT_TRUE(recorder);
    EXPECT_EQ(1, recorder->version);
    EXPECT_EQ(nullptr, recorder->filename);
    EXPECT_EQ(nullptr, recorder->state_filename);
    EXPECT_EQ(0U, recorder->state);
    EXPECT_EQ(0U, recorder->next_file_number);
    EXPECT_EQ(nullptr, recorder->stage);
}

TEST_F(Recorder, CreatingOverAnOldRecorderReplacesItButForItsOtherBuffers)
{
    create_with(first_in_cc0);
    const owned_recorder recorder = create();
    EXPECT_EQ((name_set{"r.state", "r.1.cbuf.z", "r.2.cbuf.z"}), files());
    EXPECT_EQ("", read_file("r.1.cbuf.z"));
    EXPECT_EQ(stored_state(1, 2, {"r.1.cbuf.z"}), state());
}

TEST_F(Recorder, CreatingInAMissingFolderGives40)
{
    qe_set_last_error(0);
    EXPECT_EQ(nullptr, vesk_create("missing/r", 4, 2));
    EXPECT_EQ(-40, qe_get_last_error());
    EXPECT_EQ(nullptr, vesk_create(std::string(20000, 'r').c_str(), 4, 2));
    EXPECT_EQ(-40, qe_get_last_error());
    EXPECT_EQ(name_set{}, files());
}

TEST_F(Recorder, AStateFileThatCannotBeMadeLeavesTheFirstBuffer)
{
    const auto before = count_open_files();
    fs::create_directory("r.state");
    qe_set_last_error(0);
    EXPECT_FALSE(create());
    EXPECT_EQ(-40, qe_get_last_error());
    EXPECT_EQ(stored_buffer_header(1, 4), content("r.1.cbuf.z"));

    fs::remove("r.state");
    fs::create_symlink("/dev/full", "r.state");
    EXPECT_FALSE(create());
    EXPECT_EQ(-41, qe_get_last_error());
    EXPECT_EQ(before, count_open_files());
}

TEST_F(Recorder, CreatingWithoutMemoryLeavesNothingInMemory)
{
    const auto before = count_open_files();
    for (int n = 1;; ++n) {
        qe_set_last_error(0);
        const failing_allocation failing(n);
        owned_recorder recorder = create();
        if (!failing_allocation::happened()) {
            EXPECT_TRUE(recorder);
            EXPECT_LT(5, n);
            break;
        }
        EXPECT_FALSE(recorder) << n;
        EXPECT_EQ(-22, qe_get_last_error()) << n;
        EXPECT_EQ(before, count_open_files()) << n;
    }
}

TEST_F(Recorder, NamesOfBuffersAreCutAt1023Bytes)
{
    std::string base;
    for (int i = 0; i < 507; ++i) {
        base += "./";
    }
    base += "r";
    const owned_recorder recorder(vesk_create(base.c_str(), 4, 2));
    ASSERT_TRUE(recorder);
    EXPECT_EQ((name_set{"r.state", "r.1.cbuf."}), files());
}

// ---- Rotation ---------------------------------------------------------------------------------

TEST_F(Recorder, FilesFollowTheNumberOfVectors)
{
    const owned_recorder recorder = create();
    for (int i = 1; i <= 24; ++i) {
        ASSERT_EQ(0, write(recorder.get(), i));
        name_set expected = {"r.state"};
        if (i < first_in_hcc) {
            expected.insert("r.1.cbuf.z");
            if (i >= first_in_cc0) {
                expected.insert("r.2.cbuf.z");
            }
            if (i >= first_in_ccc) {
                expected.insert("r.3.cbuf.z");
            }
        } else if (i < first_after_hcc) {
            expected.insert({"r.4.hbuf.z", "r.3.cbuf.z", "r.5.cbuf.z"});
        } else if (i < 21) {
            expected.insert({"r.6.hbuf.z", "r.5.cbuf.z", "r.7.cbuf.z"});
        } else {
            expected.insert({"r.8.hbuf.z", "r.7.cbuf.z", "r.9.cbuf.z"});
        }
        EXPECT_EQ(expected, files()) << i;
    }
}

TEST_F(Recorder, TheStateFileNamesTheBuffersOfEachStage)
{
    const owned_recorder recorder = create();
    const std::string head = "01  00000001 72  00000007 722E7374617465";
    const std::string sizes = "00000004 00000002 00000002";
    EXPECT_EQ(
        from_hex(head + "00000001" + sizes + "00000002" + "01  0000000A 722E312E636275662E7A"),
        state());
    write_all(recorder.get(), 1, first_in_cc0);
    EXPECT_EQ(from_hex(head + "00000002" + sizes + "00000003" +
                       "01  0000000A 722E312E636275662E7A  0000000A 722E322E636275662E7A"),
              state());
    write_all(recorder.get(), first_in_cc0 + 1, first_in_ccc);
    EXPECT_EQ(from_hex(head + "00000003" + sizes + "00000004" +
                       "01  0000000A 722E312E636275662E7A  0000000A 722E322E636275662E7A"
                       "    0000000A 722E332E636275662E7A"),
              state());
    write_all(recorder.get(), first_in_ccc + 1, first_in_hcc);
    EXPECT_EQ(from_hex(head + "00000004" + sizes + "00000006" +
                       "01  0000000A 722E342E686275662E7A  0000000A 722E332E636275662E7A"
                       "    0000000A 722E352E636275662E7A"),
              state());
    write_all(recorder.get(), first_in_hcc + 1, first_after_hcc);
    EXPECT_EQ(from_hex(head + "00000004" + sizes + "00000008" +
                       "01  0000000A 722E362E686275662E7A  0000000A 722E352E636275662E7A"
                       "    0000000A 722E372E636275662E7A"),
              state());
}

TEST_F(Recorder, WritesTheStateFileOnlyWhenTheStageChanges)
{
    const owned_recorder recorder = create();
    fs::remove("r.state");
    write_all(recorder.get(), 1, 4);
    EXPECT_FALSE(fs::exists("r.state"));
    ASSERT_EQ(0, write(recorder.get(), 5));
    EXPECT_TRUE(fs::exists("r.state"));
}

TEST_F(Recorder, ClosingDoesNotWriteTheStateFile)
{
    owned_recorder recorder = create();
    fs::remove("r.state");
    recorder.reset();
    EXPECT_FALSE(fs::exists("r.state"));
}

TEST_F(Recorder, SummarisesTheOldestBuffersWhenTheThirdIsFull)
{
    owned_recorder recorder = create_with(first_in_hcc);
    EXPECT_EQ(stored_hbuf_head() + stored_interval(1, 2) + stored_interval(3, 4) +
                  stored_interval(5, 6) + stored_interval(7, 8),
              content("r.4.hbuf.z"));
    EXPECT_EQ(stored_cbuf(9, 12), content("r.3.cbuf.z"));
    recorder.reset();
    EXPECT_EQ(stored_cbuf(13, 13), content("r.5.cbuf.z"));
}

TEST_F(Recorder, HalvesTheOldHistoryAtEachLaterRotation)
{
    owned_recorder recorder = create_with(first_after_hcc);
    EXPECT_EQ(stored_hbuf_head() + stored_interval(1, 4) + stored_interval(5, 8) +
                  stored_interval(9, 10) + stored_interval(11, 12),
              content("r.6.hbuf.z"));
    write_all(recorder.get(), first_after_hcc + 1, 21);
    EXPECT_EQ(stored_hbuf_head() + stored_interval(1, 8) + stored_interval(9, 12) +
                  stored_interval(13, 14) + stored_interval(15, 16),
              content("r.8.hbuf.z"));
}

TEST_F(Recorder, ContinuesAfterEveryVectorAsIfItHadNotStopped)
{
    constexpr int last = 26;
    for (int stop = 0; stop <= last; ++stop) {
        create_with(stop).reset();
        owned_recorder recorder = open();
        ASSERT_TRUE(recorder) << stop;
        write_all(recorder.get(), stop + 1, last);
        recorder.reset();
        EXPECT_EQ((name_set{"r.state", "r.10.hbuf.z", "r.9.cbuf.z", "r.11.cbuf.z"}), files())
            << stop;
        EXPECT_EQ(stored_state(4, 12, {"r.10.hbuf.z", "r.9.cbuf.z", "r.11.cbuf.z"}), state());
        EXPECT_EQ(stored_hbuf_head() + stored_interval(1, 12) + stored_interval(13, 16) +
                      stored_interval(17, 18) + stored_interval(19, 20),
                  content("r.10.hbuf.z"))
            << stop;
        EXPECT_EQ(stored_cbuf(21, 24), content("r.9.cbuf.z")) << stop;
        EXPECT_EQ(stored_cbuf(25, 26), content("r.11.cbuf.z")) << stop;
        for (const std::string &name : files()) {
            fs::remove(name);
        }
    }
}

TEST_F(Recorder, ReopeningAndClosingChangesNoByte)
{
    for (const int vectors : {0, 3, 4, 6, 10, 14, 18}) {
        create_with(vectors).reset();
        std::vector<std::string> before;
        for (const std::string &name : files()) {
            before.push_back(read_file(name));
        }
        open().reset();
        std::vector<std::string> after;
        for (const std::string &name : files()) {
            after.push_back(read_file(name));
            fs::remove(name);
        }
        EXPECT_EQ(before, after) << vectors;
    }
}

TEST_F(Recorder, AReopenedFullBufferMovesOnAtOnce)
{
    create_with(8).reset();
    owned_recorder recorder = open();
    EXPECT_EQ(2U, recorder->state);
    ASSERT_EQ(0, write(recorder.get(), 9));
    EXPECT_EQ(3U, recorder->state);
    EXPECT_STREQ("r.3.cbuf.z", vesk_zcf_state_ccc_get_cbuf2_filename(recorder->ccc));
}

TEST_F(Recorder, KeepsOneBufferOpenAndNothingElse)
{
    const auto before = count_open_files();
    owned_recorder recorder = create();
    for (int i = 1; i <= 22; ++i) {
        ASSERT_EQ(0, write(recorder.get(), i));
        EXPECT_EQ(before + 1, count_open_files()) << i;
    }
    recorder.reset();
    EXPECT_EQ(before, count_open_files());
}

TEST_F(Recorder, BuffersOfSixVectorsMakeIntervalsOfThree)
{
    const owned_recorder recorder(vesk_create("r", 6, 2));
    write_all(recorder.get(), 1, 19);
    EXPECT_EQ(stored_hbuf_head() + stored_interval(1, 3) + stored_interval(4, 6) +
                  stored_interval(7, 9) + stored_interval(10, 12),
              content("r.4.hbuf.z"));
}

TEST_F(Recorder, SensorsMayComeAndGo)
{
    const owned_recorder recorder = create();
    for (int i = 1; i <= 40; ++i) {
        std::vector<reading> readings = {{"a", static_cast<double>(i)}};
        if (i % 3 == 0) {
            readings.push_back({"b", 1.0});
        }
        const owned_matrix vector = make_vector(1000 + i, readings);
        ASSERT_EQ(0, vesk_write_telemetry_vector(recorder.get(), vector.get())) << i;
    }
    EXPECT_EQ(4U, files().size());
}

// ---- Opening ----------------------------------------------------------------------------------

TEST_F(Recorder, OpeningRequiresAName)
{
    EXPECT_ABORTS(vesk_open(nullptr), "filename != ((void *)0)");
    EXPECT_ABORTS(vesk_open(""), "filename[0] != 0");
}

TEST_F(Recorder, WithoutAStateFileNothingIsOpened)
{
    qe_set_last_error(0);
    EXPECT_FALSE(open());
    EXPECT_EQ(-40, qe_get_last_error());
    write_file("r.state", "");
    EXPECT_FALSE(open());
    EXPECT_EQ(-48, qe_get_last_error());
    fs::remove("r.state");
    fs::create_directory("r.state");
    EXPECT_FALSE(open());
    EXPECT_EQ(-48, qe_get_last_error()) << "a folder has no bytes";
}

TEST_F(Recorder, OpeningReadsEverythingBack)
{
    create_with(14).reset();
    const owned_recorder recorder = open();
    ASSERT_TRUE(recorder);
    EXPECT_STREQ("r", recorder->filename);
    EXPECT_STREQ("r.state", recorder->state_filename);
    EXPECT_EQ(4U, recorder->state);
    EXPECT_EQ(4U, recorder->num_cb_samples);
    EXPECT_EQ(2U, recorder->num_hb_intervals);
    EXPECT_EQ(2U, recorder->num_samples_per_interval);
    EXPECT_EQ(6U, recorder->next_file_number);
    EXPECT_STREQ("r.4.hbuf.z", vesk_zcf_state_hcc_get_hbuf_filename(recorder->hcc));
    EXPECT_STREQ("r.3.cbuf.z", vesk_zcf_state_hcc_get_cbuf1_filename(recorder->hcc));
    EXPECT_STREQ("r.5.cbuf.z", vesk_zcf_state_hcc_get_cbuf2_filename(recorder->hcc));
}

TEST_F(Recorder, TheNamesInTheStateFileCount)
{
    create_with(2).reset();
    fs::rename("r.state", "moved.state");
    const owned_recorder recorder(vesk_open("moved"));
    ASSERT_TRUE(recorder);
    EXPECT_STREQ("r", recorder->filename);
    write_all(recorder.get(), 3, 5);
    EXPECT_EQ((name_set{"moved.state", "r.state", "r.1.cbuf.z", "r.2.cbuf.z"}), files());
}

TEST_F(Recorder, OpeningWithoutMemoryFailsOrTells)
{
    create_with(2).reset();
    const auto before = count_open_files();
    for (int n = 1;; ++n) {
        qe_set_last_error(0);
        const failing_allocation failing(n);
        owned_recorder recorder = open();
        if (!failing_allocation::happened()) {
            EXPECT_TRUE(recorder);
            EXPECT_EQ(0, qe_get_last_error());
            break;
        }
        EXPECT_GT(0, qe_get_last_error()) << n;
        // Without a stage, vesk_close() refuses.
        if (recorder && recorder->state != 0 && recorder->stage == nullptr) {
            release_by_hand(recorder.release());
        }
        recorder.reset();
        EXPECT_EQ(before, count_open_files()) << n;
    }
}

TEST_F(Recorder, AMissingOpenBufferIsToldByTheCellAlone)
{
    create_with(14).reset();
    fs::remove("r.5.cbuf.z");
    qe_set_last_error(0);
    const owned_recorder recorder = open();
    ASSERT_TRUE(recorder);
    EXPECT_EQ(-40, qe_get_last_error());
    EXPECT_STREQ("r.4.hbuf.z", recorder->hcc->hbuf_filename);
    EXPECT_STREQ("r.3.cbuf.z", recorder->hcc->cbuf1_filename);
    EXPECT_EQ(nullptr, recorder->hcc->cbuf2);
    EXPECT_ABORTS(write(recorder.get(), 15), "cbuf2 != ((void *)0)");
}

TEST_F(Recorder, AProcessKilledBeforeTheFirstVectorLeavesAnEmptyBuffer)
{
    create().reset();
    write_file("r.1.cbuf.z", "");
    qe_set_last_error(0);
    const owned_recorder recorder = open();
    ASSERT_TRUE(recorder);
    EXPECT_EQ(-48, qe_get_last_error());
    EXPECT_ABORTS(write(recorder.get(), 1), "cbuf0 != ((void *)0)");
}

// ---- Preconditions ----------------------------------------------------------------------------

TEST_F(Recorder, RequiresALiveRecorderAndSomethingToWrite)
{
    const owned_recorder recorder = create();
    vesk dead = {};
    const owned_event event = make_event(3, 1000, "text");
    const char *const null = "vesk != ((void *)0)";
    const char *const version = "vesk->version == ((char) 1)";
    EXPECT_ABORTS(write(nullptr, 1), null);
    EXPECT_ABORTS(write(&dead, 1), version);
    EXPECT_ABORTS(vesk_write_telemetry_vector(recorder.get(), nullptr), "vector != ((void *)0)");
    EXPECT_ABORTS(vesk_write_event(nullptr, event.get()), null);
    EXPECT_ABORTS(vesk_write_event(&dead, event.get()), version);
    EXPECT_ABORTS(vesk_write_event(recorder.get(), nullptr), "event != ((void *)0)");
    EXPECT_ABORTS(vesk_write_tagged_event(nullptr, event.get()), null);
    EXPECT_ABORTS(vesk_write_tagged_event(&dead, event.get()), version);
    EXPECT_ABORTS(vesk_write_tagged_event(recorder.get(), nullptr), "event != ((void *)0)");
    EXPECT_ABORTS(vesk_sync(nullptr), null);
    EXPECT_ABORTS(vesk_sync(&dead), version);
    EXPECT_ABORTS(vesk_backup_state(nullptr), null);
    EXPECT_ABORTS(vesk_backup_state(&dead), version);
    const vesk_cb_record_event dead_event = {};
    EXPECT_ABORTS(vesk_write_tagged_event(recorder.get(), &dead_event),
                  "event->version == ((char) 1)");
    memory_writer target;
    memory_reader source("");
    EXPECT_ABORTS(binary_serializer_write_vesk(nullptr, target.get()), null);
    EXPECT_ABORTS(binary_serializer_write_vesk(&dead, target.get()), version);
    EXPECT_ABORTS(binary_serializer_write_vesk(recorder.get(), nullptr), "writer != ((void *)0)");
    EXPECT_ABORTS(binary_serializer_read_vesk(nullptr, source.get()), null);
    EXPECT_ABORTS(binary_serializer_read_vesk(&dead, source.get()), version);
    EXPECT_ABORTS(binary_serializer_read_vesk(recorder.get(), nullptr), "reader != ((void *)0)");
}

TEST_F(Recorder, AVectorHasOneRow)
{
    const owned_recorder recorder = create();
    const owned_matrix plain = make_matrix({{1}});
    EXPECT_ABORTS(vesk_write_telemetry_vector(recorder.get(), plain.get()),
                  "m->type == MATRIX_TYPE_TELEMETRY");
    const owned_matrix two_rows = make_telemetry({{1}, {2}}, {"a"}, {1000, 1001});
    EXPECT_ABORTS(vesk_write_telemetry_vector(recorder.get(), two_rows.get()),
                  "matrix_get_number_rows (vector) == 1");
}

TEST_F(Recorder, CloseRequiresALiveRecorder)
{
    vesk *none = nullptr;
    vesk dead = {};
    vesk *dead_pointer = &dead;
    EXPECT_ABORTS(vesk_close(nullptr), "vesk != ((void *)0)");
    EXPECT_ABORTS(vesk_close(&none), "(*vesk) != ((void *)0)");
    EXPECT_ABORTS(vesk_close(&dead_pointer), "(*vesk)->version == ((char) 1)");
}

TEST_F(Recorder, CloseSetsThePointerToNull)
{
    vesk *recorder = create().release();
    vesk_close(&recorder);
    EXPECT_EQ(nullptr, recorder);
}

TEST_F(Recorder, AStateRequiresItsStage)
{
    vesk *recorder = vesk_create_null();
    memory_writer target;
    const char *const stages[] = {"c00", "cc0", "ccc", "hcc"};
    recorder->filename = strdup("r");
    recorder->state_filename = strdup("r.state");
    for (uint32_t i = 0; i < 4; ++i) {
        recorder->state = i + 1;
        const std::string missing = std::string(stages[i]) + " != ((void *)0)";
        EXPECT_ABORTS(write(recorder, 1), "vesk->" + missing);
        EXPECT_ABORTS(write_event(recorder), "vesk->" + missing);
        EXPECT_ABORTS(write_tagged(recorder, 1, 1), "vesk->" + missing);
        EXPECT_ABORTS(vesk_sync(recorder), "vesk->" + missing);
        EXPECT_ABORTS(vesk_backup_state(recorder), "vesk->" + missing);
        EXPECT_ABORTS(binary_serializer_write_vesk(recorder, target.get()), "vesk->" + missing);
        EXPECT_ABORTS(vesk_close(&recorder), "(*vesk)->" + missing);
    }
    recorder->state = 0;
    EXPECT_ABORTS(write(recorder, 1), "0");
    EXPECT_ABORTS(write_event(recorder), "0");
    EXPECT_ABORTS(write_tagged(recorder, 1, 1), "0");
    EXPECT_ABORTS(vesk_sync(recorder), "0");
    EXPECT_ABORTS(vesk_backup_state(recorder), "0");
    vesk_close(&recorder);
}

TEST_F(Recorder, TakesAStageThatIsPutIntoIt)
{
    owned_recorder recorder(vesk_create_null());
    recorder->filename = strdup("r");
    recorder->state_filename = strdup("r.state");
    recorder->state = 1;
    recorder->num_cb_samples = 2;
    recorder->num_hb_intervals = 2;
    recorder->num_samples_per_interval = 1;
    recorder->next_file_number = 2;
    recorder->c00 = vesk_zcf_state_c00_create("r.1.cbuf.z", 2);
    write_all(recorder.get(), 1, 3);
    EXPECT_EQ(2U, recorder->state);
}

TEST_F(Recorder, TheFirstHistoryRequiresItsSizes)
{
    const owned_recorder recorder = create_with(12);
    recorder->num_hb_intervals = 0;
    EXPECT_ABORTS(write(recorder.get(), 13), "vesk->num_hb_intervals > 0");
    recorder->num_hb_intervals = 0x80000000;
    EXPECT_ABORTS(write(recorder.get(), 13), "max_data_records != 0");
    recorder->num_hb_intervals = 2;
    recorder->num_samples_per_interval = 0;
    EXPECT_ABORTS(write(recorder.get(), 13), "vesk->num_samples_per_interval > 0");
}

TEST_F(Recorder, ANewHistoryNeverOverwritesTheOld)
{
    const owned_recorder recorder = create_with(16);
    recorder->next_file_number = 4;
    EXPECT_ABORTS(write(recorder.get(), 17), "strcmp (hbuf0_filename, hbuf_filename) != 0");
}
