#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <vesk/error.h>
#include <vesk/vesk.h>

#include "common/aborts.hpp"
#include "common/buffer_files.hpp"
#include "common/failing_calls.hpp"
#include "common/file_size_limit.hpp"
#include "common/isolated.hpp"
#include "common/matrices.hpp"
#include "common/memory_streams.hpp"
#include "common/open_files.hpp"
#include "common/telemetry.hpp"
#include "common/temporary_directory.hpp"
#include "common/zlib_streams.hpp"

namespace
{

namespace fs = std::filesystem;

using owned_recorder = owned<vesk, vesk_close>;
using names = std::set<std::string>;

// The smallest recorder that has every stage: 4 vectors a buffer, 2 intervals of 2 vectors each.
// The number of the first vector of each stage:
constexpr int first_in_cc0 = 5;
constexpr int first_in_ccc = 9;
constexpr int first_in_hcc = 13;
constexpr int first_after_hcc = 17;

// Recorders on the base name "r" in a folder of their own, which is the working folder.
class Recorder : public testing::Test
{
protected:
    Recorder() : working_folder_(fs::current_path()) { fs::current_path(folder_.path()); }
    ~Recorder() override { fs::current_path(working_folder_); }

    static owned_recorder create() { return owned_recorder(vesk_create("r", 4, 2)); }
    static owned_recorder open() { return owned_recorder(vesk_open("r")); }

    // Vector number i has the time 1000 + i and the value i.
    static int write(vesk *recorder, int i)
    {
        const owned_matrix vector = make_vector(1000 + i, {{"a", static_cast<double>(i)}});
        return vesk_write_telemetry_vector(recorder, vector.get());
    }
    // Writes the vectors `from` to `to`, both included.
    static void write_all(vesk *recorder, int from, int to)
    {
        for (int i = from; i <= to; ++i) {
            ASSERT_EQ(0, write(recorder, i)) << i;
        }
    }
    // A recorder with the vectors 1 to `last`.
    static owned_recorder create_with(int last)
    {
        owned_recorder recorder = create();
        write_all(recorder.get(), 1, last);
        return recorder;
    }
    static int write_event(vesk *recorder, uint32_t type = 3)
    {
        const owned_event event = make_event(type, 1000, "text");
        return vesk_write_event(recorder, event.get());
    }

    static int write_tagged(vesk *recorder, uint32_t type, int i, const std::string &text = "text")
    {
        const owned_event event = make_event(type, 1000 + i, text);
        return vesk_write_tagged_event(recorder, event.get());
    }

    names files() const { return folder_.names(); }
    static std::string state() { return read_file("r.state"); }
    // What a buffer contains, however it was cut into streams.
    static std::string content(const std::string &name)
    {
        std::string all;
        for (const std::string &part : zlib_contents(read_file(name))) {
            all += part;
        }
        return all;
    }

    temporary_directory folder_;

private:
    fs::path working_folder_;
};

std::string stored_sample(int i)
{
    return stored_values_record(static_cast<uint32_t>(1000 + i), {static_cast<float>(i)});
}

// What a closed current buffer with the vectors `from` to `to` contains.
std::string stored_cbuf(int from, int to)
{
    std::string content =
        stored_buffer_header(1, 4) + stored_names_record(static_cast<uint32_t>(1000 + from), {"a"});
    for (int i = from; i <= to; ++i) {
        content += stored_sample(i);
    }
    return content;
}

// The interval of the vectors `from` to `to`.
std::string stored_interval(int from, int to)
{
    std::vector<float> samples;
    for (int i = from; i <= to; ++i) {
        samples.push_back(static_cast<float>(i));
    }
    return stored_interval_record(static_cast<uint32_t>(1000 + from),
                                  static_cast<uint32_t>(1000 + to), {stored_summary(samples)});
}

std::string stored_hbuf_head()
{
    return stored_buffer_header(2, 4) + stored_names_record(1001, {"a"});
}

// A state file on base name "r".
std::string stored_state(uint32_t stage, uint32_t next_file_number,
                         const std::vector<std::string> &buffers)
{
    std::string bytes = "\1" + stored_string("r") + stored_string("r.state") + stored_u32(stage) +
                        stored_u32(4) + stored_u32(2) + stored_u32(2) +
                        stored_u32(next_file_number) + "\1";
    for (const std::string &name : buffers) {
        bytes += stored_string(name);
    }
    return bytes;
}

// What recorders that vesk_close() refuses leave: they were read without their stage.
void release_by_hand(vesk *recorder)
{
    free(recorder->filename);
    free(recorder->state_filename);
    free(recorder);
}

} // namespace

// ---- Creating ---------------------------------------------------------------------------------

TEST_F(Recorder, CreatesItsStateFileAndItsFirstBuffer)
{
    const owned_recorder recorder = create();
    ASSERT_TRUE(recorder);
    EXPECT_EQ((names{"r.state", "r.1.cbuf.z"}), files());
    EXPECT_EQ(1, recorder->version);
    EXPECT_STREQ("r", recorder->filename);
    EXPECT_STREQ("r.state", recorder->state_filename);
    EXPECT_EQ(1U, recorder->state);
    EXPECT_EQ(4U, recorder->num_cb_samples);
    EXPECT_EQ(2U, recorder->num_hb_intervals);
    EXPECT_EQ(2U, recorder->num_samples_per_interval);
    EXPECT_EQ(2U, recorder->next_file_number);
    EXPECT_STREQ("r.1.cbuf.z", vesk_zcf_state_c00_get_filename(recorder->c00));
}

