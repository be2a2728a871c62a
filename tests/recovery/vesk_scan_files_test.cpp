// Scanning the folder of a box: which files belong to it, in which role, and what is left alone.
#include <sys/stat.h>

#include "common/failing_calls.hpp"
#include "common/open_files.hpp"
#include "recovery/scan_fixture.hpp"

namespace
{

int keep_file(const vesk_scan_file *file, void *context)
{
    const char *roles[] = {"orphan", "history", "full", "open"};
    std::ostringstream line;
    line << roles[file->role] << " " << file->filename << " " << file->buffer_kind << " "
         << file->number << " " << file->size << (file->missing != 0 ? " missing" : "")
         << (file->foreign != 0 ? " foreign" : "");
    static_cast<lines *>(context)->push_back(line.str());
    return 0;
}

class ScanFiles : public ScanTest
{
protected:
    static lines scan(const char *base = "r")
    {
        lines files;
        EXPECT_EQ(0, vesk_scan_files(base, keep_file, &files));
        return files;
    }
    // Files of three bytes.
    static void make(const lines &names)
    {
        for (const std::string &name : names) {
            write_file(name, "xyz");
        }
    }
};

TEST_F(ScanFiles, ShowsThoseOfTheStateOldestFirst)
{
    const lines current = {"r.1.cbuf.z", "r.2.cbuf.z", "r.3.cbuf.z"};
    make(current + three_names);
    const lines expected[] = {
        {"open r.1.cbuf.z 1 1 3"},
        {"full r.1.cbuf.z 1 1 3", "open r.2.cbuf.z 1 2 3"},
        {"full r.1.cbuf.z 1 1 3", "full r.2.cbuf.z 1 2 3", "open r.3.cbuf.z 1 3 3"},
        {"history r.6.hbuf.z 2 6 3", "full r.5.cbuf.z 1 5 3", "open r.7.cbuf.z 1 7 3"},
    };
    for (const uint32_t state : {1U, 2U, 3U, 4U}) {
        state_form form;
        form.state = state;
        form.names = state == 4 ? three_names : lines(current.begin(), current.begin() + state);
        write_file("r.state", form.bytes());
        lines named = scan();
        named.resize(form.names.size());
        EXPECT_EQ(expected[state - 1], named);
    }
}

TEST_F(ScanFiles, ShowsOrphansByNumber)
{
    write_file("r.state", hcc_state().bytes());
    make(three_names + lines{"r.10.cbuf.z", "r.9.hbuf.z", "r.9.cbuf.z", "r.1.cbuf.z", "r.0.cbuf.z",
                             "r.4294967295.hbuf.z"});
    EXPECT_EQ((lines{"history r.6.hbuf.z 2 6 3", "full r.5.cbuf.z 1 5 3", "open r.7.cbuf.z 1 7 3",
                     "orphan r.0.cbuf.z 1 0 3", "orphan r.1.cbuf.z 1 1 3",
                     "orphan r.9.cbuf.z 1 9 3", "orphan r.9.hbuf.z 2 9 3",
                     "orphan r.10.cbuf.z 1 10 3", "orphan r.4294967295.hbuf.z 2 4294967295 3"}),
              scan());
}

TEST_F(ScanFiles, ShowsThatAFileIsMissing)
{
    write_file("r.state", hcc_state().bytes());
    make({"r.7.cbuf.z"});
    EXPECT_EQ((lines{"history r.6.hbuf.z 2 6 0 missing", "full r.5.cbuf.z 1 5 0 missing",
                     "open r.7.cbuf.z 1 7 3"}),
              scan());
}

TEST_F(ScanFiles, TakesAllForOrphansWithoutAState)
{
    make(three_names);
    const lines orphans = {"orphan r.5.cbuf.z 1 5 3", "orphan r.6.hbuf.z 2 6 3",
                           "orphan r.7.cbuf.z 1 7 3"};
    EXPECT_EQ(orphans, scan());
    write_file("r.state", "");
    EXPECT_EQ(orphans, scan());
    write_file("r.state", noise(100));
    EXPECT_EQ(orphans, scan());
    fs::remove("r.state");
    fs::create_directory("r.state");
    EXPECT_EQ(orphans, scan());
}

// What a state file names before it ends is named.
TEST_F(ScanFiles, TakesWhatACutStateSays)
{
    const state_form form = hcc_state();
    make(form.names);
    const std::string bytes = form.bytes();
    const lines named = {"history r.6.hbuf.z 2 6 3", "full r.5.cbuf.z 1 5 3",
                         "open r.7.cbuf.z 1 7 3"};
    const lines orphaned = {"orphan r.5.cbuf.z 1 5 3", "orphan r.6.hbuf.z 2 6 3",
                            "orphan r.7.cbuf.z 1 7 3"};
    for (std::size_t size = 0; size <= bytes.size(); ++size) {
        write_file("r.state", bytes.substr(0, size));
        const std::size_t missing = bytes.size() - size;
        const std::size_t name = 4 + three_names[0].size();
        const lines expected = missing == 0          ? named
                               : missing <= name     ? lines{named[0], named[1], orphaned[2]}
                               : missing <= 2 * name ? lines{named[0], orphaned[0], orphaned[2]}
                                                     : orphaned;
        EXPECT_EQ(expected, scan()) << size;
    }
}

TEST_F(ScanFiles, ShowsNothingElse)
{
    write_file("r.state", state_form().bytes());
    make({"r.1.cbuf.z", "r.01.cbuf.z", "r.+2.cbuf.z", "r.2.cbuf", "r.2.cbuf.z.bak", "r.2.dbuf.z",
          "rr.2.cbuf.z", "R.2.cbuf.z", "r..cbuf.z", "r.cbuf.z", "r.-2.cbuf.z",
          "r.4294967296.cbuf.z", "r.2 .cbuf.z", "r.2.cbuf.z ", "q.2.cbuf.z", "r.2.Cbuf.z"});
    EXPECT_EQ((lines{"open r.1.cbuf.z 1 1 3"}), scan());
}

TEST_F(ScanFiles, NamesFilesWithTheFolderOfTheBase)
{
    fs::create_directories("one/two");
    make({"one/two/r.3.cbuf.z", "one/two/r.4.hbuf.z", "one/r.9.cbuf.z", "r.9.cbuf.z"});
    EXPECT_EQ((lines{"orphan one/two/r.3.cbuf.z 1 3 3", "orphan one/two/r.4.hbuf.z 2 4 3"}),
              scan("one/two/r"));
    const std::string absolute = folder_.path() + "/r";
    EXPECT_EQ((lines{"orphan " + absolute + ".9.cbuf.z 1 9 3"}), scan(absolute.c_str()));
}

// The recorder was created under another name of its folder than it is looked at now.
TEST_F(ScanFiles, ShowsAFileOnceWhateverTheFolderIsCalled)
{
    state_form form;
    form.base = folder_.path() + "/r";
    form.names = {form.base + ".1.cbuf.z"};
    write_file("r.state", form.bytes());
    make({"r.1.cbuf.z", "r.2.cbuf.z"});
    EXPECT_EQ((lines{"open " + form.base + ".1.cbuf.z 1 1 3", "orphan r.2.cbuf.z 1 2 3"}), scan());
}

// The kind of a file that is not named as recorders name them is told by its place.
TEST_F(ScanFiles, ShowsNamedFilesWhateverTheyAreCalled)
{
    state_form form = hcc_state();
    form.names = {"history", "full", "open"};
    write_file("r.state", form.bytes());
    make(form.names);
    EXPECT_EQ((lines{"history history 2 0 3", "full full 1 0 3", "open open 1 0 3"}), scan());
}

// What is no file of a recorder has its name.
TEST_F(ScanFiles, TellsWhatIsNoRegularFile)
{
    write_file("r.state", hcc_state().bytes());
    ASSERT_EQ(0, mkfifo("r.5.cbuf.z", 0600));
    fs::create_symlink("/dev/zero", "r.6.hbuf.z");
    fs::create_directory("r.7.cbuf.z");
    fs::create_symlink("nowhere", "r.8.cbuf.z");
    EXPECT_EQ((lines{"history r.6.hbuf.z 2 6 0 foreign", "full r.5.cbuf.z 1 5 0 foreign",
                     "open r.7.cbuf.z 1 7 0 foreign", "orphan r.8.cbuf.z 1 8 0 foreign"}),
              scan());
}

// A state file may name any file of the machine.
TEST_F(ScanFiles, LooksAtNothingOutsideOfTheBox)
{
    fs::create_directories("box/inner");
    write_file("outside", "xyz");
    write_file("box/r.5.cbuf.z", "xyz");
    state_form form = hcc_state();
    const std::string outside = folder_.path() + "/outside";
    form.names = {outside, "box/inner/../r.5.cbuf.z", "box/../outside"};
    write_file("box/r.state", form.bytes());
    EXPECT_EQ((lines{"history " + outside + " 2 0 0 missing",
                     "full box/inner/../r.5.cbuf.z 1 0 0 missing",
                     "open box/../outside 1 0 0 missing", "orphan box/r.5.cbuf.z 1 5 3"}),
              scan("box/r"));
}

TEST_F(ScanFiles, EndsWhenTheVisitorSaysSo)
{
    write_file("r.state", state_form().bytes());
    make({"r.1.cbuf.z", "r.2.cbuf.z"});
    for (int last = 1; last <= 2; ++last) {
        int left = last;
        EXPECT_EQ(7, vesk_scan_files(
                         "r",
                         [](const vesk_scan_file *, void *visits) {
                             return --*static_cast<int *>(visits) == 0 ? 7 : 0;
                         },
                         &left));
        EXPECT_EQ(0, left);
    }
}

TEST_F(ScanFiles, FailsWithoutItsFolder)
{
    lines files;
    EXPECT_EQ(QE_ERROR_OPEN, vesk_scan_files("nowhere/r", keep_file, &files));
    EXPECT_TRUE(files.empty());
    const failing_call failing(call_kind::read, 1);
    EXPECT_EQ(QE_ERROR_IO, vesk_scan_files("r", keep_file, &files));
}

TEST_F(ScanFiles, RefusesANameThatIsTooLong)
{
    lines files;
    EXPECT_EQ(QE_ERROR_LIMIT, vesk_scan_files(std::string(4096, 'r').c_str(), keep_file, &files));
    // Short enough to be looked for, but not to be there.
    EXPECT_EQ(0, vesk_scan_files(std::string(4000, 'r').c_str(), keep_file, &files));
    EXPECT_TRUE(files.empty());
}

TEST_F(ScanFiles, GivesBackWhatItTookWhenMemoryRunsOut)
{
    write_file("r.state", hcc_state().bytes());
    make(three_names + lines{"r.1.cbuf.z", "r.2.cbuf.z"});
    const std::ptrdiff_t files = count_open_files();
    int failures = 0;
    for (int n = 1; n > 0; ++n) {
        const long blocks = count_live_blocks();
        int result = 0;
        bool failed = false;
        {
            const failing_allocation failing(n);
            result = vesk_scan_files(
                "r", [](const vesk_scan_file *, void *) { return 0; }, nullptr);
            failed = failing_call::happened();
        }
        EXPECT_EQ(blocks, count_live_blocks());
        EXPECT_EQ(files, count_open_files());
        EXPECT_EQ(failed ? QE_ERROR_NO_MEMORY : 0, result) << n;
        if (!failed) {
            break;
        }
        ++failures;
    }
    EXPECT_GT(failures, 6);
}

TEST_F(ScanFiles, RequiresANameAndAVisitor)
{
    EXPECT_ABORTS((void)vesk_scan_files(nullptr, keep_file, nullptr), "filename != ((void *)0)");
    EXPECT_ABORTS((void)vesk_scan_files("r", nullptr, nullptr), "visit != ((void *)0)");
}

} // namespace
