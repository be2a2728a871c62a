// Starting a recorder: nothing that is there is overwritten, a medium that fails is told and not
// fatal, and what the history replaces stays until that is on the medium.
#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <unistd.h>
#include <vector>
#include <zlib.h>

#include <vesk/error.h>
#include <vesk/vesk_limits.h>
#include <vesk/vesk_start.h>

#include "common/aborts.hpp"
#include "common/failing_calls.hpp"
#include "common/telemetry.hpp"
#include "common/temporary_directory.hpp"

namespace
{

namespace fs = std::filesystem;

using owned_recorder = owned<vesk, vesk_close>;
using folder_content = std::map<std::string, std::string>;

// The last vector with which a box is in each of its stages, and full.
constexpr int full_c00 = 4;
constexpr int full_cc0 = 8;
constexpr int full_ccc = 12;
constexpr int full_hcc = 16;

class Start : public testing::Test
{
protected:
    Start() : folder_(fast_folder()), working_folder_(fs::current_path())
    {
        fs::current_path(folder_.path());
    }
    ~Start() override { fs::current_path(working_folder_); }

    static owned_recorder start(vesk_start_report *report = nullptr)
    {
        qe_set_last_error(0);
        return owned_recorder(vesk_start("r", 4, 2, report));
    }
    static int write(const owned_recorder &recorder, int i)
    {
        return vesk_write_telemetry_vector(
            recorder.get(), make_vector(1000 + i, {{"a", static_cast<double>(i)}}).get());
    }
    static int write_event(const owned_recorder &recorder, int i)
    {
        return vesk_write_tagged_event(recorder.get(), make_event(3, 1000 + i, "text").get());
    }
    static void write_all(const owned_recorder &recorder, int from, int to)
    {
        for (int i = from; i <= to; ++i) {
            ASSERT_EQ(0, write(recorder, i)) << i;
            ASSERT_EQ(0, vesk_settle(recorder.get())) << i;
        }
    }
    static owned_recorder start_with(int last)
    {
        owned_recorder recorder = start();
        write_all(recorder, 1, last);
        return recorder;
    }

    static folder_content files()
    {
        folder_content content;
        for (const auto &entry : fs::directory_iterator(".")) {
            const std::string name = entry.path().filename();
            content[name] = fs::is_regular_file(entry.symlink_status()) ? read_file(name) : "";
        }
        return content;
    }
    static std::vector<std::string> names()
    {
        std::vector<std::string> found;
        for (const auto &[name, bytes] : files()) {
            found.push_back(name);
        }
        return found;
    }
    static void clear()
    {
        for (const std::string &name : names()) {
            fs::remove(name);
        }
    }
    static void put_back(const folder_content &content)
    {
        clear();
        for (const auto &[name, bytes] : content) {
            write_file(name, bytes);
        }
    }
    // What a box needs to take another vector in every stage is there, and nothing is lost.
    static void expect_goes_on(int next)
    {
        vesk_start_report report;
        const owned_recorder recorder = start(&report);
        ASSERT_TRUE(recorder) << qe_get_last_error();
        EXPECT_EQ(0, report.created);
        write_all(recorder, next, next + 8);
    }

private:
    // Syncing costs nothing in memory.
    static std::string fast_folder()
    {
        const char *memory = "/dev/shm";
        return access(memory, W_OK) == 0 ? memory : fs::temp_directory_path().string();
    }

    temporary_directory folder_;
    fs::path working_folder_;
};

using strings = std::vector<std::string>;

// The copy of a state file: its bytes, and a checksum of them behind it.
std::string copy_of(const std::string &state)
{
    const uLong sum =
        crc32(0, reinterpret_cast<const Bytef *>(state.data()), static_cast<uInt>(state.size()));
    std::string copy = state + "VSKC";
    for (const int shift : {24, 16, 8, 0}) {
        copy += static_cast<char>(sum >> shift & 0xff);
    }
    return copy;
}

} // namespace

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

// ---- A medium that fails ----------------------------------------------------------------------

TEST_F(Start, AReadThatFailsIsToldAndChangesNothing)
{
    for (const int last : {2, 6, 10, 14}) {
        clear();
        start_with(last);
        const folder_content before = files();
        for (const auto how_long : {failing_call::once, failing_call::for_ever}) {
            int told = 0;
            for (int n = 1;; ++n) {
                owned_recorder recorder;
                bool happened = false;
                {
                    const failing_call failing(call_kind::read, n, how_long);
                    recorder = start();
                    happened = failing_call::happened();
                }
                if (!happened) {
                    EXPECT_TRUE(recorder);
                    EXPECT_LT(5, told);
                    break;
                }
                // Not all that is read is needed, the copy of the state for example.
                told += recorder ? 0 : 1;
                EXPECT_TRUE(recorder || qe_get_last_error() == QE_ERROR_IO ||
                            qe_get_last_error() == QE_ERROR_OPEN)
                    << n << " " << qe_get_last_error();
                EXPECT_EQ(before, files()) << n;
            }
        }
    }
}

