// Working ahead for the next rotation: the files are those that they are without it, nobody sees
// what is prepared, and whatever goes wrong with it, the rotation does its work itself.
#include <limits>
#include <utility>

#include <vesk/vesk_prepare.h>

#include "common/open_files.hpp"
#include "start/start_fixture.hpp"

namespace
{

constexpr uint32_t one_step = 1;
constexpr uint32_t all_steps = 60000000;

class Prepare : public Start
{
protected:
    // Sensors come and go, readings are missing, and there are events.
    static void write_sample(const owned_recorder &recorder, int i)
    {
        const double value = i % 7 == 0 ? std::numeric_limits<double>::quiet_NaN() : i * 1.25;
        const auto vector = i % 11 < 6 ? make_vector(1000 + i, {{"a", value}, {"b", -value}})
                                       : make_vector(1000 + i, {{"b", value}, {"c", 3.0}});
        ASSERT_EQ(0, vesk_write_telemetry_vector(recorder.get(), vector.get())) << i;
        if (i % 3 == 0) {
            ASSERT_EQ(0, write_event(recorder, i));
        }
        ASSERT_EQ(0, vesk_settle(recorder.get()));
    }

    // A recorder behind the last vector before a rotation, with all of that prepared.
    static owned_recorder prepared(int full)
    {
        owned_recorder recorder = start_with(full);
        EXPECT_EQ(0, vesk_prepare(recorder.get(), all_steps, 0));
        return recorder;
    }