TEST_F(Recorder, RequiresANameAndSizesThatFit)
{
    EXPECT_ABORTS(vesk_create(nullptr, 4, 2), "filename != ((void *)0)");
    EXPECT_ABORTS(vesk_create("", 4, 2), "filename[0] != 0");
    EXPECT_ABORTS(vesk_create("r", 0, 0), "num_cb_samples > 0");
    EXPECT_ABORTS(vesk_create("r", 4, 0), "num_hb_intervals > 0");
    EXPECT_ABORTS(vesk_create("r", 6, 4), "num_cb_samples % num_hb_intervals == 0");
    EXPECT_ABORTS(vesk_create("r", 5, 5), "num_cb_samples % 2 == 0");
    EXPECT_ABORTS(vesk_create("r", 6, 3), "num_hb_intervals % 2 == 0");
    const owned_recorder recorder(vesk_create("r", 6, 2));
    ASSERT_TRUE(recorder);
    EXPECT_EQ(3U, recorder->num_samples_per_interval);
}

TEST_F(Recorder, NullRecorderIsLiveAndEmpty)
{
    const owned_recorder recorder(vesk_create_null());
    ASSERT_TRUE(recorder);
    EXPECT_EQ(1, recorder->version);
    EXPECT_EQ(nullptr, recorder->filename);
    EXPECT_EQ(nullptr, recorder->state_filename);
    EXPECT_EQ(0U, recorder->state);
    EXPECT_EQ(0U, recorder->next_file_number);
    EXPECT_EQ(nullptr, recorder->stage);
}

TEST_F(Recorder, CreatingOverAnOldRecorderReplacesItButForItsOtherBuffers)
{
    create_with(first_in_cc0);
    const owned_recorder recorder = create();
    EXPECT_EQ((names{"r.state", "r.1.cbuf.z", "r.2.cbuf.z"}), files());
    EXPECT_EQ("", read_file("r.1.cbuf.z"));
    EXPECT_EQ(stored_state(1, 2, {"r.1.cbuf.z"}), state());
}

TEST_F(Recorder, CreatingInAMissingFolderGives40)
{
    qe_set_last_error(0);
    EXPECT_EQ(nullptr, vesk_create("missing/r", 4, 2));
    EXPECT_EQ(-40, qe_get_last_error());
    EXPECT_EQ(nullptr, vesk_create(std::string(20000, 'r').c_str(), 4, 2));
    EXPECT_EQ(-40, qe_get_last_error());
    EXPECT_EQ(names{}, files());
}

TEST_F(Recorder, AStateFileThatCannotBeMadeLeavesTheFirstBuffer)
{
    const auto before = count_open_files();
    fs::create_directory("r.state");
    qe_set_last_error(0);
    EXPECT_FALSE(create());
    EXPECT_EQ(-40, qe_get_last_error());
    EXPECT_EQ(stored_buffer_header(1, 4), content("r.1.cbuf.z"));

    fs::remove("r.state");
    fs::create_symlink("/dev/full", "r.state");
    EXPECT_FALSE(create());
    EXPECT_EQ(-41, qe_get_last_error());
    EXPECT_EQ(before, count_open_files());
}

TEST_F(Recorder, CreatingWithoutMemoryLeavesNothingInMemory)
{
    const auto before = count_open_files();
    for (int n = 1;; ++n) {
        qe_set_last_error(0);
        const failing_allocation failing(n);
        owned_recorder recorder = create();
        if (!failing_allocation::happened()) {
            EXPECT_TRUE(recorder);
            EXPECT_LT(5, n);
            break;
        }
        EXPECT_FALSE(recorder) << n;
        EXPECT_EQ(-22, qe_get_last_error()) << n;
        EXPECT_EQ(before, count_open_files()) << n;
    }
}

TEST_F(Recorder, NamesOfBuffersAreCutAt1023Bytes)
{
    std::string base;
    for (int i = 0; i < 507; ++i) {
        base += "./";
    }
    base += "r";
    const owned_recorder recorder(vesk_create(base.c_str(), 4, 2));
    ASSERT_TRUE(recorder);
    EXPECT_EQ((names{"r.state", "r.1.cbuf."}), files());
}

// ---- Rotation ---------------------------------------------------------------------------------

TEST_F(Recorder, FilesFollowTheNumberOfVectors)
{
    const owned_recorder recorder = create();
    for (int i = 1; i <= 24; ++i) {
        ASSERT_EQ(0, write(recorder.get(), i));
        names expected = {"r.state"};
        if (i < first_in_hcc) {
            expected.insert("r.1.cbuf.z");
            if (i >= first_in_cc0) {
                expected.insert("r.2.cbuf.z");
            }
            if (i >= first_in_ccc) {
                expected.insert("r.3.cbuf.z");
            }
        } else if (i < first_after_hcc) {
            expected.insert({"r.4.hbuf.z", "r.3.cbuf.z", "r.5.cbuf.z"});
        } else if (i < 21) {
            expected.insert({"r.6.hbuf.z", "r.5.cbuf.z", "r.7.cbuf.z"});
        } else {
            expected.insert({"r.8.hbuf.z", "r.7.cbuf.z", "r.9.cbuf.z"});
        }
        EXPECT_EQ(expected, files()) << i;
    }
}

