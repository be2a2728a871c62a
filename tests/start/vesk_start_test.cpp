// Starting a recorder: what there is of a box is not overwritten but recovered, its files are those
// of other recorders, and what the history replaces stays until that is on the medium.
#include <cstring>

#include "start/start_fixture.hpp"

// ---- Making a box -----------------------------------------------------------------------------

TEST_F(Start, MakesABoxWhereThereIsNone)
{
    vesk_start_report report;
    const owned_recorder recorder = start(&report);
    ASSERT_TRUE(recorder);
    EXPECT_EQ(0, qe_get_last_error());
    EXPECT_EQ(1, report.created);
    EXPECT_EQ(0, report.settled);
    EXPECT_EQ(4U, recorder->num_cb_samples);
    EXPECT_EQ(2U, recorder->num_hb_intervals);
    EXPECT_EQ((strings{"r.1.cbuf.z", "r.state", "r.state.bak"}), names());
    EXPECT_EQ(copy_of(read_file("r.state")), read_file("r.state.bak"));
}

TEST_F(Start, NeedsNoReport)
{
    EXPECT_TRUE(start());
    EXPECT_TRUE(start());
}

TEST_F(Start, MakesNoBoxWithoutSizes)
{
    EXPECT_EQ(nullptr, vesk_start("r", 0, 0, nullptr));
    EXPECT_EQ(QE_ERROR_ABSENT, qe_get_last_error());
    EXPECT_EQ(strings(), names());
}

TEST_F(Start, RefusesSizesThatNoBoxCanHave)
{
    for (const auto &[samples, intervals, code] : {std::tuple(0U, 2U, QE_ERROR_MALFORMED),
                                                   {4U, 0U, QE_ERROR_MALFORMED},
                                                   {3U, 3U, QE_ERROR_MALFORMED},
                                                   {4U, 1U, QE_ERROR_MALFORMED},
                                                   {6U, 4U, QE_ERROR_MALFORMED},
                                                   {65536U, 65536U, QE_ERROR_LIMIT}}) {
        EXPECT_EQ(nullptr, vesk_start("r", samples, intervals, nullptr));
        EXPECT_EQ(code, qe_get_last_error()) << samples << " " << intervals;
        EXPECT_EQ(nullptr, vesk_create_new("r", samples, intervals));
        EXPECT_EQ(code, qe_get_last_error()) << samples << " " << intervals;
    }
    EXPECT_EQ(strings(), names());
}

TEST_F(Start, RefusesANameWithWhichNamesOfBuffersWouldBeCut)
{
    const std::string folder = std::string(199, 'f');
    fs::path path;
    for (int i = 0; i < 5; ++i) {
        path /= folder;
    }
    fs::create_directories(path);
    const std::string longest = path.string() + "/rrrrr";
    ASSERT_EQ(std::size_t{VESK_MAX_BASE_LENGTH}, longest.size());
    owned_recorder recorder(vesk_start(longest.c_str(), 4, 2, nullptr));
    write_all(recorder, 1, 17);
    EXPECT_TRUE(fs::exists(longest + ".7.cbuf.z"));
    recorder.reset();
    const std::string base = longest + "r";
    EXPECT_EQ(nullptr, vesk_start(base.c_str(), 4, 2, nullptr));
    EXPECT_EQ(QE_ERROR_LIMIT, qe_get_last_error());
    EXPECT_EQ(nullptr, vesk_create_new(base.c_str(), 4, 2));
    EXPECT_EQ(QE_ERROR_LIMIT, qe_get_last_error());
    fs::remove_all(folder);
}

