// Recorders on a medium that fails: a failed read is told and changes nothing, what fails on the
// way to other files can be tried again, and a state that was not saved is saved before the next
// vector.
#include "start/start_fixture.hpp"

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