TEST_F(Recorder, TheStateFileNamesTheBuffersOfEachStage)
{
    const owned_recorder recorder = create();
    const std::string head = "01  00000001 72  00000007 722E7374617465";
    const std::string sizes = "00000004 00000002 00000002";
    EXPECT_EQ(
        from_hex(head + "00000001" + sizes + "00000002" + "01  0000000A 722E312E636275662E7A"),
        state());
    write_all(recorder.get(), 1, first_in_cc0);
    EXPECT_EQ(from_hex(head + "00000002" + sizes + "00000003" +
                       "01  0000000A 722E312E636275662E7A  0000000A 722E322E636275662E7A"),
              state());
    write_all(recorder.get(), first_in_cc0 + 1, first_in_ccc);
    EXPECT_EQ(from_hex(head + "00000003" + sizes + "00000004" +
                       "01  0000000A 722E312E636275662E7A  0000000A 722E322E636275662E7A"
                       "    0000000A 722E332E636275662E7A"),
              state());
    write_all(recorder.get(), first_in_ccc + 1, first_in_hcc);
    EXPECT_EQ(from_hex(head + "00000004" + sizes + "00000006" +
                       "01  0000000A 722E342E686275662E7A  0000000A 722E332E636275662E7A"
                       "    0000000A 722E352E636275662E7A"),
              state());
    write_all(recorder.get(), first_in_hcc + 1, first_after_hcc);
    EXPECT_EQ(from_hex(head + "00000004" + sizes + "00000008" +
                       "01  0000000A 722E362E686275662E7A  0000000A 722E352E636275662E7A"
                       "    0000000A 722E372E636275662E7A"),
              state());
}

TEST_F(Recorder, WritesTheStateFileOnlyWhenTheStageChanges)
{
    const owned_recorder recorder = create();
    fs::remove("r.state");
    write_all(recorder.get(), 1, 4);
    EXPECT_FALSE(fs::exists("r.state"));
    ASSERT_EQ(0, write(recorder.get(), 5));
    EXPECT_TRUE(fs::exists("r.state"));
}

TEST_F(Recorder, ClosingDoesNotWriteTheStateFile)
{
    owned_recorder recorder = create();
    fs::remove("r.state");
    recorder.reset();
    EXPECT_FALSE(fs::exists("r.state"));
}

TEST_F(Recorder, SummarisesTheOldestBuffersWhenTheThirdIsFull)
{
    owned_recorder recorder = create_with(first_in_hcc);
    EXPECT_EQ(stored_hbuf_head() + stored_interval(1, 2) + stored_interval(3, 4) +
                  stored_interval(5, 6) + stored_interval(7, 8),
              content("r.4.hbuf.z"));
    EXPECT_EQ(stored_cbuf(9, 12), content("r.3.cbuf.z"));
    recorder.reset();
    EXPECT_EQ(stored_cbuf(13, 13), content("r.5.cbuf.z"));
}

TEST_F(Recorder, HalvesTheOldHistoryAtEachLaterRotation)
{
    owned_recorder recorder = create_with(first_after_hcc);
    EXPECT_EQ(stored_hbuf_head() + stored_interval(1, 4) + stored_interval(5, 8) +
                  stored_interval(9, 10) + stored_interval(11, 12),
              content("r.6.hbuf.z"));
    write_all(recorder.get(), first_after_hcc + 1, 21);
    EXPECT_EQ(stored_hbuf_head() + stored_interval(1, 8) + stored_interval(9, 12) +
                  stored_interval(13, 14) + stored_interval(15, 16),
              content("r.8.hbuf.z"));
}

TEST_F(Recorder, ContinuesAfterEveryVectorAsIfItHadNotStopped)
{
    constexpr int last = 26;
    for (int stop = 0; stop <= last; ++stop) {
        create_with(stop).reset();
        owned_recorder recorder = open();
        ASSERT_TRUE(recorder) << stop;
        write_all(recorder.get(), stop + 1, last);
        recorder.reset();
        EXPECT_EQ((names{"r.state", "r.10.hbuf.z", "r.9.cbuf.z", "r.11.cbuf.z"}), files()) << stop;
        EXPECT_EQ(stored_state(4, 12, {"r.10.hbuf.z", "r.9.cbuf.z", "r.11.cbuf.z"}), state());
        EXPECT_EQ(stored_hbuf_head() + stored_interval(1, 12) + stored_interval(13, 16) +
                      stored_interval(17, 18) + stored_interval(19, 20),
                  content("r.10.hbuf.z"))
            << stop;
        EXPECT_EQ(stored_cbuf(21, 24), content("r.9.cbuf.z")) << stop;
        EXPECT_EQ(stored_cbuf(25, 26), content("r.11.cbuf.z")) << stop;
        for (const std::string &name : files()) {
            fs::remove(name);
        }
    }
}

