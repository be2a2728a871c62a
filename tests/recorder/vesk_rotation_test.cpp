// Rotations that fail half-way: what a recorder keeps, and how it goes on.

#include "common/failing_calls.hpp"
#include "common/file_size_limit.hpp"
#include "common/isolated.hpp"
#include "common/memory_streams.hpp"
#include "recorder/recorder_fixture.hpp"

namespace
{

// In the way of a file that is to be made: not even root can write to it.
void block(const std::string &name)
{
    fs::create_directory(name);
}

void unblock(const std::string &name)
{
    fs::remove(name);
}

} // namespace

TEST_F(Recorder, AFailureOnTheWayToTheSecondStageLeavesTheStateAhead)
{
    owned_recorder recorder = create_with(4);
    const std::string before = state();
    block("r.2.cbuf.z");
    EXPECT_EQ(-40, write(recorder.get(), 5));
    EXPECT_EQ(2U, recorder->state);
    EXPECT_STREQ("r.1.cbuf.z", vesk_zcf_state_c00_get_filename(recorder->c00));
    EXPECT_EQ(before, state());
    EXPECT_ABORTS(write(recorder.get(), 5), "vesk->cc0 != ((void *)0)");
    EXPECT_ABORTS(write_event(recorder.get()), "vesk->cc0 != ((void *)0)");
    memory_writer target;
    EXPECT_ABORTS(binary_serializer_write_vesk(recorder.get(), target.get()),
                  "vesk->cc0 != ((void *)0)");
    recorder.reset();

    unblock("r.2.cbuf.z");
    recorder.reset(vesk_open("r"));
    write_all(recorder.get(), 5, 24);
    EXPECT_EQ((name_set{"r.state", "r.8.hbuf.z", "r.7.cbuf.z", "r.9.cbuf.z"}), files());
}

TEST_F(Recorder, AFailureOnTheWayToTheThirdStageLeavesTheStateAhead)
{
    owned_recorder recorder = create_with(8);
    block("r.3.cbuf.z");
    EXPECT_EQ(-40, write(recorder.get(), 9));
    EXPECT_EQ(3U, recorder->state);
    EXPECT_ABORTS(write(recorder.get(), 9), "vesk->ccc != ((void *)0)");
    recorder.reset();

    unblock("r.3.cbuf.z");
    recorder.reset(vesk_open("r"));
    EXPECT_EQ(2U, recorder->state);
    write_all(recorder.get(), 9, 24);
    EXPECT_EQ((name_set{"r.state", "r.8.hbuf.z", "r.7.cbuf.z", "r.9.cbuf.z"}), files());
}

TEST_F(Recorder, AHistoryThatCannotBeMadeCostsOnlyItsNumber)
{
    const owned_recorder recorder = create_with(12);
    block("r.4.hbuf.z");
    EXPECT_EQ(-40, write(recorder.get(), 13));
    EXPECT_EQ(3U, recorder->state);
    ASSERT_EQ(0, write(recorder.get(), 13));
    unblock("r.4.hbuf.z");
    EXPECT_EQ((name_set{"r.state", "r.5.hbuf.z", "r.3.cbuf.z", "r.6.cbuf.z"}), files());
    EXPECT_EQ(stored_state(4, 7, {"r.5.hbuf.z", "r.3.cbuf.z", "r.6.cbuf.z"}), state());
}

TEST_F(Recorder, AFailureOnTheWayToTheLastStageTakesTheOldBufferForTheHistory)
{
    owned_recorder recorder = create_with(12);
    const std::string before = state();
    block("r.5.cbuf.z");
    EXPECT_EQ(-40, write(recorder.get(), 13));
    EXPECT_EQ(4U, recorder->state);
    EXPECT_EQ(0, write_event(recorder.get())) << "the open buffer is still there";
    EXPECT_EQ(-3, write(recorder.get(), 13));
    EXPECT_EQ(-3, write(recorder.get(), 13));
    EXPECT_EQ((name_set{"r.state", "r.1.cbuf.z", "r.2.cbuf.z", "r.3.cbuf.z", "r.4.hbuf.z",
                        "r.5.cbuf.z", "r.6.hbuf.z", "r.7.hbuf.z"}),
              files());
    EXPECT_EQ(before, state());
    recorder.reset();
}