TEST_F(Start, AReadThatASignalInterruptsIsRepeated)
{
    start_with(14);
    for (int n = 1; n <= 2; ++n) {
        const interrupted_read interrupted(n);
        EXPECT_TRUE(start());
        EXPECT_TRUE(interrupted_read::happened());
    }
    const owned_recorder recorder = start();
    write_all(recorder, 15, 16);
    for (int n = 1; n <= 2; ++n) {
        const interrupted_read interrupted(n);
        write_all(recorder, 13 + 4 * n, 16 + 4 * n);
    }
    write_all(recorder, 25, 40);
}

TEST_F(Start, ARotationThatCannotReadLeavesTheBoxAsItWas)
{
    for (const int full : {full_ccc, full_hcc}) {
        clear();
        const owned_recorder recorder = start_with(full);
        const folder_content before = files();
        for (int n = 1; n <= 2; ++n) {
            {
                const failing_call failing(call_kind::read, n);
                EXPECT_EQ(QE_ERROR_IO, write(recorder, full + 1)) << n;
            }
            EXPECT_EQ(before, files()) << full << " " << n;
        }
        write_all(recorder, full + 1, full + 20);
    }
}

// Whatever fails on the way to other files, the same recorder can write the vector again.
TEST_F(Start, ARotationThatFailsCanBeTriedAgain)
{
    for (const int full : {full_c00, full_cc0, full_ccc, full_hcc}) {
        clear();
        start_with(full);
        const folder_content before = files();
        int undone = 0;
        for (const call_kind kind : {call_kind::open, call_kind::write, call_kind::torn_write,
                                     call_kind::flush, call_kind::read}) {
            for (int n = 1;; ++n) {
                put_back(before);
                const owned_recorder recorder = start();
                const uint32_t number = recorder->next_file_number;
                int result = 0;
                {
                    const failing_call failing(kind, n);
                    result = write(recorder, full + 1);
                    if (!failing_call::happened()) {
                        break;
                    }
                }
                // Flushing a stream that has nothing to flush may fail.
                EXPECT_TRUE(result < 0 || kind == call_kind::flush) << n;
                // From then on it is a vector that failed as others do.
                if (recorder->next_file_number == number) {
                    EXPECT_EQ(before, files()) << static_cast<int>(kind) << " " << n;
                    write_all(recorder, full + 1, full + 12);
                    ++undone;
                }
            }
        }
        EXPECT_LT(0, undone);
    }
}

// Where the first history was made, other recorders end the process.
TEST_F(Start, AStateThatCannotBeSavedIsSavedBeforeTheNextVector)
{
    for (const int full : {full_c00, full_cc0, full_ccc, full_hcc}) {
        clear();
        int opened = 0;
        {
            const owned_recorder counted = start_with(full);
            const failing_call counting(call_kind::open, 0);
            EXPECT_EQ(0, write(counted, full + 1));
            // Buffers are opened before the state, which takes two calls.
            opened = failing_call::count(call_kind::open) - 1;
        }
        clear();
        const owned_recorder recorder = start_with(full);
        {
            const failing_call failing(call_kind::open, opened, failing_call::for_ever);
            EXPECT_EQ(QE_ERROR_OPEN, write(recorder, full + 1)) << full;
            EXPECT_TRUE(failing_call::happened());
            EXPECT_EQ(QE_ERROR_OPEN, write(recorder, full + 1)) << full;
            EXPECT_EQ(QE_ERROR_OPEN, write_event(recorder, full)) << full;
            EXPECT_EQ(QE_ERROR_OPEN, vesk_settle(recorder.get())) << full;
        }
        write_all(recorder, full + 1, full + 12);
        clear();
    }
}

// A state file of which only the end cannot be written: nobody else is told of that.
TEST_F(Start, EveryByteOfTheStateFileIsSavedOrTheVectorFails)
{
    for (const int full : {full_c00, full_cc0, full_ccc, full_hcc}) {
        int failed = 0;
        for (int n = 1; n <= 60; ++n) {
            clear();
            const owned_recorder recorder = start_with(full);
            const uint32_t number = recorder->next_file_number;
            const failing_call failing(call_kind::write, n);
            const int result = write(recorder, full + 1);
            if (result == 0 || recorder->next_file_number == number) {
                continue;
            }
            ++failed;
            if (write(recorder, full + 1) == 0) {
                const std::string state = read_file("r.state");
                EXPECT_EQ(0, vesk_backup_state(recorder.get()));
                EXPECT_EQ(read_file("r.state.bak"), copy_of(state)) << n;
            }
        }
        EXPECT_LT(8, failed);
    }
}

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