    // What is in the files when the vectors up to `last` are written without working ahead.
    folder_content files_without(int last)
    {
        clear();
        const owned_recorder recorder = start_with(last);
        folder_content content = files();
        clear();
        return content;
    }
};

TEST_F(Prepare, TheFilesAreTheSameAtEachMoment)
{
    constexpr int samples = 60;
    std::vector<folder_content> without;
    {
        const owned_recorder recorder = start();
        for (int i = 1; i <= samples; ++i) {
            write_sample(recorder, i);
            without.push_back(files());
        }
    }
    for (const int slices : {1, 2, 3, 5, 50}) {
        clear();
        const owned_recorder recorder = start();
        for (int i = 1; i <= samples; ++i) {
            write_sample(recorder, i);
            for (int slice = 0; slice < slices; ++slice) {
                ASSERT_LE(0, vesk_prepare(recorder.get(), one_step, 0));
            }
            ASSERT_EQ(without[static_cast<std::size_t>(i) - 1], files()) << i << " " << slices;
        }
    }
}

// The second of the first two buffers is summarised as if there had been none before it: its
// sensors come in the order in which it has them, which shows among names of one hash.
TEST_F(Prepare, EachBufferHasAnOrderOfItsOwn)
{
    std::vector<folder_content> found;
    for (const bool prepares : {false, true}) {
        clear();
        const owned_recorder recorder = start();
        for (int i = 1; i <= full_ccc; ++i) {
            const auto vector = i <= full_c00 ? make_vector(1000 + i, {{"ab", 1}, {"ba", 2}})
                                              : make_vector(1000 + i, {{"ba", 2}, {"ab", 1}});
            ASSERT_EQ(0, vesk_write_telemetry_vector(recorder.get(), vector.get()));
        }
        ASSERT_EQ(0, prepares ? vesk_prepare(recorder.get(), all_steps, 0) : 0);
        ASSERT_EQ(0, write(recorder, full_ccc + 1));
        ASSERT_EQ(0, vesk_settle(recorder.get()));
        found.push_back(files());
    }
    EXPECT_EQ(found[0], found[1]);
}

// A first buffer that loses its last sample under the recorder ends within an interval, and nothing
// of that comes into the first interval of the second one.
TEST_F(Prepare, AnUnfinishedIntervalStaysAlone)
{
    std::vector<folder_content> found;
    for (const bool prepares : {false, true}) {
        clear();
        const owned_recorder recorder = start_with(full_ccc);
        std::string bytes = read_file("r.1.cbuf.z");
        bytes.resize(bytes.rfind("\x78\x9c"));
        write_file("r.1.cbuf.z", bytes);
        ASSERT_EQ(0, prepares ? vesk_prepare(recorder.get(), all_steps, 0) : 0);
        write_all(recorder, full_ccc + 1, full_ccc + 1);
        found.push_back(files());
    }
    EXPECT_EQ(1U, found[0].count("r.4.hbuf.z"));
    EXPECT_EQ(found[0], found[1]);
}

TEST_F(Prepare, TellsHowFarItIs)
{
    const owned_recorder recorder = start();
    for (int i = 1; i <= full_cc0; ++i) {
        EXPECT_EQ(0, vesk_prepare(recorder.get(), 0, 0)) << i;
        write_all(recorder, i, i);
    }
    write_all(recorder, full_cc0 + 1, full_cc0 + 1);
    EXPECT_EQ(1, vesk_prepare(recorder.get(), 0, 0));
    int steps = 0;
    while (vesk_prepare(recorder.get(), one_step, 0) == 1) {
        ASSERT_GT(100, ++steps);
    }
    EXPECT_LT(2, steps);
    EXPECT_EQ(0, vesk_prepare(recorder.get(), 0, 0));
}

TEST_F(Prepare, TheRotationReadsAndCompressesNothingMore)
{
    for (const int full : {full_ccc, full_hcc, full_hcc + 4}) {
        clear();
        const owned_recorder recorder = prepared(full);
        const failing_call counting(call_kind::read, 0);
        EXPECT_EQ(0, write(recorder, full + 1));
        EXPECT_EQ(0, failing_call::count(call_kind::read)) << full;
        EXPECT_EQ(1, failing_call::count(call_kind::zlib)) << "the first vector of a buffer";
        EXPECT_EQ(1, vesk_prepare(recorder.get(), 0, 0)) << "the one after it";
    }
}

TEST_F(Prepare, NobodySeesWhatIsPrepared)
{
    const owned_recorder recorder = start_with(full_hcc - 1);
    const folder_content before = files();
    const auto open_files = count_open_files();
    while (vesk_prepare(recorder.get(), one_step, 0) == 1) {
        EXPECT_EQ(before, files());
        EXPECT_GE(open_files + 3, count_open_files());
    }
    EXPECT_EQ(before, files());
    EXPECT_EQ(open_files + 1, count_open_files());
    write_all(recorder, full_hcc, full_hcc + 1);
    EXPECT_EQ(open_files, count_open_files());
}

TEST_F(Prepare, ARecorderThatIsClosedTakesItAlong)
{
    const auto open_files = count_open_files();
    const auto blocks = count_live_blocks();
    for (const int steps : {1, 2, 3, 5, 9, 20}) {
        owned_recorder recorder = start_with(full_hcc);
        for (int step = 0; step < steps; ++step) {
            EXPECT_LE(0, vesk_prepare(recorder.get(), one_step, 0));
        }
        recorder.reset();
        EXPECT_EQ(open_files, count_open_files()) << steps;
        EXPECT_EQ(blocks, count_live_blocks()) << steps;
        clear();
    }
}

TEST_F(Prepare, WhatWasReadMustBeThereUnchanged)
{
    const folder_content wanted = files_without(full_hcc + 1);
    for (const char *changed : {"r.4.hbuf.z", "r.3.cbuf.z"}) {
        const owned_recorder recorder = prepared(full_hcc);
        // The same bytes in another file.
        fs::copy_file(changed, "other");
        fs::rename("other", changed);
        const failing_call counting(call_kind::read, 0);
        EXPECT_EQ(0, write(recorder, full_hcc + 1));
        EXPECT_LT(0, failing_call::count(call_kind::read)) << changed;
        EXPECT_EQ(0, vesk_settle(recorder.get()));
        EXPECT_EQ(wanted, files()) << changed;
        clear();
    }
}

TEST_F(Prepare, ANameThatIsTakenIsTakenAsWithout)
{
    const folder_content wanted = files_without(full_hcc + 1);
    const owned_recorder recorder = prepared(full_hcc);
    write_file("r.6.hbuf.z", "an older file");
    EXPECT_EQ(0, write(recorder, full_hcc + 1));
    EXPECT_EQ(0, vesk_settle(recorder.get()));
    EXPECT_EQ(wanted, files());
    clear();

    const owned_recorder other = prepared(full_hcc);
    fs::create_directory("r.6.hbuf.z");
    EXPECT_EQ(QE_ERROR_OPEN, write(other, full_hcc + 1));
    fs::remove("r.6.hbuf.z");
    write_all(other, full_hcc + 1, full_hcc + 1);
    EXPECT_EQ(wanted, files());
}

// Whatever call of it fails, the recorder goes on, and its files are those of always.
TEST_F(Prepare, AFailureIsToldOnceAndCostsNothing)
{
    const folder_content wanted = files_without(full_hcc + 6);
    constexpr std::pair<call_kind, std::vector<int> (*)()> kinds[] = {
        {call_kind::allocation,
         [] {
             return std::vector<int>{-22, -40, -41, -42};
         }},
        {call_kind::zlib,
         [] {
             return std::vector<int>{QE_ERROR_IO, QE_ERROR_COMPRESSION};
         }},
        {call_kind::open, [] { return std::vector<int>{QE_ERROR_OPEN}; }},
        {call_kind::read, [] { return std::vector<int>{QE_ERROR_IO}; }},
        {call_kind::write, [] { return std::vector<int>{QE_ERROR_IO}; }},
        {call_kind::torn_write, [] { return std::vector<int>{QE_ERROR_IO}; }},
        {call_kind::flush, [] { return std::vector<int>{QE_ERROR_IO}; }},
        {call_kind::sync, [] { return std::vector<int>{QE_ERROR_IO}; }},
    };
    for (const auto &[kind, codes] : kinds) {
        int told = 0;
        for (int n = 1;; ++n) {
            clear();
            const owned_recorder recorder = start_with(full_hcc);
            bool happened = false;
            {
                const failing_call failing(kind, n);
                int result = 1;
                while (result == 1) {
                    result = vesk_prepare(recorder.get(), one_step, 0);
                }
                happened = failing_call::happened();
                if (result < 0) {
                    ++told;
                    EXPECT_THAT(codes(), testing::Contains(result)) << n;
                    const int reads = failing_call::count(call_kind::read);
                    // Without memory to begin with, nothing has begun.
                    const bool begun = kind != call_kind::allocation || n > 1;
                    EXPECT_EQ(begun ? result : 1, vesk_prepare(recorder.get(), 0, 0));
                    EXPECT_EQ(reads, failing_call::count(call_kind::read)) << "it has given up";
                }
            }
            write_all(recorder, full_hcc + 1, full_hcc + 6);
            ASSERT_EQ(wanted, files()) << static_cast<int>(kind) << " " << n;
            EXPECT_EQ(1, vesk_prepare(recorder.get(), 0, 0)) << "the next rotation is another one";
            if (!happened) {
                break;
            }
        }
        EXPECT_LT(0, told) << static_cast<int>(kind);
    }
}

// The rotation itself may fail as it may without what was prepared, and can be tried again.
TEST_F(Prepare, ARotationThatFailsCanBeTriedAgain)
{
    const folder_content wanted = files_without(full_hcc + 6);
    for (const call_kind kind :
         {call_kind::open, call_kind::rename, call_kind::sync, call_kind::remove}) {
        int failed = 0;
        bool happened = true;
        for (int n = 1; happened; ++n) {
            clear();
            const owned_recorder recorder = prepared(full_hcc);
            const auto vector = make_vector(1000 + full_hcc + 1, {{"a", full_hcc + 1.0}});
            int result = 0;
            {
                const failing_call failing(kind, n);
                result = vesk_write_telemetry_vector(recorder.get(), vector.get());
                happened = failing_call::happened();
            }
            failed += happened ? 1 : 0;
            const int first = result < 0 ? full_hcc + 1 : full_hcc + 2;
            ASSERT_EQ(0, vesk_settle(recorder.get()));
            write_all(recorder, first, full_hcc + 6);
            ASSERT_EQ(wanted, files()) << static_cast<int>(kind) << " " << n << " " << result;
        }
        EXPECT_LE(kind == call_kind::remove ? 0 : 1, failed) << static_cast<int>(kind);
    }
}

TEST_F(Prepare, AFullDiskGetsTheRoomBack)
{
    const owned_recorder recorder = prepared(full_hcc - 1);
    const auto open_files = count_open_files();
    {
        const failing_call failing(call_kind::write, 1, failing_call::for_ever);
        EXPECT_EQ(QE_ERROR_IO, write(recorder, full_hcc));
    }
    EXPECT_EQ(open_files - 1, count_open_files());
    EXPECT_EQ(1, vesk_prepare(recorder.get(), 0, 0)) << "it begins again";
}

TEST_F(Prepare, WhereTheFolderTakesNoFileItLiesInMemory)
{
    const folder_content wanted = files_without(full_hcc + 6);
    const owned_recorder recorder = start_with(full_hcc);
    {
        // The first file that is made is the one in the folder.
        const failing_call failing(call_kind::open, 1);
        EXPECT_EQ(0, vesk_prepare(recorder.get(), all_steps, 100000));
        EXPECT_TRUE(failing_call::happened());
    }
    const failing_call counting(call_kind::zlib, 0);
    EXPECT_EQ(0, write(recorder, full_hcc + 1));
    EXPECT_EQ(1, failing_call::count(call_kind::zlib)) << "the first vector of a buffer";
    EXPECT_EQ(0, vesk_settle(recorder.get()));
    write_all(recorder, full_hcc + 2, full_hcc + 6);
    EXPECT_EQ(wanted, files());
}

TEST_F(Prepare, MemoryHasItsLimit)
{
    for (const std::size_t memory : {0U, 10U, 150U}) {
        clear();
        const owned_recorder recorder = start_with(full_hcc);
        const failing_call failing(call_kind::open, 1);
        EXPECT_EQ(memory == 0 ? QE_ERROR_OPEN : QE_ERROR_NO_MEMORY,
                  vesk_prepare(recorder.get(), all_steps, memory));
    }
}

TEST_F(Prepare, DamagedFilesGiveTheCodeOfTheRotation)
{
    for (const char *damaged : {"r.4.hbuf.z", "r.3.cbuf.z"}) {
        clear();
        const owned_recorder recorder = start_with(full_hcc);
        std::string bytes = read_file(damaged);
        bytes[bytes.size() / 2] = static_cast<char>(~bytes[bytes.size() / 2]);
        write_file(damaged, bytes);
        const int result = vesk_prepare(recorder.get(), all_steps, 0);
        EXPECT_GT(0, result) << damaged;
        EXPECT_EQ(result, write(recorder, full_hcc + 1)) << damaged;
    }
}

// What no recorder writes but a stranger may: a rotation that has to take it aborts.
TEST_F(Prepare, ContentThatEndsARotationGivesACode)
{
    const owned_recorder timeless = start_with(1);
    const owned_matrix vector = make_vector(1002, {{"a", 1}});
    timestamp none;
    timestamp_init_null(&none);
    ASSERT_EQ(0, telemetry_matrix_update_vector_timestamp(vector.get(), &none));
    ASSERT_EQ(0, vesk_write_telemetry_vector(timeless.get(), vector.get()));
    write_all(timeless, 3, full_ccc);
    EXPECT_EQ(QE_ERROR_MALFORMED, vesk_prepare(timeless.get(), all_steps, 0));
    EXPECT_ABORTS(write(timeless, full_ccc + 1), "!timestamp_is_null (&state->end)");
}

TEST_F(Prepare, LeavesRecordersAloneThatWereNotStarted)
{
    vesk *recorder = vesk_create("r", 4, 2);
    EXPECT_EQ(QE_ERROR_WRONG_KIND, vesk_prepare(recorder, all_steps, 0));
    vesk_close(&recorder);
}

TEST_F(Prepare, AbortsWithoutARecorder)
{
    EXPECT_ABORTS(vesk_prepare(nullptr, 0, 0), "vesk != ((void *)0)");
    vesk dead = {};
    EXPECT_ABORTS(vesk_prepare(&dead, 0, 0), "vesk->version == ((char) 1)");
}

} // namespace
