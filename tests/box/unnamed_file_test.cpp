// Files that are written before they have a name.
#include <cerrno>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>

#include <vesk/error.h>

#include "box/unnamed_file.hpp"
#include "common/failing_calls.hpp"
#include "common/open_files.hpp"
#include "common/temporary_directory.hpp"

namespace
{

namespace fs = std::filesystem;

using create = owned_file (*)(const char *path);

class UnnamedFile : public testing::TestWithParam<create>
{
protected:
    std::string path() const { return folder_.file("name"); }
    bool is_empty() const { return fs::is_empty(folder_.path()); }

    owned_file written(const std::string &content) const
    {
        owned_file file = GetParam()(path().c_str());
        EXPECT_TRUE(file);
        EXPECT_EQ(content.size(), fwrite(content.data(), 1, content.size(), file.get()));
        EXPECT_EQ(0, fflush(file.get()));
        return file;
    }

    temporary_directory folder_;
};

TEST_P(UnnamedFile, HasAllOfItsContentWhenItHasAName)
{
    const std::string content(300000, 'x');
    const owned_file file = written(content);
    EXPECT_TRUE(is_empty());
    ASSERT_EQ(0, _vesk_name_file(file.get(), path().c_str()));
    EXPECT_TRUE(content == read_file(path()));
    struct stat named = {};
    ASSERT_EQ(0, stat(path().c_str(), &named));
    const mode_t mask = umask(0);
    umask(mask);
    EXPECT_EQ(0666 & ~mask, named.st_mode & 07777);
}

TEST_P(UnnamedFile, IsGoneWithoutAName)
{
    const auto open_files = count_open_files();
    written("content").reset();
    EXPECT_TRUE(is_empty());
    EXPECT_EQ(open_files, count_open_files());
}

TEST_P(UnnamedFile, TakesNoNameThatIsTaken)
{
    const owned_file file = written("new");
    write_file(path(), "old");
    EXPECT_EQ(QE_ERROR_IO, _vesk_name_file(file.get(), path().c_str()));
    EXPECT_EQ("old", read_file(path()));
    fs::remove(path());
    fs::create_symlink("elsewhere", path());
    EXPECT_EQ(QE_ERROR_IO, _vesk_name_file(file.get(), path().c_str()));
    EXPECT_FALSE(fs::exists(folder_.file("elsewhere")));
}

TEST_P(UnnamedFile, AFailureLeavesNoFile)
{
    for (const call_kind kind : {call_kind::rename, call_kind::open}) {
        const owned_file file = written("content");
        const failing_call failing(kind, 1);
        const int result = _vesk_name_file(file.get(), path().c_str());
        EXPECT_EQ(failing_call::happened() ? QE_ERROR_IO : 0, result);
        EXPECT_EQ(result < 0, is_empty());
        fs::remove(path());
    }
}

INSTANTIATE_TEST_SUITE_P(InTheFolder, UnnamedFile, testing::Values(_vesk_create_unnamed_file));
INSTANTIATE_TEST_SUITE_P(InMemory, UnnamedFile, testing::Values(_vesk_create_file_in_memory));

TEST(UnnamedFileInAFolder, ThatIsMissingIsNotMade)
{
    const temporary_directory folder;
    EXPECT_FALSE(_vesk_create_unnamed_file(folder.file("missing/name").c_str()));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_FALSE(_vesk_create_unnamed_file((std::string(5000, 'x') + "/name").c_str()));
    EXPECT_EQ(ENAMETOOLONG, errno);
}

TEST(UnnamedFileInAFolder, MayBeTheWorkingFolder)
{
    const temporary_directory folder;
    const fs::path before = fs::current_path();
    fs::current_path(folder.path());
    const owned_file file = _vesk_create_unnamed_file("name");
    EXPECT_TRUE(file);
    EXPECT_EQ(0, _vesk_name_file(file.get(), "name"));
    EXPECT_TRUE(fs::exists(folder.file("name")));
    fs::current_path(before);
}

} // namespace