TEST_F(Recorder, ReopeningHealsAFailureOnTheWayToTheLastStage)
{
    owned_recorder recorder = create_with(12);
    block("r.5.cbuf.z");
    EXPECT_EQ(-40, write(recorder.get(), 13));
    EXPECT_EQ(-3, write(recorder.get(), 13));
    recorder.reset();
    unblock("r.5.cbuf.z");
    recorder.reset(vesk_open("r"));
    EXPECT_EQ(3U, recorder->state);
    write_all(recorder.get(), 13, 13);
    EXPECT_EQ((name_set{"r.state", "r.4.hbuf.z", "r.3.cbuf.z", "r.5.cbuf.z", "r.6.hbuf.z"}),
              files());
}

TEST_F(Recorder, AFailureInTheLastStageIsRetried)
{
    const owned_recorder recorder = create_with(16);
    block("r.7.cbuf.z");
    EXPECT_EQ(-40, write(recorder.get(), 17));
    EXPECT_EQ(4U, recorder->state);
    ASSERT_EQ(0, write(recorder.get(), 17));
    unblock("r.7.cbuf.z");
    EXPECT_EQ((name_set{"r.state", "r.6.hbuf.z", "r.8.hbuf.z", "r.5.cbuf.z", "r.9.cbuf.z"}),
              files());
    EXPECT_EQ(content("r.6.hbuf.z"), content("r.8.hbuf.z"));
}

TEST_F(Recorder, ABufferThatIsGoneStopsTheRotation)
{
    const owned_recorder recorder = create_with(12);
    fs::rename("r.2.cbuf.z", "away");
    EXPECT_EQ(-40, write(recorder.get(), 13));
    EXPECT_EQ(-40, write(recorder.get(), 13));
    EXPECT_EQ(3U, recorder->state);
    EXPECT_TRUE(fs::exists("r.1.cbuf.z"));
    fs::rename("away", "r.2.cbuf.z");
    ASSERT_EQ(0, write(recorder.get(), 13));
    EXPECT_EQ(
        (name_set{"r.state", "r.4.hbuf.z", "r.5.hbuf.z", "r.6.hbuf.z", "r.3.cbuf.z", "r.7.cbuf.z"}),
        files());
}

TEST_F(Recorder, AHistoryThatIsGoneStopsTheRotation)
{
    const owned_recorder recorder = create_with(16);
    fs::rename("r.4.hbuf.z", "away");
    EXPECT_EQ(-40, write(recorder.get(), 17));
    fs::rename("away", "r.4.hbuf.z");
    ASSERT_EQ(0, write(recorder.get(), 17));
    EXPECT_EQ((name_set{"r.state", "r.6.hbuf.z", "r.7.hbuf.z", "r.5.cbuf.z", "r.8.cbuf.z"}),
              files());
}

TEST_F(Recorder, AHistoryThatIsNotFullStopsTheRotation)
{
    const owned_recorder recorder = create_with(16);
    write_file("r.4.hbuf.z",
               deflate_stream(stored_hbuf_head() + stored_interval(1, 4) + stored_interval(5, 8)));
    EXPECT_EQ(-44, write(recorder.get(), 17));
    EXPECT_EQ(-44, write(recorder.get(), 17));
    EXPECT_TRUE(fs::exists("r.3.cbuf.z"));
}

