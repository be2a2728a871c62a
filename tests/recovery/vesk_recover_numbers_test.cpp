// The number of the next file: a recovery writes none that ends the box, whatever a state file or
// its copy says, and a box that comes near the end of the numbers gets low ones.
#include "common/failing_calls.hpp"
#include "recovery/recover_fixture.hpp"

namespace
{

// The offset of the number in a state file on the base name "r", whose names come last.
std::size_t number_offset(const std::string &bytes)
{
    const std::size_t last = bytes.find("r.state") + 7;
    return last + 4 * 4;
}

void set_number(const std::string &file, uint32_t number)
{
    std::string bytes = read_file(file);
    const std::size_t at = number_offset(bytes);
    for (int i = 0; i < 4; ++i) {
        bytes[at + static_cast<std::size_t>(i)] = static_cast<char>(number >> (24 - 8 * i));
    }
    write_file(file, bytes);
}

uint32_t next_number(const std::string &file)
{
    vesk_state_summary summary;
    EXPECT_EQ(0, vesk_scan_state(file.c_str(), &summary));
    const uint32_t number = summary.next_file_number;
    vesk_state_summary_destruct(&summary);
    return number;
}

constexpr uint32_t rotten_numbers[] = {0,          1,          5000,       0x7fffffff,
                                       0xfffffff0, 0xfffffffd, 0xfffffffe, 0xffffffff};

class RecoverNumbers : public Recover
{
protected:
    // A box in which `last` vectors were written, with a copy of its state as older releases wrote
    // it: without a checksum.
    static void make_box_with_copy(int last)
    {
        make_box(last);
        fs::copy_file("r.state", "r.state.bak", fs::copy_options::overwrite_existing);
    }

    // Recovers, and sees every vector go on through two full cycles of all stages.
    static void expect_to_live_on(int last)
    {
        vesk_recover_report report;
        ASSERT_EQ(0, vesk_recover("r", 4, 2, &report));
        ASSERT_EQ(0, vesk_recover("r", 0, 0, &report));
        EXPECT_EQ(0U, report.steps);
        qe_set_last_error(0);
        const owned_recorder recorder(vesk_open("r"));
        ASSERT_TRUE(recorder);
        ASSERT_EQ(0, qe_get_last_error());
        for (int i = last + 1; i <= last + 40; ++i) {
            write(recorder.get(), i);
        }
        EXPECT_EQ(last + 40, samples_in(recorder_file(recorder.get())).back());
    }

    static std::string recorder_file(const vesk *recorder)
    {
        switch (recorder->state) {
        case VESK_ZCF_STATE_C00:
            return vesk_zcf_state_c00_get_filename(recorder->c00);
        case VESK_ZCF_STATE_CC0:
            return vesk_zcf_state_cc0_get_cbuf1_filename(recorder->cc0);
        case VESK_ZCF_STATE_CCC:
            return vesk_zcf_state_ccc_get_cbuf2_filename(recorder->ccc);
        default:
            return vesk_zcf_state_hcc_get_cbuf2_filename(recorder->hcc);
        }
    }

