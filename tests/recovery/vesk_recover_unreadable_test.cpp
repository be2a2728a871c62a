// What cannot be looked at or read is not what is not there: a recovery fails then and leaves the
// box as it is, or does what it would have done without the failure. What a signal interrupts is
// tried again.
#include <cerrno>
#include <gtest/gtest.h>
#include <map>

#include "common/failing_calls.hpp"
#include "recovery/recover_fixture.hpp"

namespace
{

using contents_by_name = std::map<std::string, std::string>;

class RecoverUnreadable : public Recover
{
protected:
    // A box with a history of which only the copy of the state file tells what it is made of.
    static void make_box_without_state()
    {
        for (const auto &entry : fs::directory_iterator(".")) {
            fs::remove_all(entry.path());
        }
        make_box(14);
        owned_recorder recorder(vesk_open("r"));
        ASSERT_EQ(0, vesk_backup_state(recorder.get()));
        recorder.reset();
        fs::remove("r.state");
    }

    contents_by_name contents() const
    {
        contents_by_name found;
        for (const std::string &name : files()) {
            found[name] = read_file(name);
        }
        return found;
    }

    // Lets each call fail in turn, as `Failure` does it. Returns how many results were failures.
    template <typename Failure>
    int try_each(Failure fail)
    {
        make_box_without_state();
        const contents_by_name before = contents();
        vesk_recover_report whole;
        EXPECT_EQ(0, vesk_recover_plan("r", 0, 0, nullptr, nullptr, &whole));
        EXPECT_EQ(VESK_RECOVER_FROM_BACKUP, whole.source);
        int failures = 0;
        for (int n = 1;; ++n) {
            SCOPED_TRACE(n);
            vesk_recover_report report;
            const auto [result, happened] = fail(n, &report);
            EXPECT_EQ(before, contents());
            if (result != 0) {
                EXPECT_EQ(QE_ERROR_IO, result);
                ++failures;
            } else {
                EXPECT_EQ(0, memcmp(&whole, &report, sizeof report));
            }
            if (!happened || testing::Test::HasFailure()) {
                return failures;
            }
        }
    }
};

int plan_once(vesk_recover_report *report)
{
    return vesk_recover_plan("r", 0, 0, nullptr, nullptr, report);
}

// The copy was taken for one that is not there, and the sizes were guessed or asked for.
TEST_F(RecoverUnreadable, AReadThatFailsOnceIsNoMissingCopy)
{
    EXPECT_GT(try_each([](int n, vesk_recover_report *report) {
                  const failing_call failing(call_kind::read, n);
                  const int result = plan_once(report);
                  return std::pair(result, failing_call::happened());
              }),
              3);
}

TEST_F(RecoverUnreadable, AReadThatIsInterruptedGoesOn)
{
    EXPECT_EQ(0, try_each([](int n, vesk_recover_report *report) {
                  const interrupted_read interrupted(n);
                  const int result = plan_once(report);
                  return std::pair(result, interrupted_read::happened());
              }));
}

TEST_F(RecoverUnreadable, AFileThatCannotBeLookedAtIsNotMissing)
{
    EXPECT_GT(try_each([](int n, vesk_recover_report *report) {
                  const failing_look failing(n, EIO);
                  const int result = plan_once(report);
                  return std::pair(result, failing_look::happened());
              }),
              3);
}

TEST_F(RecoverUnreadable, ALookThatIsInterruptedIsTriedAgain)
{
    EXPECT_EQ(0, try_each([](int n, vesk_recover_report *report) {
                  const failing_look failing(n, EINTR);
                  const int result = plan_once(report);
                  return std::pair(result, failing_look::happened());
              }));
}

// The box may be whole without its copy.
TEST_F(RecoverUnreadable, ACopyThatCannotBeReadIsNoFailureBesideAWholeState)
{
    make_box(14);
    fs::create_directory("r.state.bak");
    vesk_recover_report report;
    EXPECT_EQ(0, vesk_recover("r", 0, 0, &report));
    EXPECT_EQ(0U, report.steps);
}

// --- the files of a box

struct listed {
    std::vector<std::pair<std::string, int>> files; // with whether they are missing
};

int list(listed *found)
{
    const auto keep = [](const vesk_scan_file *file, void *to) {
        static_cast<listed *>(to)->files.emplace_back(file->filename, file->missing);
        return 0;
    };
    return vesk_scan_files("r", keep, found);
}

class ScanUnreadable : public RecoverUnreadable
{
};

TEST_F(ScanUnreadable, AFileThatCannotBeLookedAtIsNotMissing)
{
    make_box(14);
    listed whole;
    ASSERT_EQ(0, list(&whole));
    ASSERT_EQ(3U, whole.files.size());
    for (const int reason : {EIO, EACCES, ENOMEM}) {
        int n = 1;
        for (bool happened = true; happened; ++n) {
            SCOPED_TRACE(n);
            listed found;
            const failing_look failing(n, reason);
            const int result = list(&found);
            happened = failing_look::happened();
            // A path that may not be followed to its end leads to no file of the box.
            const bool told = !happened || (reason == EACCES && n > 3);
            if (!told) {
                EXPECT_EQ(QE_ERROR_IO, result);
            } else {
                EXPECT_EQ(0, result);
                EXPECT_EQ(whole.files, found.files);
            }
        }
        EXPECT_GT(n, 3);
    }
}

TEST_F(ScanUnreadable, AFileThatIsNotThereIsMissing)
{
    make_box(14);
    fs::remove("r.5.cbuf.z");
    for (const int reason : {ENOENT, ENOTDIR, ENAMETOOLONG}) {
        listed found;
        const failing_look failing(1, reason);
        EXPECT_EQ(0, list(&found));
        EXPECT_EQ(1, found.files.front().second);
    }
}

// A state file may hold any name.
TEST_F(ScanUnreadable, ANameThatNoFileCanHaveIsMissing)
{
    make_box(2);
    const std::string name = "r." + std::string(300, '1') + ".cbuf.z";
    std::string state = read_file("r.state");
    const std::string old = std::string("\0\0\0\x0a", 4) + "r.1.cbuf.z";
    const std::size_t at = state.find(old);
    ASSERT_NE(std::string::npos, at);
    state.replace(at, old.size(), stored_string(name));
    write_file("r.state", state);
    listed found;
    ASSERT_EQ(0, list(&found));
    EXPECT_EQ((std::vector<std::pair<std::string, int>>{{name, 1}, {"r.1.cbuf.z", 0}}),
              found.files);
}

} // namespace
