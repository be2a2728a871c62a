// Files that are replaced as a whole.
#include <cerrno>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include <vesk/error.h>

#include "box/durable_file.hpp"
#include "common/failing_calls.hpp"
#include "common/temporary_directory.hpp"

namespace
{

namespace fs = std::filesystem;
using file_names = std::set<std::string>;

class ReplacementFile : public testing::Test
{
protected:
    ReplacementFile() : target_(folder_.file("f")) { write_file(target_, "old"); }

    int replace(const char *content, const char *like = nullptr) const
    {
        replacement_file replacement;
        const int opened = replacement.open(target_.c_str(), like);
        if (opened != 0) {
            return opened;
        }
        EXPECT_GE(fputs(content, replacement.file()), 0);
        return replacement.commit();
    }

    std::string content() const { return read_file(target_); }
    static mode_t mode_of(const std::string &path)
    {
        struct stat status = {};
        EXPECT_EQ(0, lstat(path.c_str(), &status));
        return status.st_mode & 0777;
    }

    temporary_directory folder_;
    std::string target_;
};

TEST_F(ReplacementFile, TakesThePlaceOfItsTarget)
{
    for (const mode_t mode : {0600U, 0640U, 0666U}) {
        ASSERT_EQ(0, chmod(target_.c_str(), mode));
        EXPECT_EQ(0, replace("new"));
        EXPECT_EQ("new", content());
        EXPECT_EQ(mode, mode_of(target_));
    }
    EXPECT_EQ(file_names{"f"}, folder_.names());
}

TEST_F(ReplacementFile, IsRemovedWhenItIsNotPutInPlace)
{
    {
        replacement_file replacement;
        ASSERT_EQ(0, replacement.open(target_.c_str()));
        EXPECT_EQ((file_names{"f", "f.new"}), folder_.names());
    }
    EXPECT_EQ(file_names{"f"}, folder_.names());
    EXPECT_EQ("old", content());
}

TEST_F(ReplacementFile, LeavesTheTargetWhenSomethingFails)
{
    for (const call_kind kind :
         {call_kind::open, call_kind::flush, call_kind::sync, call_kind::rename}) {
        const failing_call failing(kind, 1);
        EXPECT_GT(0, replace("new"));
        EXPECT_TRUE(failing_call::happened());
        EXPECT_EQ("old", content());
        EXPECT_EQ(file_names{"f"}, folder_.names());
    }
}

// It would be made with the permissions of a file that was never there.
TEST_F(ReplacementFile, LeavesATargetThatCannotBeLookedAt)
{
    ASSERT_EQ(0, chmod(target_.c_str(), 0600));
    for (int n = 1; n <= 2; ++n) {
        {
            const failing_look failing(n, EIO);
            EXPECT_EQ(QE_ERROR_IO, replace("new")) << n;
        }
        EXPECT_EQ("old", content());
        EXPECT_EQ(0600U, mode_of(target_));
        const failing_look interrupted(n, EINTR);
        EXPECT_EQ(0, replace("old"));
    }
}

TEST_F(ReplacementFile, ReplacesWhatAnEarlierOneLeftBehindButNothingElse)
{
    write_file(target_ + ".new", "unfinished");
    EXPECT_EQ(0, replace("new"));
    EXPECT_EQ("new", content());
    write_file(folder_.file("other"), "other");
    fs::create_symlink("other", target_ + ".new");
    EXPECT_EQ(QE_ERROR_OPEN, replace("newer"));
    EXPECT_EQ("new", content());
    EXPECT_EQ("other", read_file(folder_.file("other")));
}

TEST_F(ReplacementFile, GivesANewFileTheOwnerOfItsLikeOrOfTheFolder)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root gives files away";
    }
    const auto owner_after = [&](const char *like) {
        fs::remove(target_);
        EXPECT_EQ(0, replace("new", like));
        struct stat status = {};
        EXPECT_EQ(0, lstat(target_.c_str(), &status));
        return status.st_uid;
    };
    const std::string like = folder_.file("like");
    write_file(like, "");
    ASSERT_EQ(0, chown(like.c_str(), 1234, 1234));
    ASSERT_EQ(0, chown(folder_.path().c_str(), 5678, 5678));
    EXPECT_EQ(1234U, owner_after(like.c_str()));
    EXPECT_EQ(5678U, owner_after(nullptr));
}

TEST_F(ReplacementFile, RefusesANameThatIsTooLong)
{
    replacement_file replacement;
    EXPECT_EQ(QE_ERROR_LIMIT, replacement.open(std::string(max_filename - 4, 'f').c_str()));
}

TEST(SyncFolder, FailsWhereThereIsNone)
{
    const temporary_directory folder;
    EXPECT_EQ(0, _vesk_sync_folder(folder.file("f").c_str()));
    EXPECT_EQ(QE_ERROR_IO, _vesk_sync_folder((folder.path() + "/no/f").c_str()));
    const failing_call failing(call_kind::sync, 1);
    EXPECT_EQ(QE_ERROR_IO, _vesk_sync_folder(folder.file("f").c_str()));
}

} // namespace
