// Scanning a state file: as much of it is told as is there, and no buffer is looked at.
#include <cstring>
#include <sys/stat.h>

#include "common/failing_calls.hpp"
#include "common/open_files.hpp"
#include "recovery/scan_fixture.hpp"

namespace
{

// A summary that frees itself. It is not initialised by anybody but the scan.
class owned_summary
{
public:
    explicit owned_summary(const std::string &bytes)
    {
        write_file("r.state", bytes);
        memset(static_cast<void *>(&summary_), 0xee, sizeof summary_);
        EXPECT_EQ(vesk_scan_state("r.state", &summary_), summary_.error);
    }
    owned_summary(const owned_summary &) = delete;
    owned_summary &operator=(const owned_summary &) = delete;
    ~owned_summary() { vesk_state_summary_destruct(&summary_); }

    const vesk_state_summary *operator->() const { return &summary_; }
    lines names() const { return {summary_.names, summary_.names + summary_.num_names}; }

private:
    vesk_state_summary summary_;
};

class ScanState : public ScanTest
{
protected:
    static int error_of(const std::string &bytes) { return owned_summary(bytes)->error; }
};

TEST_F(ScanState, SaysWhatItHolds)
{
    const lines all = {"r.1.cbuf.z", "r.2.cbuf.z", "r.3.cbuf.z"};
    for (const uint32_t state : {1U, 2U, 3U, 4U}) {
        state_form form;
        form.state = state;
        form.names = state == 4 ? three_names : lines(all.begin(), all.begin() + state);
        const owned_summary summary(form.bytes());
        EXPECT_EQ(0, summary->error);
        EXPECT_EQ(form.bytes().size(), summary->size);
        EXPECT_EQ(7 + form.names.size(), summary->fields);
        EXPECT_STREQ("r", summary->filename);
        EXPECT_STREQ("r.state", summary->state_filename);
        EXPECT_EQ(state, summary->state);
        EXPECT_EQ(4U, summary->num_cb_samples);
        EXPECT_EQ(2U, summary->num_hb_intervals);
        EXPECT_EQ(2U, summary->num_samples_per_interval);
        EXPECT_EQ(9U, summary->next_file_number);
        EXPECT_EQ(form.names, summary.names());
        for (uint32_t i = summary->num_names; i < 3; ++i) {
            EXPECT_EQ(nullptr, summary->names[i]);
        }
    }
}

TEST_F(ScanState, AgreesWithTheRecorder)
{
    owned<vesk, vesk_close> recorder(vesk_create("r", 4, 2));
    for (int i = 1; i <= 14; ++i) {
        const owned_matrix vector = make_vector(1000 + i, {{"a", i * 1.0}});
        ASSERT_EQ(0, vesk_write_telemetry_vector(recorder.get(), vector.get()));
    }
    const owned_summary summary(read_file("r.state"));
    EXPECT_EQ(0, summary->error);
    EXPECT_EQ(static_cast<uint32_t>(VESK_ZCF_STATE_HCC), summary->state);
    EXPECT_EQ(6U, summary->next_file_number);
    EXPECT_EQ((lines{"r.4.hbuf.z", "r.3.cbuf.z", "r.5.cbuf.z"}), summary.names());
}

TEST_F(ScanState, SaysHowMuchOfACutFileIsThere)
{
    const state_form form = hcc_state();
    const std::string bytes = form.bytes();
    const lines fields = form.fields();
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        // The version behind the numbers is no field, but there was a place for it.
        uint32_t whole = 0;
        for (std::size_t end = 0; whole < fields.size(); ++whole) {
            end += fields[whole].size();
            if (end - (whole == 6 ? 1 : 0) > size) {
                break;
            }
        }
        const owned_summary summary(bytes.substr(0, size));
        EXPECT_EQ(QE_ERROR_TRUNCATED, summary->error) << size;
        EXPECT_EQ(size, summary->size);
        EXPECT_EQ(whole, summary->fields) << size;
        EXPECT_EQ(whole > 0, summary->filename != nullptr);
        EXPECT_EQ(whole > 1, summary->state_filename != nullptr);
        EXPECT_EQ(whole > 2 ? 4U : 0U, summary->state);
        EXPECT_EQ(whole > 3 ? 4U : 0U, summary->num_cb_samples);
        EXPECT_EQ(whole > 4 ? 2U : 0U, summary->num_hb_intervals);
        EXPECT_EQ(whole > 5 ? 2U : 0U, summary->num_samples_per_interval);
        EXPECT_EQ(whole > 6 ? 9U : 0U, summary->next_file_number);
        const uint32_t names = whole > 7 ? whole - 7 : 0;
        EXPECT_EQ(lines(three_names.begin(), three_names.begin() + names), summary.names());
    }
}