TEST_F(Start, RefusesANameThatItsLastBufferCouldNotHave)
{
    const long most = pathconf(".", _PC_NAME_MAX);
    const std::size_t longest =
        static_cast<std::size_t>(most) - std::strlen(".4294967295.cbuf.z.torn");
    const std::string base(longest + 1, 'r');
    EXPECT_EQ(nullptr, vesk_start(base.c_str(), 4, 2, nullptr));
    EXPECT_EQ(QE_ERROR_LIMIT, qe_get_last_error());
    EXPECT_EQ(nullptr, vesk_create_new(base.c_str(), 4, 2));
    EXPECT_EQ(QE_ERROR_LIMIT, qe_get_last_error());
    EXPECT_EQ(strings(), names());
    EXPECT_TRUE(owned_recorder(vesk_start(base.substr(1).c_str(), 4, 2, nullptr)));
}

TEST_F(Start, AFolderThatIsNotThereIsAFailureOfItsOwn)
{
    EXPECT_EQ(nullptr, vesk_start("none/r", 4, 2, nullptr));
    EXPECT_EQ(QE_ERROR_OPEN, qe_get_last_error());
}

TEST_F(Start, AbortsWithoutAName)
{
    EXPECT_ABORTS(vesk_start(nullptr, 4, 2, nullptr), "filename != ((void *)0)");
    EXPECT_ABORTS(vesk_start("", 4, 2, nullptr), "filename[0] != 0");
    EXPECT_ABORTS(vesk_create_new(nullptr, 4, 2), "filename != ((void *)0)");
    EXPECT_ABORTS(vesk_create_new("", 4, 2), "filename[0] != 0");
    EXPECT_ABORTS(vesk_settle(nullptr), "vesk != ((void *)0)");
}

// ---- What is there is not overwritten ---------------------------------------------------------

TEST_F(Start, CreatingAnewRefusesWhateverIsThereOfABox)
{
    for (const char *name : {"r.state", "r.state.bak", "r.1.cbuf.z", "r.7.cbuf.z", "r.7.hbuf.z"}) {
        write_file(name, "");
        EXPECT_EQ(nullptr, vesk_create_new("r", 4, 2)) << name;
        EXPECT_EQ(QE_ERROR_EXISTS, qe_get_last_error()) << name;
        EXPECT_EQ(strings{name}, names());
        fs::remove(name);
    }
    for (const char *name : {"r.state", "r.state.bak", "r.1.cbuf.z"}) {
        fs::create_symlink("/nowhere/at/all", name);
        EXPECT_EQ(nullptr, vesk_create_new("r", 4, 2)) << name;
        EXPECT_EQ(QE_ERROR_EXISTS, qe_get_last_error()) << name;
        EXPECT_EQ(strings{name}, names());
        fs::remove(name);
    }
}

TEST_F(Start, CreatingAnewTakesFilesOfOtherBoxesForNothing)
{
    for (const char *name : {"q.state", "rr.1.cbuf.z", "r.01.cbuf.z", "r.x.cbuf.z", "r.lock"}) {
        write_file(name, "");
    }
    const owned_recorder recorder(vesk_create_new("r", 4, 2));
    ASSERT_TRUE(recorder);
    EXPECT_EQ(0, write(recorder, 1));
}

TEST_F(Start, AFolderThatCannotBeListedIsNotAnEmptyOne)
{
    start_with(3);
    fs::remove("r.state");
    fs::remove("r.state.bak");
    const folder_content before = files();
    for (const call_kind kind : {call_kind::open, call_kind::read}) {
        for (const auto how_long : {failing_call::once, failing_call::for_ever}) {
            for (int n = 1; n < 4; ++n) {
                const failing_call failing(kind, n, how_long);
                EXPECT_EQ(nullptr, vesk_create_new("r", 4, 2));
                EXPECT_GT(0, qe_get_last_error());
                EXPECT_EQ(before, files());
            }
        }
    }
}

