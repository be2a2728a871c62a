// What somebody else put under the names of a box: links, FIFOs, devices and folders are told and
// skipped, never followed or waited for; and what is rewritten keeps its owner and its permissions.
#include <sys/stat.h>
#include <unistd.h>

#include "recovery/recover_fixture.hpp"

namespace
{

class RecoverForeign : public Recover
{
protected:
    static void make(const std::string &kind, const std::string &name)
    {
        fs::remove_all(name);
        if (kind == "link") {
            write_file("target", "private");
            fs::create_symlink("target", name);
        } else if (kind == "link to a device") {
            fs::create_symlink("/dev/zero", name);
        } else if (kind == "link to nothing") {
            fs::create_symlink("nothing", name);
        } else if (kind == "fifo") {
            ASSERT_EQ(0, mkfifo(name.c_str(), 0600));
        } else {
            fs::create_directory(name);
            write_file(name + "/content", "x");
        }
    }

    // What planning and recovering return and report must agree; returns the result of both.
    static int result_of_both(vesk_recover_report *report)
    {
        vesk_recover_report planned;
        const int plan_result = vesk_recover_plan("r", 4, 2, nullptr, nullptr, &planned);
        const int result = vesk_recover("r", 4, 2, report);
        EXPECT_EQ(plan_result, result);
        if (result == 0) {
            EXPECT_EQ(0, memcmp(&planned, report, sizeof planned));
        }
        return result;
    }

    static void expect_untouched()
    {
        if (fs::exists("target")) {
            EXPECT_EQ("private", read_file("target"));
        }
        EXPECT_FALSE(fs::exists("nothing"));
    }

    static mode_t mode_of(const char *name)
    {
        struct stat status = {};
        EXPECT_EQ(0, lstat(name, &status)) << name;
        return status.st_mode & 0777;
    }