TEST_F(Recorder, AStateFileThatCannotBeSavedDoesNotStopTheRecorder)
{
    owned_recorder recorder = create_with(4);
    fs::remove("r.state");
    block("r.state");
    EXPECT_EQ(-40, write(recorder.get(), 5));
    EXPECT_EQ(2U, recorder->state);
    EXPECT_EQ(0, write(recorder.get(), 5)) << "the new stage is in place";
    EXPECT_EQ(1U, recorder->cc0->cbuf1->num_data_records);
    write_all(recorder.get(), 6, 8);
    EXPECT_EQ(-40, write(recorder.get(), 9));
    EXPECT_EQ(3U, recorder->state);
    unblock("r.state");
    write_all(recorder.get(), 9, 13);
    recorder.reset();
    EXPECT_EQ(stored_state(4, 6, {"r.4.hbuf.z", "r.3.cbuf.z", "r.5.cbuf.z"}), state());
}

TEST_F(Recorder, AStateFileOnAFullDiskGives41)
{
    const owned_recorder recorder = create_with(4);
    fs::remove("r.state");
    fs::create_symlink("/dev/full", "r.state");
    EXPECT_EQ(-41, write(recorder.get(), 5));
    EXPECT_EQ(2U, recorder->state);
}

TEST_F(Recorder, AbortsWhenTheFirstHistoryCannotBeSaved)
{
    const owned_recorder recorder = create_with(12);
    fs::remove("r.state");
    block("r.state");
    EXPECT_ABORTS(write(recorder.get(), 13), "*hbuf != ((void *)0)");
    EXPECT_EQ(
        (name_set{"r.state", "r.1.cbuf.z", "r.2.cbuf.z", "r.3.cbuf.z", "r.4.hbuf.z", "r.5.cbuf.z"}),
        files())
        << "nothing is deleted";
}

TEST_F(Recorder, ALaterHistoryThatCannotBeSavedDeletesNothing)
{
    const owned_recorder recorder = create_with(16);
    fs::remove("r.state");
    block("r.state");
    EXPECT_EQ(-40, write(recorder.get(), 17));
    EXPECT_EQ(
        (name_set{"r.state", "r.3.cbuf.z", "r.4.hbuf.z", "r.5.cbuf.z", "r.6.hbuf.z", "r.7.cbuf.z"}),
        files());
    EXPECT_STREQ("r.6.hbuf.z", vesk_zcf_state_hcc_get_hbuf_filename(recorder->hcc));
    EXPECT_EQ(0, write(recorder.get(), 17));
    unblock("r.state");
    write_all(recorder.get(), 18, 21);
    EXPECT_EQ(stored_state(4, 10, {"r.8.hbuf.z", "r.7.cbuf.z", "r.9.cbuf.z"}), state());
}

TEST_F(Recorder, ADiskThatFillsInsideTheStageIsNotNoticed)
{
    // A long base name makes the state file larger than every buffer.
    std::string base;
    for (int i = 0; i < 200; ++i) {
        base += "./";
    }
    base += "r";
    const owned_recorder recorder(vesk_create(base.c_str(), 4, 2));
    write_all(recorder.get(), 1, 12);
    const std::size_t stage = 1 + 2 * 4 + base.size() + base.size() + 6 + 5 * 4;
    {
        const file_size_limit limit(stage + 3);
        EXPECT_EQ(0, write(recorder.get(), 13));
    }
    EXPECT_EQ(stage + 3, read_file("r.state").size()) << "cut inside the first name of the stage";
    EXPECT_EQ((name_set{"r.state", "r.4.hbuf.z", "r.3.cbuf.z", "r.5.cbuf.z"}), files());
}

TEST_F(Recorder, ADiskThatFillsBeforeTheStageIsNoticed)
{
    std::string base;
    for (int i = 0; i < 200; ++i) {
        base += "./";
    }
    base += "r";
    const owned_recorder recorder(vesk_create(base.c_str(), 4, 2));
    write_all(recorder.get(), 1, 4);
    const file_size_limit limit(500);
    EXPECT_EQ(-41, write(recorder.get(), 5));
    EXPECT_EQ(2U, recorder->state);
}