TEST_F(Start, AFailureWhileABoxIsMadeLeavesNothingInTheWay)
{
    for (const call_kind kind : {call_kind::allocation, call_kind::open, call_kind::read,
                                 call_kind::write, call_kind::flush}) {
        for (int n = 1;; ++n) {
            vesk *recorder = nullptr;
            bool happened = false;
            {
                const failing_call failing(kind, n);
                recorder = vesk_create_new("r", 4, 2);
                happened = failing_call::happened();
            }
            if (recorder == nullptr) {
                EXPECT_EQ(strings(), names()) << static_cast<int>(kind) << " " << n;
            } else {
                vesk_close(&recorder);
            }
            clear();
            if (!happened) {
                EXPECT_LT(1, n);
                break;
            }
        }
    }
}

TEST_F(Start, TheCopyOfTheStateAloneIsABox)
{
    start_with(3);
    fs::remove("r.state");
    expect_goes_on(4);

    clear();
    start();
    fs::remove("r.state");
    fs::remove("r.1.cbuf.z");
    const folder_content before = files();
    vesk_start_report report;
    const owned_recorder recorder = start(&report);
    EXPECT_EQ(0, report.created);
    EXPECT_TRUE(recorder || before == files());
}

TEST_F(Start, KeepsTheSizesOfABoxThatIsThere)
{
    start_with(3);
    vesk_start_report report;
    const owned_recorder recorder(vesk_start("r", 3600, 60, &report));
    ASSERT_TRUE(recorder);
    EXPECT_EQ(0, report.created);
    EXPECT_EQ(4U, recorder->num_cb_samples);
    EXPECT_EQ(3U, report.recovered.samples_kept);
}

TEST_F(Start, RecoversWhatACrashLeft)
{
    start_with(14);
    const folder_content box = files();
    // A state file that ends early, a torn buffer.
    write_file("r.state", box.at("r.state").substr(0, 5));
    ASSERT_EQ(1U, box.count("r.5.cbuf.z"));
    write_file("r.5.cbuf.z", box.at("r.5.cbuf.z").substr(0, box.at("r.5.cbuf.z").size() - 3));
    vesk_start_report report;
    const owned_recorder recorder = start(&report);
    ASSERT_TRUE(recorder) << qe_get_last_error();
    EXPECT_LT(1U, report.recovered.steps);
    EXPECT_EQ(VESK_RECOVER_FROM_BACKUP, report.recovered.source);
    EXPECT_EQ(0, report.settled);
    write_all(recorder, 14, 22);
}

// ---- Files that are the same ------------------------------------------------------------------

TEST_F(Start, WritesTheBytesThatOtherRecordersWrite)
{
    std::vector<folder_content> plain;
    {
        const owned_recorder recorder(vesk_create("r", 4, 2));
        for (int i = 1; i <= 30; ++i) {
            ASSERT_EQ(0, write(recorder, i));
            ASSERT_EQ(0, write_event(recorder, i));
            plain.push_back(files());
        }
    }
    clear();
    for (int i = 1; i <= 30; ++i) {
        // Each time another process, as far as the recorder is concerned.
        const owned_recorder recorder = start();
        ASSERT_TRUE(recorder) << i;
        ASSERT_EQ(0, write(recorder, i));
        ASSERT_EQ(0, write_event(recorder, i));
        ASSERT_EQ(0, vesk_settle(recorder.get()));
        folder_content content = files();
        content.erase("r.state.bak");
        ASSERT_EQ(plain[static_cast<std::size_t>(i) - 1], content) << i;
    }
}

// ---- The way to other files --------------------------------------------------------------------

TEST_F(Start, TellsWhenTheNextVectorMovesOn)
{
    const owned_recorder recorder = start();
    for (int i = 1; i <= 20; ++i) {
        const uint32_t number = recorder->next_file_number;
        const bool full = vesk_is_full(recorder.get()) != 0;
        EXPECT_EQ(i > 1 && i % 4 == 1, full) << i;
        ASSERT_EQ(0, write(recorder, i));
        EXPECT_EQ(full, recorder->next_file_number != number) << i;
    }
    EXPECT_ABORTS(vesk_is_full(nullptr), "vesk != ((void *)0)");
}