    void clear()
    {
        for (const std::string &name : files()) {
            fs::remove_all(name);
        }
    }
};

const char *const kinds[] = {"link", "link to a device", "link to nothing", "fifo", "folder"};

TEST_F(RecoverForeign, IsToldAndSkippedUnderTheNameOfAnyBuffer)
{
    for (const char *kind : kinds) {
        for (const char *name : {"r.4.hbuf.z", "r.3.cbuf.z", "r.5.cbuf.z", "r.9.cbuf.z"}) {
            SCOPED_TRACE(std::string(kind) + " " + name);
            make_box(14);
            make(kind, name);
            vesk_recover_report report;
            ASSERT_EQ(0, result_of_both(&report));
            EXPECT_EQ(1U, report.files_kept);
            ASSERT_EQ(0, result_of_both(&report));
            EXPECT_EQ(0U, report.steps);
            EXPECT_FALSE(fs::is_regular_file(fs::symlink_status(name)));
            EXPECT_FALSE(fs::exists(fs::symlink_status(std::string(name) + ".torn")));
            goes_on(15);
            expect_untouched();
            clear();
        }
    }
}

TEST_F(RecoverForeign, UnderTheNameOfTheStateFileIsNoBox)
{
    for (const char *kind : kinds) {
        SCOPED_TRACE(kind);
        make_box(6);
        make(kind, "r.state");
        vesk_recover_report report;
        EXPECT_EQ(QE_ERROR_OPEN, result_of_both(&report));
        expect_untouched();
        clear();
    }
}

TEST_F(RecoverForeign, UnderTheNameOfABufferAloneIsNoBox)
{
    for (const std::string kind : kinds) {
        SCOPED_TRACE(kind);
        clear();
        make(kind, "r.1.cbuf.z");
        vesk_recover_report report;
        EXPECT_EQ(QE_ERROR_OPEN, result_of_both(&report));
        EXPECT_FALSE(fs::exists("r.state"));
        expect_untouched();
    }
}

TEST_F(RecoverForeign, UnderTheNameOfTheCopyIsSkipped)
{
    for (const char *kind : kinds) {
        SCOPED_TRACE(kind);
        make_box(6);
        make(kind, "r.state.bak");
        vesk_recover_report report;
        ASSERT_EQ(0, result_of_both(&report));
        EXPECT_EQ(0U, report.steps);
        EXPECT_EQ(1U, report.files_kept);
        expect_untouched();
        clear();
    }
}

TEST_F(RecoverForeign, InTheWayOfARewrittenFileEndsPlanAndRecoveryAlike)
{
    for (const char *kind : kinds) {
        for (const char *name : {"r.2.cbuf.z.new", "r.2.cbuf.z.torn", "r.state.new"}) {
            SCOPED_TRACE(std::string(kind) + " " + name);
            make_box(6);
            append("r.2.cbuf.z", compressed_stream(stored_event_body(9, 1500, "nine")));
            fs::remove("r.state");
            make(kind, name);
            vesk_recover_report report;
            EXPECT_EQ(QE_ERROR_OPEN, result_of_both(&report));
            expect_untouched();
            fs::remove_all(name);
            EXPECT_EQ(0, result_of_both(&report));
            goes_on(7);
            clear();
        }
    }
}

TEST_F(RecoverForeign, BesideABoxThatNeedsNothingIsOnlyTold)
{
    for (const char *kind : kinds) {
        for (const char *name :
             {"r.2.cbuf.z.new", "r.2.cbuf.z.torn", "r.state.new", "r.9.cbuf.z.torn"}) {
            SCOPED_TRACE(std::string(kind) + " " + name);
            make_box(6);
            make(kind, name);
            vesk_recover_report report;
            EXPECT_EQ(0, result_of_both(&report));
            EXPECT_EQ(0U, report.steps);
            EXPECT_EQ(1U, report.files_kept);
            expect_untouched();
            goes_on(7);
            clear();
        }
    }
}

TEST_F(RecoverForeign, IsToldByItsOwnCode)
{
    make_box(6);
    make("fifo", "r.9.cbuf.z");
    int told = 0;
    const auto take = [](const vesk_recover_step *step, void *to) {
        if (step->action == VESK_RECOVER_KEEP) {
            *static_cast<int *>(to) = step->error;
        }
        return 0;
    };
    EXPECT_EQ(0, vesk_recover_plan("r", 0, 0, take, &told, nullptr));
    EXPECT_EQ(QE_ERROR_WRONG_KIND, told);
}

TEST_F(RecoverForeign, StateThatLeadsElsewhereIsNotFollowed)
{
    make_box(6);
    fs::create_directory("outside");
    const std::string buffer = read_file("r.2.cbuf.z") + "torn";
    write_file("outside/r.2.cbuf.z", buffer);
    std::string state = read_file("r.state");
    const std::size_t at = state.rfind(std::string("\0\0\0\x0ar.2.cbuf.z", 14));
    ASSERT_NE(std::string::npos, at);
    state.replace(at, 14, std::string("\0\0\0\x17x/../outside/r.2.cbuf.z", 27));
    write_file("r.state", state);
    recover(4, 2);
    EXPECT_EQ(buffer, read_file("outside/r.2.cbuf.z"));
    EXPECT_FALSE(fs::exists("outside/r.2.cbuf.z.torn"));
    goes_on(7);
    EXPECT_EQ(buffer, read_file("outside/r.2.cbuf.z"));
}

TEST_F(RecoverForeign, RewrittenFilesKeepTheirPermissions)
{
    for (const mode_t mode : {0600U, 0640U, 0660U, 0666U}) {
        make_box(6);
        for (const char *name : {"r.state", "r.1.cbuf.z", "r.2.cbuf.z"}) {
            ASSERT_EQ(0, chmod(name, mode));
        }
        append("r.2.cbuf.z", compressed_stream(stored_event_body(9, 1500, "nine")));
        cut("r.1.cbuf.z", 3);
        fs::copy_file("r.state", "elsewhere.state");
        write_file("r.state", read_file("r.state").substr(0, 40));
        recover(4, 2);
        for (const char *name : {"r.state", "r.1.cbuf.z", "r.2.cbuf.z"}) {
            EXPECT_EQ(mode, mode_of(name)) << name;
        }
        EXPECT_EQ(0600U, mode_of("r.2.cbuf.z.torn"));
        EXPECT_EQ(0600U, mode_of("r.1.cbuf.z.torn"));
        clear();
    }
}

TEST_F(RecoverForeign, RewrittenFilesOfAServiceStayItsOwnWhenRootRecovers)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root gives files away";
    }
    constexpr uid_t service = 1234;
    make_box(6);
    for (const char *name : {"r.state", "r.1.cbuf.z", "r.2.cbuf.z"}) {
        ASSERT_EQ(0, chown(name, service, service));
    }
    ASSERT_EQ(0, chown(".", service, service));
    append("r.2.cbuf.z", compressed_stream(stored_event_body(9, 1500, "nine")));
    cut("r.1.cbuf.z", 3);
    fs::remove("r.state");
    recover(4, 2);
    for (const std::string &name : files()) {
        struct stat status = {};
        ASSERT_EQ(0, lstat(name.c_str(), &status));
        EXPECT_EQ(service, status.st_uid) << name;
    }
}

TEST_F(RecoverForeign, FilesOfAnotherUserAreNotTaken)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root gives files away";
    }
    make_box(6);
    write_file("r.9.cbuf.z", read_file("r.2.cbuf.z"));
    ASSERT_EQ(0, chown("r.9.cbuf.z", 4321, 4321));
    vesk_recover_report report;
    ASSERT_EQ(0, result_of_both(&report));
    EXPECT_EQ(1U, report.files_kept);
    EXPECT_EQ(0U, report.steps - 1); // the number of the next file goes above it
}

} // namespace
