// The state file of a recorder: what it says, and what is refused of one that is cut or changed.

#include "common/isolated.hpp"
#include "common/memory_streams.hpp"
#include "common/open_files.hpp"
#include "recorder/recorder_fixture.hpp"

namespace
{

// The result of reading a state file, and what became of the recorder.
class StateFile : public Recorder
{
protected:
    StateFile() : recorder_(vesk_create_null()) {}
    ~StateFile() override
    {
        if (recorder_->state != 0 && recorder_->stage == nullptr) {
            release_by_hand(recorder_.release());
        }
    }
    int read(const std::string &bytes)
    {
        memory_reader source(bytes);
        return binary_serializer_read_vesk(recorder_.get(), source.get());
    }
    // The counts as given and everything else right.
    static std::string with_counts(uint32_t samples, uint32_t intervals, uint32_t per_interval)
    {
        return "\1" + stored_string("r") + stored_string("r.state") + stored_u32(1) +
               stored_u32(samples) + stored_u32(intervals) + stored_u32(per_interval) +
               stored_u32(2) + "\1" + stored_string("r.1.cbuf.z");
    }

    owned_recorder recorder_;
};

} // namespace

TEST_F(StateFile, IsReadAsItWasWritten)
{
    create_with(14).reset();
    const std::string bytes = state();
    EXPECT_EQ(static_cast<int>(bytes.size()), read(bytes));
    memory_writer target;
    EXPECT_EQ(static_cast<int>(bytes.size()),
              binary_serializer_write_vesk(recorder_.get(), target.get()));
    EXPECT_EQ(bytes, target.bytes());
}

TEST_F(StateFile, NothingIsTheEnd)
{
    EXPECT_EQ(0, read(""));
}

TEST_F(StateFile, OtherVersionsGive12)
{
    EXPECT_EQ(-12, read(from_hex("02")));
    EXPECT_EQ(-12, read(from_hex("00")));
    EXPECT_EQ(nullptr, recorder_->filename);
}

TEST_F(StateFile, CountsHaveToFitTogether)
{
    for (const auto &counts : std::vector<std::vector<uint32_t>>{
             {0, 2, 0}, {5, 5, 1}, {4, 0, 2}, {6, 4, 1}, {4, 2, 1}, {4, 2, 0}, {4, 2, 3}}) {
        EXPECT_EQ(-6, read(with_counts(counts[0], counts[1], counts[2])));
    }
    EXPECT_STREQ("r", recorder_->filename) << "what was read stays";
    vesk *recorder = recorder_.get();
    EXPECT_ABORTS(vesk_close(&recorder), "(*vesk)->c00 != ((void *)0)");
}

TEST_F(StateFile, AnOddNumberOfIntervalsIsRead)
{
    owned_recorder(vesk_create("r", 6, 2)).reset();
    EXPECT_LT(0, read(with_counts(6, 3, 2)));
    EXPECT_EQ(3U, recorder_->num_hb_intervals);
}

TEST_F(StateFile, UnknownStatesGive6)
{
    for (const uint32_t unknown : {0U, 5U, UINT32_MAX}) {
        std::string bytes = stored_state(unknown, 2, {"r.1.cbuf.z"});
        EXPECT_EQ(-6, read(bytes)) << unknown;
        EXPECT_EQ(2U, recorder_->next_file_number) << "what was read stays";
    }
    vesk *recorder = recorder_.get();
    EXPECT_ABORTS(vesk_close(&recorder), "0");
    EXPECT_ABORTS(write(recorder_.get(), 1), "0");
    EXPECT_ABORTS(write_event(recorder_.get()), "0");
}

TEST_F(StateFile, ReadingReplacesWhatTheRecorderHolds)
{
    create_with(14).reset();
    const auto before = count_open_files();
    EXPECT_LT(0, read(state()));
    EXPECT_LT(0, read(state()));
    EXPECT_EQ(before + 1, count_open_files());
}

TEST_F(StateFile, OpeningReturnsARecorderThatWasRefused)
{
    write_file("r.state", with_counts(4, 2, 1));
    qe_set_last_error(0);
    vesk *recorder = vesk_open("r");
    ASSERT_NE(nullptr, recorder);
    EXPECT_EQ(-6, qe_get_last_error());
    EXPECT_EQ(1U, recorder->num_samples_per_interval);
    EXPECT_ABORTS(write(recorder, 1), "vesk->c00 != ((void *)0)");
    EXPECT_ABORTS(vesk_close(&recorder), "(*vesk)->c00 != ((void *)0)");
    release_by_hand(recorder);

    write_file("r.state", from_hex("02"));
    owned_recorder other_version(vesk_open("r"));
    ASSERT_TRUE(other_version);
    EXPECT_EQ(-12, qe_get_last_error());
    EXPECT_EQ(0U, other_version->state);
}