    void clear()
    {
        for (const std::string &name : files()) {
            fs::remove(name);
        }
    }
};

TEST_F(RecoverNumbers, IgnoresTheNumberOfACopyBesideAWholeState)
{
    for (const int last : {2, 6, 10, 14, 18}) {
        for (const uint32_t rotten : rotten_numbers) {
            make_box_with_copy(last);
            const std::string state = read_file("r.state");
            set_number("r.state.bak", rotten);
            ASSERT_NO_FATAL_FAILURE(expect_to_live_on(last)) << last << " " << rotten;
            EXPECT_NE(state, read_file("r.state"));
            clear();
        }
    }
}

TEST_F(RecoverNumbers, DoesNotWriteToAHealthyBoxWithARottenCopy)
{
    for (const uint32_t rotten : rotten_numbers) {
        make_box_with_copy(14);
        const std::string state = read_file("r.state");
        set_number("r.state.bak", rotten);
        EXPECT_EQ(0U, recover().steps) << rotten;
        EXPECT_EQ(state, read_file("r.state"));
        clear();
    }
}

TEST_F(RecoverNumbers, TakesTheNumberOfTheFilesWhenTheOneOfTheStateIsFarFromThem)
{
    for (const int last : {2, 6, 10, 14, 18}) {
        make_box(last);
        const uint32_t right = next_number("r.state");
        for (const uint32_t rotten : rotten_numbers) {
            make_box(last);
            set_number("r.state", rotten);
            vesk_recover_report report;
            ASSERT_EQ(0, vesk_recover("r", 0, 0, &report));
            EXPECT_EQ(right, next_number("r.state")) << last << " " << rotten;
            ASSERT_NO_FATAL_FAILURE(expect_to_live_on(last)) << last << " " << rotten;
            clear();
        }
    }
}

TEST_F(RecoverNumbers, TakesTheNumberOfTheFilesWhenOnlyARottenCopyIsLeft)
{
    for (const int last : {2, 6, 10, 14, 18}) {
        make_box(last);
        const uint32_t right = next_number("r.state");
        for (const uint32_t rotten : rotten_numbers) {
            make_box_with_copy(last);
            set_number("r.state.bak", rotten);
            fs::resize_file("r.state", 20);
            vesk_recover_report report;
            ASSERT_EQ(0, vesk_recover("r", 4, 2, &report));
            EXPECT_EQ(right, next_number("r.state")) << last << " " << rotten;
            ASSERT_NO_FATAL_FAILURE(expect_to_live_on(last)) << last << " " << rotten;
            clear();
        }
    }
}

TEST_F(RecoverNumbers, KeepsANumberOfTheStateThatIsALittleAhead)
{
    make_box(14);
    const uint32_t right = next_number("r.state");
    set_number("r.state", right + 3);
    EXPECT_EQ(0U, recover().steps);
    EXPECT_EQ(right + 3, next_number("r.state"));
}

TEST_F(RecoverNumbers, IsNotLedToTheEndOfTheNumbersByAFileThatItKeeps)
{
    for (const char *stray : {"r.4294967295.cbuf.z", "r.4294967294.hbuf.z"}) {
        make_box(14);
        const std::string bytes =
            compressed_stream(stored_buffer_header(1, 4) + stored_names_record(500, {"a"}) +
                              stored_values_record(500, {1}));
        write_file(stray, bytes);
        ASSERT_NO_FATAL_FAILURE(expect_to_live_on(14)) << stray;
        EXPECT_EQ(bytes, read_file(stray));
        clear();
    }
}

// The files of a box with the numbers `first` and up, and its state.
std::string with_numbers(std::string text, uint32_t first, int files)
{
    for (int i = files; i >= 1; --i) {
        const std::string old = "r." + std::to_string(i) + ".";
        const std::string made = "r." + std::to_string(first + static_cast<uint32_t>(i) - 1) + ".";
        for (std::size_t at = text.find(old); at != std::string::npos;
             at = text.find(old, at + 1)) {
            text.replace(at, old.size(), made);
            const auto length = static_cast<unsigned char>(text[at - 1]);
            text[at - 1] = static_cast<char>(length + made.size() - old.size());
        }
    }
    return text;
}

class RecoverNearTheEnd : public RecoverNumbers
{
protected:
    // Moves the box up so that its highest file has the number `highest`.
    void move_up(uint32_t highest, int numbers)
    {
        const uint32_t first = highest - static_cast<uint32_t>(numbers) + 1;
        for (const std::string &name : files()) {
            if (name != "r.state") {
                fs::rename(name, with_numbers("x" + name, first, numbers).substr(1));
            }
        }
        write_file("r.state", with_numbers(read_file("r.state"), first, numbers));
        set_number("r.state", highest + 1);
    }
};

struct aged_box {
    int last;
    int numbers;
};
constexpr aged_box aged_boxes[] = {{2, 1}, {6, 2}, {10, 3}, {14, 5}};

TEST_F(RecoverNearTheEnd, GivesTheBoxLowNumbers)
{
    for (const aged_box &box : aged_boxes) {
        for (const uint32_t highest : {0xffffffffU, 0xfffffffeU, 0xfffffff0U, 0xfffff000U}) {
            SCOPED_TRACE(std::to_string(box.last) + " " + std::to_string(highest));
            make_box(box.last);
            move_up(highest, box.numbers);
            const vesk_recover_report report = recover();
            EXPECT_GT(report.steps, 0U);
            EXPECT_LT(next_number("r.state"), 10U);
            ASSERT_NO_FATAL_FAILURE(expect_to_live_on(box.last));
            for (const std::string &name : files()) {
                EXPECT_LT(name.size(), 16U) << name;
            }
            clear();
        }
    }
}

TEST_F(RecoverNearTheEnd, KeepsTheBoxWholeWhereverItIsKilled)
{
    for (const aged_box &box : aged_boxes) {
        for (const call_kind kind : {call_kind::rename, call_kind::sync, call_kind::open,
                                     call_kind::write, call_kind::remove}) {
            for (int n = 1;; ++n) {
                SCOPED_TRACE(std::to_string(box.last) + " kind " +
                             std::to_string(static_cast<int>(kind)) + " call " + std::to_string(n));
                make_box(box.last);
                move_up(0xfffffffe, box.numbers);
                vesk_recover_report before;
                EXPECT_EQ(0, vesk_recover_plan("r", 0, 0, nullptr, nullptr, &before));
                bool happened = false;
                {
                    const failing_call failing(kind, n, failing_call::for_ever);
                    (void)vesk_recover("r", 0, 0, nullptr);
                    happened = failing_call::happened();
                }
                vesk_recover_report report;
                ASSERT_EQ(0, vesk_recover("r", 0, 0, &report));
                EXPECT_EQ(before.samples_kept, report.samples_kept);
                EXPECT_EQ(before.intervals_kept, report.intervals_kept);
                EXPECT_EQ(0U, report.files_kept);
                ASSERT_NO_FATAL_FAILURE(expect_to_live_on(box.last));
                clear();
                if (!happened) {
                    break;
                }
            }
        }
    }
}

TEST_F(RecoverNearTheEnd, LosesNothingWhenTheStateIsLostHalfwayToo)
{
    for (const aged_box &box : aged_boxes) {
        for (int n = 1; n <= 3; ++n) {
            SCOPED_TRACE(std::to_string(box.last) + " link " + std::to_string(n));
            make_box(box.last);
            move_up(0xfffffffe, box.numbers);
            vesk_recover_report before;
            EXPECT_EQ(0, vesk_recover_plan("r", 0, 0, nullptr, nullptr, &before));
            {
                const failing_call failing(call_kind::rename, n, failing_call::for_ever);
                (void)vesk_recover("r", 0, 0, nullptr);
            }
            fs::resize_file("r.state", 12);
            vesk_recover_report report;
            ASSERT_EQ(0, vesk_recover("r", 4, 2, &report));
            EXPECT_EQ(before.samples_kept, report.samples_kept);
            EXPECT_EQ(before.intervals_kept, report.intervals_kept);
            ASSERT_NO_FATAL_FAILURE(expect_to_live_on(box.last));
            clear();
        }
    }
}

TEST_F(RecoverNumbers, BelievesNoNameOfACopyWhoseChecksumIsWrong)
{
    make_box(4);
    {
        const owned_recorder recorder(vesk_open("r"));
        ASSERT_EQ(0, vesk_backup_state(recorder.get()));
    }
    const std::string copy = read_file("r.state.bak");
    fs::remove("r.state");
    EXPECT_EQ(VESK_RECOVER_FROM_BACKUP, recover().source);
    const std::string good = read_file("r.state");
    for (std::size_t i = 0; i < copy.size(); ++i) {
        std::string changed = copy;
        changed[i] = static_cast<char>(changed[i] ^ 0x11);
        write_file("r.state.bak", changed);
        fs::remove("r.state");
        vesk_recover_report report;
        ASSERT_EQ(0, vesk_recover("r", 4, 2, &report)) << i;
        EXPECT_EQ(VESK_RECOVER_FROM_BUFFERS, report.source) << i;
        EXPECT_EQ(good, read_file("r.state")) << i;
    }
}

} // namespace