TEST_F(Recorder, ReopeningAndClosingChangesNoByte)
{
    for (const int vectors : {0, 3, 4, 6, 10, 14, 18}) {
        create_with(vectors).reset();
        std::vector<std::string> before;
        for (const std::string &name : files()) {
            before.push_back(read_file(name));
        }
        open().reset();
        std::vector<std::string> after;
        for (const std::string &name : files()) {
            after.push_back(read_file(name));
            fs::remove(name);
        }
        EXPECT_EQ(before, after) << vectors;
    }
}

TEST_F(Recorder, AReopenedFullBufferMovesOnAtOnce)
{
    create_with(8).reset();
    owned_recorder recorder = open();
    EXPECT_EQ(2U, recorder->state);
    ASSERT_EQ(0, write(recorder.get(), 9));
    EXPECT_EQ(3U, recorder->state);
    EXPECT_STREQ("r.3.cbuf.z", vesk_zcf_state_ccc_get_cbuf2_filename(recorder->ccc));
}

TEST_F(Recorder, KeepsOneBufferOpenAndNothingElse)
{
    const auto before = count_open_files();
    owned_recorder recorder = create();
    for (int i = 1; i <= 22; ++i) {
        ASSERT_EQ(0, write(recorder.get(), i));
        EXPECT_EQ(before + 1, count_open_files()) << i;
    }
    recorder.reset();
    EXPECT_EQ(before, count_open_files());
}

TEST_F(Recorder, BuffersOfSixVectorsMakeIntervalsOfThree)
{
    const owned_recorder recorder(vesk_create("r", 6, 2));
    write_all(recorder.get(), 1, 19);
    EXPECT_EQ(stored_hbuf_head() + stored_interval(1, 3) + stored_interval(4, 6) +
                  stored_interval(7, 9) + stored_interval(10, 12),
              content("r.4.hbuf.z"));
}

TEST_F(Recorder, SensorsMayComeAndGo)
{
    const owned_recorder recorder = create();
    for (int i = 1; i <= 40; ++i) {
        std::vector<reading> readings = {{"a", static_cast<double>(i)}};
        if (i % 3 == 0) {
            readings.push_back({"b", 1.0});
        }
        const owned_matrix vector = make_vector(1000 + i, readings);
        ASSERT_EQ(0, vesk_write_telemetry_vector(recorder.get(), vector.get())) << i;
    }
    EXPECT_EQ(4U, files().size());
}

// ---- Events -----------------------------------------------------------------------------------

TEST_F(Recorder, EventsGoToTheOpenBufferAndNeverRotate)
{
    owned_recorder recorder = create_with(4);
    EXPECT_EQ(0, write_event(recorder.get()));
    EXPECT_EQ(0, write_event(recorder.get()));
    EXPECT_EQ(1U, recorder->state);
    recorder.reset();
    EXPECT_EQ(stored_cbuf(1, 4) + stored_event_body(3, 1000, "text") +
                  stored_event_body(3, 1000, "text"),
              content("r.1.cbuf.z"));
}

TEST_F(Recorder, EventsAreTakenInEveryStage)
{
    for (const int vectors : {1, 5, 9, 13}) {
        owned_recorder recorder = create_with(vectors);
        EXPECT_EQ(0, write_event(recorder.get())) << vectors;
    }
}

TEST_F(Recorder, ATextThatIsTooLongIsRefused)
{
    const owned_recorder recorder = create();
    const owned_event event = make_event(3, 1000, std::string(10001, 'x'));
    EXPECT_EQ(-49, vesk_write_event(recorder.get(), event.get()));
}

TEST_F(Recorder, AnEventKeepsItsBufferFromBeingSummarised)
{
    owned_recorder recorder = create_with(2);
    EXPECT_EQ(0, write_event(recorder.get()));
    write_all(recorder.get(), 3, 12);
    const std::string before = state();
    EXPECT_EQ(-6, write(recorder.get(), 13));
    EXPECT_EQ(-6, write(recorder.get(), 13));
    EXPECT_EQ(3U, recorder->state);
    EXPECT_EQ(
        (names{"r.state", "r.1.cbuf.z", "r.2.cbuf.z", "r.3.cbuf.z", "r.4.hbuf.z", "r.5.hbuf.z"}),
        files())
        << "each attempt leaves a history behind, and no buffer is lost";
    EXPECT_EQ(before, state());
    EXPECT_EQ(stored_hbuf_head() + stored_interval(1, 2), content("r.5.hbuf.z"));
}

TEST_F(Recorder, ARestartDoesNotHelpASummaryThatFails)
{
    owned_recorder recorder = create_with(2);
    EXPECT_EQ(0, write_event(recorder.get()));
    write_all(recorder.get(), 3, 12);
    EXPECT_EQ(-6, write(recorder.get(), 13));
    recorder.reset();
    recorder.reset(vesk_open("r"));
    EXPECT_EQ(-6, write(recorder.get(), 13));
    EXPECT_EQ((names{"r.state", "r.1.cbuf.z", "r.2.cbuf.z", "r.3.cbuf.z", "r.4.hbuf.z"}), files())
        << "numbers count from the state file again";
}