TEST_F(ScanState, IgnoresWhatFollows)
{
    EXPECT_EQ(0, error_of(hcc_state().bytes() + "more"));
}

TEST_F(ScanState, ReadsNoMoreThanAnyStateFileHas)
{
    state_form form = hcc_state();
    form.base = std::string(VESK_MAX_COUNT - 6, 'r');
    form.names = lines(3, std::string(VESK_MAX_COUNT, 'n'));
    const std::string longest = form.bytes();
    const owned_summary summary(longest + std::string(std::size_t{1} << 20U, 'x'));
    EXPECT_EQ(0, summary->error);
    EXPECT_EQ(form.names, summary.names());
    EXPECT_LE(longest.size(), summary->size);
    EXPECT_GT(longest.size() + 20000, summary->size);
}

TEST_F(ScanState, RefusesOtherVersions)
{
    std::string bytes = hcc_state().bytes();
    bytes[0] = 2;
    EXPECT_EQ(QE_ERROR_BAD_VERSION, error_of(bytes));
    bytes = hcc_state().bytes();
    const std::size_t body = 1 + 5 + 11 + 5 * 4;
    ASSERT_EQ(1, bytes[body]);
    bytes[body] = 0;
    const owned_summary summary(bytes);
    EXPECT_EQ(QE_ERROR_BAD_VERSION, summary->error);
    EXPECT_EQ(7U, summary->fields);
    EXPECT_EQ(0U, summary->num_names);
}

TEST_F(ScanState, RefusesNumbersThatNoRecorderHas)
{
    struct numbers {
        uint32_t state, samples, intervals, samples_per_interval;
    };
    for (const numbers &n : std::vector<numbers>{{0, 4, 2, 2},
                                                 {5, 4, 2, 2},
                                                 {1, 0, 2, 0},
                                                 {1, 5, 5, 1},
                                                 {1, 4, 0, 2},
                                                 {1, 4, 3, 1},
                                                 {1, 4, 8, 0},
                                                 {1, 4, 2, 1},
                                                 {1, 4, 2, 3}}) {
        state_form form;
        form.state = n.state;
        form.samples = n.samples;
        form.intervals = n.intervals;
        form.samples_per_interval = n.samples_per_interval;
        const owned_summary summary(form.bytes());
        EXPECT_EQ(QE_ERROR_MALFORMED, summary->error)
            << n.state << " " << n.samples << " " << n.intervals;
        // They are told all the same.
        EXPECT_EQ(7U, summary->fields);
        EXPECT_EQ(n.samples, summary->num_cb_samples);
        EXPECT_EQ(0U, summary->num_names);
    }
    // An odd number of intervals is none of them.
    state_form odd;
    odd.samples = 6;
    odd.intervals = 3;
    EXPECT_EQ(0, error_of(odd.bytes()));
}

TEST_F(ScanState, RefusesStringsThatAreNone)
{
    state_form form;
    form.base = "";
    EXPECT_EQ(QE_ERROR_MALFORMED, error_of(form.bytes()));
    form.base = std::string("a\0b", 3);
    EXPECT_EQ(QE_ERROR_MALFORMED, error_of(form.bytes()));
    form.base = std::string(10001, 'a');
    EXPECT_EQ(QE_ERROR_MALFORMED, error_of(form.bytes()));
    form.base = std::string(9994, 'a');
    EXPECT_EQ(0, error_of(form.bytes()));
    form = hcc_state();
    form.names[1] = "";
    const owned_summary summary(form.bytes());
    EXPECT_EQ(QE_ERROR_MALFORMED, summary->error);
    EXPECT_EQ(8U, summary->fields);
    EXPECT_EQ(lines{three_names[0]}, summary.names());
    // The length is judged before the text is there.
    EXPECT_EQ(QE_ERROR_MALFORMED, error_of('\1' + stored_u32(10001)));
    EXPECT_EQ(QE_ERROR_TRUNCATED, error_of('\1' + stored_u32(10000)));
}