TEST_F(StateFile, WritingStopsAtTheFirstFailureBeforeTheNames)
{
    const owned_recorder recorder = create_with(14);
    const std::string bytes = state();
    const std::size_t stage = bytes.size() - (1 + 3 * (4 + 10));
    for (std::size_t room = 0; room < bytes.size(); ++room) {
        memory_writer target(room, -41);
        const int written = binary_serializer_write_vesk(recorder.get(), target.get());
        EXPECT_EQ(room <= stage ? -41 : static_cast<int>(stage), written) << room;
    }
}

TEST_F(StateFile, ARecorderWithoutAKnownStateIsNotWritten)
{
    memory_writer target;
    EXPECT_ABORTS(binary_serializer_write_vesk(recorder_.get(), target.get()), "0");
    recorder_->state = 5;
    EXPECT_ABORTS(binary_serializer_write_vesk(recorder_.get(), target.get()), "0");
    recorder_->state = 0;
}

namespace
{

// Where the parts of a state file begin that the code of a cut depends on.
struct state_layout {
    std::vector<std::size_t> strings; // the lengths of the strings
    std::size_t counts = 0;           // the state, the first number behind the names
    std::size_t stage = 0;

    explicit state_layout(const std::string &bytes)
    {
        std::size_t at = add_string(bytes, add_string(bytes, 1));
        counts = at;
        stage = at + 5 * 4;
        at = stage + 1;
        while (at < bytes.size()) {
            at = add_string(bytes, at);
        }
    }

private:
    std::size_t add_string(const std::string &bytes, std::size_t at)
    {
        strings.push_back(at);
        return at + 4 + static_cast<uint8_t>(bytes[at + 3]);
    }
};

} // namespace

TEST_F(StateFile, CutAnywhereGivesTheCodeOfThePlace)
{
    for (const int vectors : {1, 5, 9, 13}) {
        create_with(vectors).reset();
        const std::string bytes = state();
        const state_layout layout(bytes);
        for (std::size_t n = 0; n < bytes.size(); ++n) {
            write_file("r.state", bytes.substr(0, n));
            const auto is = [n](std::size_t place) { return place == n; };
            const auto &strings = layout.strings;
            if (std::any_of(strings.begin(), strings.end(),
                            [n](std::size_t length) { return length + 4 == n; })) {
                EXPECT_ABORTS(vesk_open("r"), "nread != 0");
                continue;
            }
            qe_set_last_error(0);
            vesk *recorder = vesk_open("r");
            if (n == 0) {
                EXPECT_EQ(nullptr, recorder);
                EXPECT_EQ(-48, qe_get_last_error());
                continue;
            }
            ASSERT_NE(nullptr, recorder);
            EXPECT_EQ(std::any_of(strings.begin(), strings.end(), is) ? -43 : -48,
                      qe_get_last_error())
                << n;
            if (n < layout.counts + 4) {
                EXPECT_EQ(0U, recorder->state);
                EXPECT_ABORTS(write(recorder, 1), "0");
                vesk_close(&recorder);
            } else if (n < layout.stage) {
                EXPECT_EQ(nullptr, recorder->stage);
                const char *const stages[] = {"c00", "cc0", "ccc", "hcc"};
                const std::string missing =
                    std::string(stages[recorder->state - 1]) + " != ((void *)0)";
                EXPECT_ABORTS(write(recorder, 1), "vesk->" + missing);
                EXPECT_ABORTS(vesk_close(&recorder), "(*vesk)->" + missing);
                release_by_hand(recorder);
            } else {
                EXPECT_NE(nullptr, recorder->stage);
                vesk_close(&recorder);
            }
        }
    }
}

TEST_F(StateFile, AnyChangedByteIsARecorderOrACodeOrAnAbort)
{
    for (const int vectors : {1, 5, 9, 13}) {
        create_with(vectors).reset();
        const std::string bytes = state();
        for (std::size_t i = 0; i < bytes.size(); ++i) {
            for (const int flip : {0x01, 0xFF}) {
                std::string bad = bytes;
                bad[i] = static_cast<char>(bad[i] ^ flip);
                write_file("r.state", bad);
                const isolated_run run([] {
                    vesk *recorder = vesk_open("r");
                    if (recorder != nullptr) {
                        vesk_close(&recorder);
                    }
                    return 0;
                });
                EXPECT_TRUE((run.exited() && run.code() == 0) || run.aborted())
                    << i << ' ' << flip << run.messages();
            }
        }
    }
}