TEST_F(Recorder, AnEventInTheSecondStretchStopsTheLaterRotation)
{
    const owned_recorder recorder = create_with(first_in_hcc);
    EXPECT_EQ(0, write_event(recorder.get()));
    write_all(recorder.get(), 14, 20);
    for (int attempt = 0; attempt < 3; ++attempt) {
        EXPECT_EQ(-6, write(recorder.get(), 21));
    }
    EXPECT_EQ((names{"r.state", "r.6.hbuf.z", "r.5.cbuf.z", "r.7.cbuf.z", "r.8.hbuf.z",
                     "r.9.hbuf.z", "r.10.hbuf.z"}),
              files());
    EXPECT_EQ(4U, recorder->state);
}

TEST_F(Recorder, ARecorderWhoseOpenBufferHasAnEventOpensOnlyInPart)
{
    owned_recorder recorder = create_with(2);
    EXPECT_EQ(0, write_event(recorder.get()));
    recorder.reset();
    qe_set_last_error(0);
    const owned_recorder in_part = open();
    ASSERT_TRUE(in_part);
    EXPECT_EQ(-6, qe_get_last_error());
    EXPECT_EQ(1U, in_part->state);
    EXPECT_ABORTS(write(in_part.get(), 3), "cbuf0 != ((void *)0)");
    EXPECT_ABORTS(write_event(in_part.get()), "cbuf0 != ((void *)0)");
}

TEST_F(Recorder, TaggedEventsAreTakenInEveryStageAndNeverRotate)
{
    for (const int vectors : {1, 4, 5, 8, 9, 12, 13, 16, 17, 20}) {
        owned_recorder recorder = create_with(vectors);
        const std::string before = state();
        EXPECT_EQ(0, write_tagged(recorder.get(), 1, vectors)) << vectors;
        EXPECT_EQ(before, state()) << vectors;
        recorder.reset();
        qe_set_last_error(0);
        recorder = open();
        EXPECT_EQ(0, qe_get_last_error()) << vectors;
        EXPECT_EQ(0, write_tagged(recorder.get(), 1, vectors)) << vectors;
        write_all(recorder.get(), vectors + 1, vectors + 13);
    }
}

TEST_F(Recorder, TaggedEventsAreCountedThroughTheRotations)
{
    owned_recorder recorder = create();
    for (int i = 1; i <= first_in_hcc; ++i) {
        EXPECT_EQ(0, write(recorder.get(), i));
        // Types 1 to 5 in turn, each behind a vector.
        EXPECT_EQ(0, write_tagged(recorder.get(), static_cast<uint32_t>((i - 1) % 5 + 1), i)) << i;
    }
    // An event behind the second vector of an interval belongs to the next interval of its buffer,
    // and behind the last vector there is none.
    const auto interval = [](int from, const event_counts &events) {
        return stored_interval_record(
            static_cast<uint32_t>(1000 + from), static_cast<uint32_t>(1000 + from + 1),
            {stored_summary({static_cast<float>(from), static_cast<float>(from + 1)})}, events);
    };
    EXPECT_EQ(stored_hbuf_head() + interval(1, {.type1 = 1}) +
                  interval(3, {.type2 = 1, .type3 = 1}) + interval(5, {.type5 = 1}) +
                  interval(7, {.type1 = 1, .type2 = 1}),
              content("r.4.hbuf.z"));
    write_all(recorder.get(), 14, first_after_hcc);
    const std::string history = content("r.6.hbuf.z");
    // The first two intervals have become one, with the events of both.
    const std::string merged_events =
        "\1" + stored_u32(1) + stored_u32(0) + stored_u32(1) + stored_u32(1) + stored_u32(0);
    EXPECT_NE(std::string::npos, history.find(merged_events));
    write_all(recorder.get(), first_after_hcc + 1, 60);
}

TEST_F(Recorder, ATaggedEventNeedsAVectorBeforeIt)
{
    owned_recorder recorder = create();
    EXPECT_EQ(-4, write_tagged(recorder.get(), 1, 0));
    recorder.reset();
    recorder = open();
    EXPECT_EQ(-4, write_tagged(recorder.get(), 1, 0));
    write_all(recorder.get(), 1, 1);
    EXPECT_EQ(0, write_tagged(recorder.get(), 1, 1));
    recorder.reset();
    EXPECT_EQ(stored_buffer_header(1, 4) + stored_names_record(1001, {"a"}) + stored_sample(1) +
                  stored_event_record(1, 1001, "text"),
              content("r.1.cbuf.z"));
}

TEST_F(Recorder, ATaggedEventThatCouldNotBeReadIsRefused)
{
    owned_recorder recorder = create_with(1);
    const std::string before = read_file("r.1.cbuf.z");
    EXPECT_EQ(-6, write_tagged(recorder.get(), 6, 1));
    EXPECT_EQ(-6, write_tagged(recorder.get(), 1, -1000));
    EXPECT_EQ(-6, write_tagged(recorder.get(), 1, 1, ""));
    EXPECT_EQ(-49, write_tagged(recorder.get(), 1, 1, std::string(10001, 'x')));
    recorder.reset();
    EXPECT_EQ(before, read_file("r.1.cbuf.z"));
}