TEST_F(ScanState, FailsWithoutAFile)
{
    vesk_state_summary summary;
    EXPECT_EQ(QE_ERROR_OPEN, vesk_scan_state("nowhere.state", &summary));
    EXPECT_EQ(QE_ERROR_OPEN, summary.error);
    EXPECT_EQ(0U, summary.size);
    EXPECT_EQ(nullptr, summary.filename);
    vesk_state_summary_destruct(&summary);
    fs::create_directory("folder.state");
    EXPECT_EQ(QE_ERROR_IO, vesk_scan_state("folder.state", &summary));
    EXPECT_EQ(QE_ERROR_IO, summary.error);
    vesk_state_summary_destruct(&summary);
}

// No buffer file is there at all.
TEST_F(ScanState, OpensNoBufferFile)
{
    write_file("r.state", hcc_state().bytes());
    const failing_call counted(call_kind::open, 0);
    vesk_state_summary summary;
    EXPECT_EQ(0, vesk_scan_state("r.state", &summary));
    EXPECT_EQ(1, failing_call::count(call_kind::open));
    vesk_state_summary_destruct(&summary);
}

TEST_F(ScanState, IsEmptyAfterItsEnd)
{
    write_file("r.state", hcc_state().bytes());
    vesk_state_summary summary;
    EXPECT_EQ(0, vesk_scan_state("r.state", &summary));
    vesk_state_summary_destruct(&summary);
    EXPECT_EQ(nullptr, summary.filename);
    EXPECT_EQ(nullptr, summary.state_filename);
    EXPECT_EQ(nullptr, summary.names[2]);
    EXPECT_EQ(0U, summary.num_names);
    vesk_state_summary_destruct(&summary);
}

TEST_F(ScanState, GivesBackWhatItTookWhenMemoryRunsOut)
{
    write_file("r.state", hcc_state().bytes());
    const std::ptrdiff_t files = count_open_files();
    int failures = 0;
    for (int n = 1; n > 0; ++n) {
        const long blocks = count_live_blocks();
        vesk_state_summary summary;
        int result = 0;
        bool failed = false;
        {
            const failing_allocation failing(n);
            result = vesk_scan_state("r.state", &summary);
            failed = failing_call::happened();
        }
        vesk_state_summary_destruct(&summary);
        EXPECT_EQ(blocks, count_live_blocks());
        EXPECT_EQ(files, count_open_files());
        if (!failed) {
            EXPECT_EQ(0, result);
            break;
        }
        EXPECT_EQ(QE_ERROR_NO_MEMORY, result);
        ++failures;
    }
    // The file, two names of the box and three of its files.
    EXPECT_EQ(6, failures);
}

TEST_F(ScanState, RefusesAPipeAndALink)
{
    vesk_state_summary summary;
    ASSERT_EQ(0, mkfifo("r.state", 0600));
    EXPECT_EQ(QE_ERROR_OPEN, vesk_scan_state("r.state", &summary));
    fs::remove("r.state");
    write_file("elsewhere", hcc_state().bytes());
    fs::create_symlink("elsewhere", "r.state");
    EXPECT_EQ(QE_ERROR_OPEN, vesk_scan_state("r.state", &summary));
}

TEST_F(ScanState, RequiresAFileAndASummary)
{
    vesk_state_summary summary;
    EXPECT_ABORTS((void)vesk_scan_state(nullptr, &summary), "filename != ((void *)0)");
    EXPECT_ABORTS((void)vesk_scan_state("r.state", nullptr), "summary != ((void *)0)");
    EXPECT_ABORTS(vesk_state_summary_destruct(nullptr), "summary != ((void *)0)");
}

} // namespace
