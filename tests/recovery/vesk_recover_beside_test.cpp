// Recovering a box: what becomes of the files beside it. What the box or its history holds is
// deleted, what nothing else holds is kept and not overwritten.
#include "recovery/recover_fixture.hpp"

namespace
{

// Every buffer begins with the same bytes, so those alone tell nothing.
TEST_F(Recover, KeepsATornHeaderWhateverBuffersBeginLike)
{
    make_box(17);
    write_file("r.2.cbuf.z", read_file("r.7.cbuf.z").substr(0, 16));
    EXPECT_EQ((steps{{VESK_RECOVER_KEEP, "r.2.cbuf.z", 0}}), plan());
}

TEST_F(Recover, DeletesACopyOfABufferOfTheBox)
{
    make_box(18);
    const std::string open = read_file("r.7.cbuf.z");
    write_file("r.2.cbuf.z", open);
    write_file("r.3.cbuf.z", open.substr(0, open.size() - 1));
    std::string other = open;
    other.back() = static_cast<char>(other.back() ^ 1);
    write_file("r.1.cbuf.z", other);
    EXPECT_EQ((steps{{VESK_RECOVER_KEEP, "r.1.cbuf.z", 0},
                     {VESK_RECOVER_DELETE, "r.2.cbuf.z", 0},
                     {VESK_RECOVER_DELETE, "r.3.cbuf.z", 0}}),
              plan());
    EXPECT_EQ(2U, recover().files_deleted);
    EXPECT_EQ((std::vector<float>{17, 18}), samples_in("r.7.cbuf.z"));
    goes_on(19);
}

TEST_F(Recover, DeletesWhatIsInTheHistory)
{
    make_box(16);
    fs::create_directory("kept");
    for (const char *name : {"r.4.hbuf.z", "r.3.cbuf.z"}) {
        fs::copy_file(name, std::string("kept/") + name);
    }
    owned_recorder recorder(vesk_open("r"));
    write(recorder.get(), 17);
    recorder.reset();
    const file_names bounded = files();
    for (const char *name : {"r.4.hbuf.z", "r.3.cbuf.z"}) {
        fs::rename(std::string("kept/") + name, name);
    }
    EXPECT_EQ(
        (steps{{VESK_RECOVER_DELETE, "r.3.cbuf.z", 0}, {VESK_RECOVER_DELETE, "r.4.hbuf.z", 0}}),
        plan());
    EXPECT_EQ(2U, recover().files_deleted);
    EXPECT_EQ(bounded, files());
    goes_on(18);
}

TEST_F(Recover, DeletesWhatAFailedRotationLeft)
{
    make_box(16);
    fs::copy_file("r.4.hbuf.z", "r.6.hbuf.z");
    cut("r.6.hbuf.z", 4);
    write_file("r.7.cbuf.z", "");
    EXPECT_EQ(2U, recover().files_deleted);
    goes_on(17);
}

TEST_F(Recover, DeletesWhatAnEarlierRecoveryLeft)
{
    make_box(5);
    for (const char *name : {"r.state.new", "r.state.bak.new", "r.1.cbuf.z.new", "r.9.hbuf.z.new",
                             "r.9.cbuf.z.torn"}) {
        write_file(name, "x");
    }
    EXPECT_EQ(5U, recover().steps);
    EXPECT_EQ((file_names{"r.state", "r.1.cbuf.z", "r.2.cbuf.z"}), files());
}

// A buffer that lost its header holds all that it did, and nothing tells the next recovery of it.
TEST_F(Recover, DeletesAnUnfinishedHistoryOfABufferThatLostOnlyItsHeader)
{
    make_box(6);
    std::string records = stored_names_record(1001, {"a"});
    for (std::uint32_t i = 1; i <= 4; ++i) {
        records += stored_values_record(1000 + i, {static_cast<float>(i)});
    }
    write_file("r.1.cbuf.z", compressed_stream(records));
    write_file("r.6.hbuf.z", "the beginning of a history");
    EXPECT_EQ(1U, recover().files_deleted);
    EXPECT_EQ((file_names{"r.state", "r.1.cbuf.z", "r.2.cbuf.z"}), files());
    goes_on(7);
}

TEST_F(Recover, KeepsAnUnfinishedHistoryOfABufferThatWasDamaged)
{
    make_box(16);
    const std::string unfinished =
        compressed_stream(stored_buffer_header(2, 4) + stored_names_record(1001, {"a"}) +
                          stored_interval_record(1009, 1010, {stored_summary({9, 10})}));
    write_file("r.6.hbuf.z", unfinished);
    cut("r.3.cbuf.z", 3);
    EXPECT_EQ(1U, recover().files_kept);
    EXPECT_EQ(unfinished, read_file("r.6.hbuf.z"));
    goes_on(17);
    EXPECT_EQ(unfinished, read_file("r.6.hbuf.z"));
}

TEST_F(Recover, KeepsFilesThatTheHistoryDoesNotHold)
{
    make_box(13);
    const std::string stray =
        compressed_stream(stored_buffer_header(1, 4) + stored_names_record(5000, {"a"}) +
                          stored_values_record(5000, {1}));
    write_file("r.2.cbuf.z", stray);
    EXPECT_EQ((steps{{VESK_RECOVER_KEEP, "r.2.cbuf.z", 0}}), plan());
    EXPECT_EQ(1U, recover().files_kept);
    EXPECT_EQ(stray, read_file("r.2.cbuf.z"));
}

TEST_F(Recover, DoesNotLetAKeptFileBeOverwritten)
{
    make_box(13);
    const std::string stray =
        compressed_stream(stored_buffer_header(2, 4) + stored_names_record(9000, {"a"}) +
                          stored_interval_record(9000, 9001, {stored_summary({1})}));
    write_file("r.6.hbuf.z", stray);
    recover();
    goes_on(14);
    EXPECT_EQ(stray, read_file("r.6.hbuf.z"));
}

} // namespace