// ---- Files that were replaced -----------------------------------------------------------------

TEST_F(Start, ReplacedFilesStayUntilTheBoxIsSettled)
{
    const owned_recorder recorder = start_with(full_ccc);
    ASSERT_EQ(0, write(recorder, full_ccc + 1));
    EXPECT_EQ((strings{"r.1.cbuf.z", "r.2.cbuf.z", "r.3.cbuf.z", "r.4.hbuf.z", "r.5.cbuf.z",
                       "r.state", "r.state.bak"}),
              names());
    ASSERT_EQ(0, vesk_settle(recorder.get()));
    const strings settled = {"r.3.cbuf.z", "r.4.hbuf.z", "r.5.cbuf.z", "r.state", "r.state.bak"};
    EXPECT_EQ(settled, names());
    EXPECT_EQ(copy_of(read_file("r.state")), read_file("r.state.bak"));
}

TEST_F(Start, SettlingASettledBoxTouchesNothing)
{
    const owned_recorder recorder = start_with(full_hcc);
    bool touched = false;
    const call_observer observing([&](const char *, int) { touched = true; });
    const failing_call counting(call_kind::open, 0);
    EXPECT_EQ(0, vesk_settle(recorder.get()));
    EXPECT_FALSE(touched);
    EXPECT_EQ(0, failing_call::count(call_kind::open));
    EXPECT_EQ(0, failing_call::count(call_kind::sync));
}

TEST_F(Start, WithoutSettlingNoMoreFilesPileUp)
{
    const owned_recorder recorder = start();
    for (int i = 1; i <= 60; ++i) {
        ASSERT_EQ(0, write(recorder, i));
        EXPECT_GE(7U, names().size()) << i;
    }
}

TEST_F(Start, WhereNothingCanBeSyncedNoMoreFilesPileUp)
{
    const owned_recorder recorder = start();
    for (int i = 1; i <= 60; ++i) {
        const failing_call failing(call_kind::sync, 1, failing_call::for_ever);
        ASSERT_EQ(0, write(recorder, i));
        const int settled = vesk_settle(recorder.get());
        EXPECT_TRUE(settled == 0 || settled == QE_ERROR_IO);
        EXPECT_GE(7U, names().size()) << i;
    }
    EXPECT_EQ(0, vesk_settle(recorder.get()));
    EXPECT_EQ(5U, names().size());
}

TEST_F(Start, SettlingThatFailsDeletesNothingAndIsTriedAgain)
{
    const owned_recorder recorder = start_with(full_hcc);
    ASSERT_EQ(0, write(recorder, full_hcc + 1));
    const strings before = names();
    for (const call_kind kind : {call_kind::sync, call_kind::open, call_kind::rename}) {
        const failing_call failing(kind, 1, failing_call::for_ever);
        EXPECT_GT(0, vesk_settle(recorder.get()));
        EXPECT_EQ(before, names());
    }
    EXPECT_EQ(0, vesk_settle(recorder.get()));
    EXPECT_EQ(5U, names().size());
}

TEST_F(Start, WhatAKillLeftBeforeSettlingIsDeletedByTheNextStart)
{
    for (const int full : {full_ccc, full_hcc}) {
        clear();
        {
            const owned_recorder recorder = start_with(full);
            ASSERT_EQ(0, write(recorder, full + 1));
        }
        EXPECT_EQ(7U, names().size());
        vesk_start_report report;
        ASSERT_TRUE(start(&report));
        EXPECT_EQ(2U, report.recovered.files_deleted);
        EXPECT_EQ(5U, names().size());
    }
}

TEST_F(Start, AnotherRecorderIsSettledBySyncAndCopy)
{
    const owned_recorder recorder(vesk_create("r", 4, 2));
    ASSERT_EQ(0, vesk_settle(recorder.get()));
    EXPECT_EQ(copy_of(read_file("r.state")), read_file("r.state.bak"));
}