TEST_F(Recorder, AFullDiskDeletesNothing)
{
    const owned_recorder recorder = create_with(12);
    const std::string before = state();
    {
        const file_size_limit limit(20);
        EXPECT_EQ(-41, write(recorder.get(), 13));
        EXPECT_EQ(-41, write(recorder.get(), 13));
    }
    EXPECT_EQ(3U, recorder->state);
    EXPECT_EQ(before, state());
    EXPECT_EQ(stored_cbuf(1, 4), content("r.1.cbuf.z"));
    EXPECT_EQ(stored_cbuf(5, 8), content("r.2.cbuf.z"));
    ASSERT_EQ(0, write(recorder.get(), 13));
    EXPECT_EQ(stored_hbuf_head() + stored_interval(1, 2) + stored_interval(3, 4) +
                  stored_interval(5, 6) + stored_interval(7, 8),
              content("r.6.hbuf.z"));
}

TEST_F(Recorder, AVectorThatDoesNotReachTheDiskIsNotCounted)
{
    const owned_recorder recorder = create_with(2);
    {
        const file_size_limit limit(1);
        EXPECT_EQ(-41, write(recorder.get(), 3));
    }
    EXPECT_EQ(2U, recorder->c00->cbuf0->num_data_records);
    write_all(recorder.get(), 3, 5);
    EXPECT_EQ(stored_cbuf(1, 4), content("r.1.cbuf.z"));
}

TEST_F(Recorder, RunningOutOfMemoryDeletesNothingAndARestartGoesOn)
{
    const auto history = [this] {
        std::string all;
        for (const std::string &name : files()) {
            all += name.find(".hbuf.z") != std::string::npos ? content(name) : "";
        }
        return all;
    };
    for (const int last : {4, 8, 12, 16}) {
        create_with(last + 1).reset();
        const std::string history_after_next = history();
        for (const std::string &name : files()) {
            fs::remove(name);
        }
        for (int n = 1;; ++n) {
            create_with(last).reset();
            const name_set files_before = files();
            const std::string state_before = state();
            // 0 success, 1 a negative result, 2 no allocation was left to fail.
            const isolated_run run([=] {
                owned_recorder recorder = open();
                int result = 0;
                {
                    const failing_allocation failing(n);
                    result = write(recorder.get(), last + 1);
                    if (!failing_allocation::happened()) {
                        return 2;
                    }
                }
                recorder.reset();
                return result == 0 ? 0 : 1;
            });
            ASSERT_TRUE((run.exited() && run.code() <= 2) || run.aborted()) << run.messages();
            if (run.exited() && run.code() == 2) {
                EXPECT_LT(10, n);
                break;
            }
            const bool written = run.exited() && run.code() == 0;
            qe_set_last_error(0);
            owned_recorder recorder = open();
            if (written || (recorder && qe_get_last_error() == 0)) {
                write_all(recorder.get(), written ? last + 2 : last + 1, 21);
                recorder.reset();
                EXPECT_EQ(stored_hbuf_head() + stored_interval(1, 8) + stored_interval(9, 12) +
                              stored_interval(13, 14) + stored_interval(15, 16),
                          content("r.8.hbuf.z"))
                    << last << ' ' << n;
                EXPECT_EQ(stored_cbuf(17, 20), content("r.7.cbuf.z")) << last << ' ' << n;
            } else {
                // The state file was opened before there was memory for its stream, or the process
                // ended before the new buffer had a byte.
                EXPECT_TRUE(state().empty() || run.aborted()) << last << ' ' << n;
                if (state().empty() || state() == state_before) {
                    for (const std::string &name : files_before) {
                        EXPECT_TRUE(fs::exists(name)) << name << ' ' << n;
                    }
                } else {
                    EXPECT_EQ(history_after_next, history()) << last << ' ' << n;
                }
            }
            for (const std::string &name : files()) {
                fs::remove(name);
            }
        }
    }
}
