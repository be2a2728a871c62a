// Files that appear as a whole, and what they never replace.
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <sys/stat.h>
#include <unistd.h>

#include "cli/quick_folder.hpp"
#include "common/temporary_directory.hpp"
#include "export/new_file.hpp"
#include "export/sink.hpp"
#include "process/failure.hpp"

namespace
{

using namespace cli;

class NewFile : public ::testing::Test
{
protected:
    static std::string content_of(const std::string &path)
    {
        std::ifstream in(path);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    static void write(const std::string &path, bool force, bool complete = true)
    {
        const auto out = open_sink(path, force);
        out->write("new");
        if (complete) {
            out->finish();
        }
    }

    temporary_directory folder{quick_folder()};
    const std::string path = folder.file("out");
};

TEST_F(NewFile, IsThereWhenItIsComplete)
{
    write(path, false);
    EXPECT_EQ(content_of(path), "new");
    EXPECT_EQ(folder.names().size(), 1U);
}

TEST_F(NewFile, LeavesNothingBehindWhenItIsNotCompleted)
{
    write(path, false, false);
    EXPECT_TRUE(folder.names().empty());
}

TEST_F(NewFile, ReplacesAFileOnlyByForce)
{
    std::ofstream(path) << "old";
    EXPECT_THROW(write(path, false), failure);
    EXPECT_EQ(content_of(path), "old");
    write(path, true, false);
    EXPECT_EQ(content_of(path), "old");
    write(path, true);
    EXPECT_EQ(content_of(path), "new");
}

TEST_F(NewFile, DoesNotReplaceWhatCameMeanwhile)
{
    const auto out = open_sink(path, false);
    out->write("new");
    std::ofstream(path) << "other";
    EXPECT_THROW(out->finish(), failure);
    EXPECT_EQ(content_of(path), "other");
}

TEST_F(NewFile, NeverFollowsOrReplacesALink)
{
    const std::string victim = folder.file("victim");
    std::ofstream(victim) << "old";
    for (const char *target : {victim.c_str(), "nowhere"}) {
        std::filesystem::remove(path);
        std::filesystem::create_symlink(target, path);
        EXPECT_THROW(write(path, false), failure);
        EXPECT_THROW(write(path, true), failure);
        EXPECT_TRUE(std::filesystem::is_symlink(path));
    }
    EXPECT_EQ(content_of(victim), "old");
    EXPECT_EQ(folder.names().size(), 2U);
}

TEST_F(NewFile, NeverReplacesAFolderOrAFifo)
{
    std::filesystem::create_directory(path);
    EXPECT_THROW(write(path, true), failure);
    std::filesystem::remove(path);
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    EXPECT_THROW(write(path, true), failure);
    EXPECT_TRUE(std::filesystem::is_fifo(path));
}

TEST_F(NewFile, HasTheRightsOfAnyOtherFile)
{
    const mode_t before = umask(027);
    write(path, false);
    umask(before);
    struct stat status = {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0640U);
}

TEST_F(NewFile, NamesThatAreNoFilesAreRefused)
{
    EXPECT_THROW(new_file(folder.path() + "/", false), failure);
    EXPECT_THROW(new_file(folder.file("missing") + "/out", false), failure);
    EXPECT_THROW(new_file("..", true), failure);
}

} // namespace