TEST_F(Recorder, ATaggedEventThatDoesNotReachTheFileIsAFailure)
{
    owned_recorder recorder = create_with(2);
    {
        const file_size_limit full(static_cast<std::size_t>(fs::file_size("r.1.cbuf.z")));
        EXPECT_EQ(-41, write_tagged(recorder.get(), 1, 2));
    }
    EXPECT_EQ(0, write_tagged(recorder.get(), 1, 2));
    write_all(recorder.get(), 3, 20);
}

TEST_F(Recorder, ATaggedEventNeedsItsBuffer)
{
    owned_recorder recorder = create_with(2);
    EXPECT_EQ(0, write_event(recorder.get()));
    recorder.reset();
    const owned_recorder in_part = open();
    EXPECT_ABORTS(write_tagged(in_part.get(), 1, 1), "cbuf != ((void *)0)");
    EXPECT_ABORTS(vesk_sync(in_part.get()), "cbuf != ((void *)0)");
}

// ---- Opening ----------------------------------------------------------------------------------

TEST_F(Recorder, OpeningRequiresAName)
{
    EXPECT_ABORTS(vesk_open(nullptr), "filename != ((void *)0)");
    EXPECT_ABORTS(vesk_open(""), "filename[0] != 0");
}

TEST_F(Recorder, WithoutAStateFileNothingIsOpened)
{
    qe_set_last_error(0);
    EXPECT_FALSE(open());
    EXPECT_EQ(-40, qe_get_last_error());
    write_file("r.state", "");
    EXPECT_FALSE(open());
    EXPECT_EQ(-48, qe_get_last_error());
    fs::remove("r.state");
    fs::create_directory("r.state");
    EXPECT_FALSE(open());
    EXPECT_EQ(-48, qe_get_last_error()) << "a folder has no bytes";
}

TEST_F(Recorder, OpeningReadsEverythingBack)
{
    create_with(14).reset();
    const owned_recorder recorder = open();
    ASSERT_TRUE(recorder);
    EXPECT_STREQ("r", recorder->filename);
    EXPECT_STREQ("r.state", recorder->state_filename);
    EXPECT_EQ(4U, recorder->state);
    EXPECT_EQ(4U, recorder->num_cb_samples);
    EXPECT_EQ(2U, recorder->num_hb_intervals);
    EXPECT_EQ(2U, recorder->num_samples_per_interval);
    EXPECT_EQ(6U, recorder->next_file_number);
    EXPECT_STREQ("r.4.hbuf.z", vesk_zcf_state_hcc_get_hbuf_filename(recorder->hcc));
    EXPECT_STREQ("r.3.cbuf.z", vesk_zcf_state_hcc_get_cbuf1_filename(recorder->hcc));
    EXPECT_STREQ("r.5.cbuf.z", vesk_zcf_state_hcc_get_cbuf2_filename(recorder->hcc));
}

TEST_F(Recorder, TheNamesInTheStateFileCount)
{
    create_with(2).reset();
    fs::rename("r.state", "moved.state");
    const owned_recorder recorder(vesk_open("moved"));
    ASSERT_TRUE(recorder);
    EXPECT_STREQ("r", recorder->filename);
    write_all(recorder.get(), 3, 5);
    EXPECT_EQ((names{"moved.state", "r.state", "r.1.cbuf.z", "r.2.cbuf.z"}), files());
}

TEST_F(Recorder, OpeningWithoutMemoryFailsOrTells)
{
    create_with(2).reset();
    const auto before = count_open_files();
    for (int n = 1;; ++n) {
        qe_set_last_error(0);
        const failing_allocation failing(n);
        owned_recorder recorder = open();
        if (!failing_allocation::happened()) {
            EXPECT_TRUE(recorder);
            EXPECT_EQ(0, qe_get_last_error());
            break;
        }
        EXPECT_GT(0, qe_get_last_error()) << n;
        // Without a stage, vesk_close() refuses.
        if (recorder && recorder->state != 0 && recorder->stage == nullptr) {
            release_by_hand(recorder.release());
        }
        recorder.reset();
        EXPECT_EQ(before, count_open_files()) << n;
    }
}

TEST_F(Recorder, AMissingOpenBufferIsToldByTheCellAlone)
{
    create_with(14).reset();
    fs::remove("r.5.cbuf.z");
    qe_set_last_error(0);
    const owned_recorder recorder = open();
    ASSERT_TRUE(recorder);
    EXPECT_EQ(-40, qe_get_last_error());
    EXPECT_STREQ("r.4.hbuf.z", recorder->hcc->hbuf_filename);
    EXPECT_STREQ("r.3.cbuf.z", recorder->hcc->cbuf1_filename);
    EXPECT_EQ(nullptr, recorder->hcc->cbuf2);
    EXPECT_ABORTS(write(recorder.get(), 15), "cbuf2 != ((void *)0)");
}

TEST_F(Recorder, AProcessKilledBeforeTheFirstVectorLeavesAnEmptyBuffer)
{
    create().reset();
    write_file("r.1.cbuf.z", "");
    qe_set_last_error(0);
    const owned_recorder recorder = open();
    ASSERT_TRUE(recorder);
    EXPECT_EQ(-48, qe_get_last_error());
    EXPECT_ABORTS(write(recorder.get(), 1), "cbuf0 != ((void *)0)");
}

// ---- The state file ---------------------------------------------------------------------------

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

