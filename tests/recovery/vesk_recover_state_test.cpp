// Recovering a box whose state file is damaged, missing or behind its buffers: the copy of the
// state where it is right, and otherwise a state made of the buffers that are there.
#include "recovery/recover_fixture.hpp"

namespace
{

TEST_F(Recover, TakesNoStateThatNamesABufferTwice)
{
    make_box(10);
    std::string state = read_file("r.state");
    state.replace(state.find("r.2.cbuf.z"), 10, "r.1.cbuf.z");
    write_file("r.state", state);
    EXPECT_EQ(VESK_RECOVER_FROM_BUFFERS, recover().source);
    goes_on(11);
}

TEST_F(Recover, TakesNoStateThatLeadsElsewhere)
{
    make_box(6);
    const std::string good = read_file("r.state");
    for (const std::size_t name : {std::size_t(5), good.find("r.state")}) {
        std::string state = good;
        state[name] = 'q';
        write_file("r.state", state);
        EXPECT_EQ((steps{{VESK_RECOVER_WRITE_STATE, "r.state", 0}}), plan());
        recover();
        EXPECT_EQ(good, read_file("r.state"));
    }
    goes_on(7);
}

TEST_F(Recover, WritesAStateFileThatIsCutAtAnyByte)
{
    for (const int last : {5, 9, 13, 17}) {
        make_box(last);
        const std::string state = read_file("r.state");
        const file_names before = files();
        std::vector<std::string> contents;
        for (const std::string &name : before) {
            contents.push_back(read_file(name));
        }
        for (std::size_t n = 0; n < state.size(); ++n) {
            write_file("r.state", state.substr(0, n));
            const vesk_recover_report report = recover(4, 2);
            EXPECT_EQ(VESK_RECOVER_FROM_BUFFERS, report.source);
            EXPECT_EQ(1U, report.steps) << last << " " << n;
            EXPECT_EQ(state, read_file("r.state")) << last << " " << n;
            goes_on(last + 1);
            for (const std::string &name : files()) {
                fs::remove(name);
            }
            std::size_t i = 0;
            for (const std::string &name : before) {
                write_file(name, contents[i++]);
            }
        }
        for (const std::string &name : files()) {
            fs::remove(name);
        }
    }
}

TEST_F(Recover, TakesTheBackupWhenItNamesTheBuffers)
{
    make_box(6);
    fs::rename("r.state", "r.state.bak");
    const vesk_recover_report report = recover();
    EXPECT_EQ(VESK_RECOVER_FROM_BACKUP, report.source);
    EXPECT_EQ(read_file("r.state.bak"), read_file("r.state"));
    goes_on(7);
}

TEST_F(Recover, TakesOnlyTheSizesOfABackupThatIsBehind)
{
    make_box(4);
    fs::copy_file("r.state", "r.state.bak");
    owned_recorder recorder(vesk_open("r"));
    write(recorder.get(), 5);
    recorder.reset();
    const std::string state = read_file("r.state");
    fs::remove("r.state");
    EXPECT_EQ(VESK_RECOVER_FROM_BUFFERS, recover().source);
    EXPECT_EQ(state, read_file("r.state"));
}

TEST_F(Recover, CannotTellTheSizesOfABoxWithoutHistoryAndState)
{
    make_box(6);
    fs::remove("r.state");
    EXPECT_EQ(QE_ERROR_MALFORMED, vesk_recover("r", 0, 0, nullptr));
    EXPECT_EQ(QE_ERROR_MALFORMED, vesk_recover("r", 4, 3, nullptr));
    recover(4, 2);
    goes_on(7);
}

TEST_F(Recover, FinishesABoxThatWasKilledWhileItWasCreated)
{
    write_file("r.state", "");
    recover(4, 2);
    goes_on(1);
}

TEST_F(Recover, MakesBuffersThatAreMissing)
{
    make_box(18);
    const file_names all = files();
    for (const char *missing : {"r.6.hbuf.z", "r.5.cbuf.z", "r.7.cbuf.z"}) {
        fs::remove(missing);
        EXPECT_GT(recover().steps, 0U) << missing;
        goes_on(19);
        for (const std::string &name : files()) {
            fs::remove(name);
        }
        make_box(18);
    }
}

TEST_F(Recover, TrustsTheBuffersMoreThanAStateThatIsBehindThem)
{
    make_box(4);
    const std::string behind = read_file("r.state");
    owned_recorder recorder(vesk_open("r"));
    write(recorder.get(), 5);
    recorder.reset();
    write_file("r.state", behind);
    EXPECT_EQ(VESK_RECOVER_FROM_BUFFERS, recover().source);
    EXPECT_EQ((std::vector<float>{5}), samples_in("r.2.cbuf.z"));
    goes_on(6);
}

TEST_F(Recover, DoesNotTakeTheBuffersOfAnOlderBoxForTheBox)
{
    make_box(18);
    {
        const owned_recorder anew(vesk_create("r", 4, 2));
        for (int i = 101; i <= 104; ++i) {
            write(anew.get(), i);
        }
    }
    EXPECT_EQ(3U, recover().files_kept);
    EXPECT_EQ((std::vector<float>{101, 102, 103, 104}), samples_in("r.1.cbuf.z"));
    goes_on(105);
    EXPECT_EQ((std::vector<float>{17, 18}), samples_in("r.7.cbuf.z"));
}

// A box made over an older one has nothing to do with the copy of its state.
TEST_F(Recover, DoesNotBelieveTheCopyOfAnOlderBox)
{
    make_box(5);
    {
        const owned_recorder older(vesk_open("r"));
        ASSERT_EQ(0, vesk_backup_state(older.get()));
    }
    ASSERT_TRUE(fs::exists("r.state.bak"));
    {
        const owned_recorder anew(vesk_create("r", 4, 2));
        EXPECT_FALSE(fs::exists("r.state.bak"));
        write(anew.get(), 101);
    }
    EXPECT_EQ(1U, recover().files_kept);
    EXPECT_EQ((std::vector<float>{101}), samples_in("r.1.cbuf.z"));
    EXPECT_EQ((std::vector<float>{5}), samples_in("r.2.cbuf.z"));
}

} // namespace
