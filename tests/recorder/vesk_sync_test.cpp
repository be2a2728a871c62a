// Bringing a box onto the medium, and the copy of its state file.

#include "common/failing_calls.hpp"
#include "common/open_files.hpp"
#include "recorder/recorder_fixture.hpp"

TEST_F(Recorder, SyncsItsBuffersItsStateAndItsFolder)
{
    // The open buffer, the state file and the folder, and the full ones.
    const std::vector<std::pair<int, int>> stages = {
        {1, 3}, {first_in_cc0, 4}, {first_in_ccc, 5}, {first_in_hcc, 5}, {first_after_hcc, 5}};
    for (const auto &[vectors, syncs] : stages) {
        const owned_recorder recorder = create_with(vectors);
        const auto open_files = count_open_files();
        const name_set before = files();
        const failing_call counting(call_kind::sync, 0);
        EXPECT_EQ(0, vesk_sync(recorder.get())) << vectors;
        EXPECT_EQ(syncs, failing_call::count(call_kind::sync)) << vectors;
        EXPECT_EQ(open_files, count_open_files());
        EXPECT_EQ(before, files());
    }
}

TEST_F(Recorder, ASyncThatFailsGives41AndTheRecorderGoesOn)
{
    const owned_recorder recorder = create_with(first_in_hcc);
    for (int n = 1; n <= 5; ++n) {
        const failing_call failing(call_kind::sync, n);
        EXPECT_EQ(-41, vesk_sync(recorder.get())) << n;
    }
    EXPECT_EQ(0, vesk_sync(recorder.get()));
    write_all(recorder.get(), 14, 30);
}

TEST_F(Recorder, SyncingAFileThatIsNotThereGives40)
{
    for (const char *missing : {"r.1.cbuf.z", "r.2.cbuf.z", "r.state"}) {
        const owned_recorder recorder = create_with(first_in_ccc);
        fs::remove(missing);
        EXPECT_EQ(-40, vesk_sync(recorder.get())) << missing;
    }
}

TEST_F(Recorder, SyncsTheBuffersOfAFailedTransition)
{
    const owned_recorder recorder = create_with(4);
    fs::create_directory("r.2.cbuf.z");
    ASSERT_EQ(-40, write(recorder.get(), 5));
    ASSERT_EQ(2U, recorder->state);
    EXPECT_EQ(0, vesk_sync(recorder.get()));
}

// What stands in the copy of the state file before its checksum of 8 bytes.
std::string copied_state()
{
    const std::string copy = read_file("r.state.bak");
    EXPECT_EQ("VSKC", copy.substr(copy.size() - 8, 4));
    return copy.substr(0, copy.size() - 8);
}

TEST_F(Recorder, TheBackupIsTheStateFileInEveryStage)
{
    for (const int vectors : {0, 1, 5, 9, 13, 17, 21}) {
        const owned_recorder recorder = create_with(vectors);
        EXPECT_EQ(0, vesk_backup_state(recorder.get())) << vectors;
        EXPECT_EQ(state(), copied_state()) << vectors;
        EXPECT_EQ(0U, files().count("r.state.bak.new")) << vectors;
    }
}

TEST_F(Recorder, ABackupThatFailsLeavesTheOneBefore)
{
    owned_recorder recorder = create_with(4);
    ASSERT_EQ(0, vesk_backup_state(recorder.get()));
    const std::string before = read_file("r.state.bak");
    write_all(recorder.get(), 5, 5);
    const std::string after = state();
    const auto open_files = count_open_files();
    struct {
        call_kind kind;
        int code;
    } const failures[] = {{call_kind::allocation, -22}, {call_kind::open, -40},
                          {call_kind::write, -41},      {call_kind::torn_write, -41},
                          {call_kind::flush, -41},      {call_kind::rename, -41}};
    for (const auto &[kind, code] : failures) {
        for (int n = 1;; ++n) {
            const failing_call failing(kind, n);
            const int result = vesk_backup_state(recorder.get());
            if (!failing_call::happened()) {
                EXPECT_EQ(0, result);
                break;
            }
            EXPECT_EQ(code, result) << n;
            EXPECT_EQ(before, read_file("r.state.bak")) << n;
            EXPECT_EQ(0U, files().count("r.state.bak.new")) << n;
            EXPECT_EQ(open_files, count_open_files());
        }
        EXPECT_EQ(after, copied_state());
        write_file("r.state.bak", before);
    }
    {
        const failing_call failing(call_kind::sync, 1);
        EXPECT_EQ(-41, vesk_backup_state(recorder.get()));
        EXPECT_EQ(before, read_file("r.state.bak"));
    }
    {
        const failing_call failing(call_kind::sync, 2);
        EXPECT_EQ(-41, vesk_backup_state(recorder.get()));
        EXPECT_EQ(after, copied_state()) << "it is in place, if not for sure";
    }
}

TEST_F(Recorder, AFailedTransitionIsNotBackedUp)
{
    for (const int vectors : {4, 8, 12}) {
        const owned_recorder recorder = create_with(vectors);
        ASSERT_EQ(0, vesk_backup_state(recorder.get()));
        const std::string before = read_file("r.state.bak");
        const std::string next =
            "r." + std::to_string(vectors / 4 + (vectors == 12 ? 2 : 1)) + ".cbuf.z";
        fs::remove(next);
        fs::create_directory(next);
        ASSERT_EQ(-40, write(recorder.get(), vectors + 1)) << vectors;
        EXPECT_EQ(-6, vesk_backup_state(recorder.get())) << vectors;
        EXPECT_EQ(before, read_file("r.state.bak")) << vectors;
        fs::remove(next);
    }
}

TEST_F(Recorder, ABackupHasAnOrdinaryName)
{
    const owned_recorder recorder = create_with(1);
    const std::string name = recorder->state_filename;
    free(recorder->state_filename);
    recorder->state_filename = strdup(std::string(4092, 'x').c_str());
    EXPECT_EQ(-49, vesk_backup_state(recorder.get()));
    free(recorder->state_filename);
    recorder->state_filename = strdup(std::string(4088, 'x').c_str());
    EXPECT_EQ(-49, vesk_backup_state(recorder.get())) << "nor is there room for .new";
    free(recorder->state_filename);
    recorder->state_filename = strdup("/nowhere/r.state");
    EXPECT_EQ(-40, vesk_backup_state(recorder.get()));
}