// ---- Failed transitions -----------------------------------------------------------------------

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
    EXPECT_EQ((names{"r.state", "r.8.hbuf.z", "r.7.cbuf.z", "r.9.cbuf.z"}), files());
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
    EXPECT_EQ((names{"r.state", "r.8.hbuf.z", "r.7.cbuf.z", "r.9.cbuf.z"}), files());
}

TEST_F(Recorder, AHistoryThatCannotBeMadeCostsOnlyItsNumber)
{
    const owned_recorder recorder = create_with(12);
    block("r.4.hbuf.z");
    EXPECT_EQ(-40, write(recorder.get(), 13));
    EXPECT_EQ(3U, recorder->state);
    ASSERT_EQ(0, write(recorder.get(), 13));
    unblock("r.4.hbuf.z");
    EXPECT_EQ((names{"r.state", "r.5.hbuf.z", "r.3.cbuf.z", "r.6.cbuf.z"}), files());
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
    EXPECT_EQ((names{"r.state", "r.1.cbuf.z", "r.2.cbuf.z", "r.3.cbuf.z", "r.4.hbuf.z",
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
    EXPECT_EQ((names{"r.state", "r.4.hbuf.z", "r.3.cbuf.z", "r.5.cbuf.z", "r.6.hbuf.z"}), files());
}

TEST_F(Recorder, AFailureInTheLastStageIsRetried)
{
    const owned_recorder recorder = create_with(16);
    block("r.7.cbuf.z");
    EXPECT_EQ(-40, write(recorder.get(), 17));
    EXPECT_EQ(4U, recorder->state);
    ASSERT_EQ(0, write(recorder.get(), 17));
    unblock("r.7.cbuf.z");
    EXPECT_EQ((names{"r.state", "r.6.hbuf.z", "r.8.hbuf.z", "r.5.cbuf.z", "r.9.cbuf.z"}), files());
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
        (names{"r.state", "r.4.hbuf.z", "r.5.hbuf.z", "r.6.hbuf.z", "r.3.cbuf.z", "r.7.cbuf.z"}),
        files());
}

TEST_F(Recorder, AHistoryThatIsGoneStopsTheRotation)
{
    const owned_recorder recorder = create_with(16);
    fs::rename("r.4.hbuf.z", "away");
    EXPECT_EQ(-40, write(recorder.get(), 17));
    fs::rename("away", "r.4.hbuf.z");
    ASSERT_EQ(0, write(recorder.get(), 17));
    EXPECT_EQ((names{"r.state", "r.6.hbuf.z", "r.7.hbuf.z", "r.5.cbuf.z", "r.8.cbuf.z"}), files());
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
        (names{"r.state", "r.1.cbuf.z", "r.2.cbuf.z", "r.3.cbuf.z", "r.4.hbuf.z", "r.5.cbuf.z"}),
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
        (names{"r.state", "r.3.cbuf.z", "r.4.hbuf.z", "r.5.cbuf.z", "r.6.hbuf.z", "r.7.cbuf.z"}),
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
    EXPECT_EQ((names{"r.state", "r.4.hbuf.z", "r.3.cbuf.z", "r.5.cbuf.z"}), files());
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
            const names files_before = files();
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

// ---- Durability -------------------------------------------------------------------------------

TEST_F(Recorder, SyncsItsBuffersItsStateAndItsFolder)
{
    // The open buffer, the state file and the folder, and the full ones.
    const std::vector<std::pair<int, int>> stages = {
        {1, 3}, {first_in_cc0, 4}, {first_in_ccc, 5}, {first_in_hcc, 5}, {first_after_hcc, 5}};
    for (const auto &[vectors, syncs] : stages) {
        const owned_recorder recorder = create_with(vectors);
        const auto open_files = count_open_files();
        const names before = files();
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

// ---- Preconditions ----------------------------------------------------------------------------

TEST_F(Recorder, RequiresALiveRecorderAndSomethingToWrite)
{
    const owned_recorder recorder = create();
    vesk dead = {};
    const owned_event event = make_event(3, 1000, "text");
    const char *const null = "vesk != ((void *)0)";
    const char *const version = "vesk->version == ((char) 1)";
    EXPECT_ABORTS(write(nullptr, 1), null);
    EXPECT_ABORTS(write(&dead, 1), version);
    EXPECT_ABORTS(vesk_write_telemetry_vector(recorder.get(), nullptr), "vector != ((void *)0)");
    EXPECT_ABORTS(vesk_write_event(nullptr, event.get()), null);
    EXPECT_ABORTS(vesk_write_event(&dead, event.get()), version);
    EXPECT_ABORTS(vesk_write_event(recorder.get(), nullptr), "event != ((void *)0)");
    EXPECT_ABORTS(vesk_write_tagged_event(nullptr, event.get()), null);
    EXPECT_ABORTS(vesk_write_tagged_event(&dead, event.get()), version);
    EXPECT_ABORTS(vesk_write_tagged_event(recorder.get(), nullptr), "event != ((void *)0)");
    EXPECT_ABORTS(vesk_sync(nullptr), null);
    EXPECT_ABORTS(vesk_sync(&dead), version);
    EXPECT_ABORTS(vesk_backup_state(nullptr), null);
    EXPECT_ABORTS(vesk_backup_state(&dead), version);
    const vesk_cb_record_event dead_event = {};
    EXPECT_ABORTS(vesk_write_tagged_event(recorder.get(), &dead_event),
                  "event->version == ((char) 1)");
    memory_writer target;
    memory_reader source("");
    EXPECT_ABORTS(binary_serializer_write_vesk(nullptr, target.get()), null);
    EXPECT_ABORTS(binary_serializer_write_vesk(&dead, target.get()), version);
    EXPECT_ABORTS(binary_serializer_write_vesk(recorder.get(), nullptr), "writer != ((void *)0)");
    EXPECT_ABORTS(binary_serializer_read_vesk(nullptr, source.get()), null);
    EXPECT_ABORTS(binary_serializer_read_vesk(&dead, source.get()), version);
    EXPECT_ABORTS(binary_serializer_read_vesk(recorder.get(), nullptr), "reader != ((void *)0)");
}

TEST_F(Recorder, AVectorHasOneRow)
{
    const owned_recorder recorder = create();
    const owned_matrix plain = make_matrix({{1}});
    EXPECT_ABORTS(vesk_write_telemetry_vector(recorder.get(), plain.get()),
                  "m->type == MATRIX_TYPE_TELEMETRY");
    const owned_matrix two_rows = make_telemetry({{1}, {2}}, {"a"}, {1000, 1001});
    EXPECT_ABORTS(vesk_write_telemetry_vector(recorder.get(), two_rows.get()),
                  "matrix_get_number_rows (vector) == 1");
}

TEST_F(Recorder, CloseRequiresALiveRecorder)
{
    vesk *none = nullptr;
    vesk dead = {};
    vesk *dead_pointer = &dead;
    EXPECT_ABORTS(vesk_close(nullptr), "vesk != ((void *)0)");
    EXPECT_ABORTS(vesk_close(&none), "(*vesk) != ((void *)0)");
    EXPECT_ABORTS(vesk_close(&dead_pointer), "(*vesk)->version == ((char) 1)");
}

TEST_F(Recorder, CloseSetsThePointerToNull)
{
    vesk *recorder = create().release();
    vesk_close(&recorder);
    EXPECT_EQ(nullptr, recorder);
}

TEST_F(Recorder, AStateRequiresItsStage)
{
    vesk *recorder = vesk_create_null();
    memory_writer target;
    const char *const stages[] = {"c00", "cc0", "ccc", "hcc"};
    recorder->filename = strdup("r");
    recorder->state_filename = strdup("r.state");
    for (uint32_t i = 0; i < 4; ++i) {
        recorder->state = i + 1;
        const std::string missing = std::string(stages[i]) + " != ((void *)0)";
        EXPECT_ABORTS(write(recorder, 1), "vesk->" + missing);
        EXPECT_ABORTS(write_event(recorder), "vesk->" + missing);
        EXPECT_ABORTS(write_tagged(recorder, 1, 1), "vesk->" + missing);
        EXPECT_ABORTS(vesk_sync(recorder), "vesk->" + missing);
        EXPECT_ABORTS(vesk_backup_state(recorder), "vesk->" + missing);
        EXPECT_ABORTS(binary_serializer_write_vesk(recorder, target.get()), "vesk->" + missing);
        EXPECT_ABORTS(vesk_close(&recorder), "(*vesk)->" + missing);
    }
    recorder->state = 0;
    EXPECT_ABORTS(write(recorder, 1), "0");
    EXPECT_ABORTS(write_event(recorder), "0");
    EXPECT_ABORTS(write_tagged(recorder, 1, 1), "0");
    EXPECT_ABORTS(vesk_sync(recorder), "0");
    EXPECT_ABORTS(vesk_backup_state(recorder), "0");
    vesk_close(&recorder);
}

TEST_F(Recorder, TakesAStageThatIsPutIntoIt)
{
    owned_recorder recorder(vesk_create_null());
    recorder->filename = strdup("r");
    recorder->state_filename = strdup("r.state");
    recorder->state = 1;
    recorder->num_cb_samples = 2;
    recorder->num_hb_intervals = 2;
    recorder->num_samples_per_interval = 1;
    recorder->next_file_number = 2;
    recorder->c00 = vesk_zcf_state_c00_create("r.1.cbuf.z", 2);
    write_all(recorder.get(), 1, 3);
    EXPECT_EQ(2U, recorder->state);
}

TEST_F(Recorder, TheFirstHistoryRequiresItsSizes)
{
    const owned_recorder recorder = create_with(12);
    recorder->num_hb_intervals = 0;
    EXPECT_ABORTS(write(recorder.get(), 13), "vesk->num_hb_intervals > 0");
    recorder->num_hb_intervals = 0x80000000;
    EXPECT_ABORTS(write(recorder.get(), 13), "max_data_records != 0");
    recorder->num_hb_intervals = 2;
    recorder->num_samples_per_interval = 0;
    EXPECT_ABORTS(write(recorder.get(), 13), "vesk->num_samples_per_interval > 0");
}

TEST_F(Recorder, ANewHistoryNeverOverwritesTheOld)
{
    const owned_recorder recorder = create_with(16);
    recorder->next_file_number = 4;
    EXPECT_ABORTS(write(recorder.get(), 17), "strcmp (hbuf0_filename, hbuf_filename) != 0");
}
