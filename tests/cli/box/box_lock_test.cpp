// The lock that keeps a second writer away from a box.
#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "box/box_lock.hpp"
#include "common/temporary_directory.hpp"
#include "process/failure.hpp"

namespace
{

using namespace cli;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Optional;

// A process that holds the lock of a box until it is killed.
class other_holder
{
public:
    explicit other_holder(const std::string &base)
    {
        int ready[2] = {};
        EXPECT_EQ(pipe(ready), 0);
        pid_ = fork();
        if (pid_ == 0) {
            const box_lock lock(base);
            (void)!write(ready[1], "x", 1);
            for (;;) {
                pause();
            }
        }
        close(ready[1]);
        char byte = 0;
        EXPECT_EQ(read(ready[0], &byte, 1), 1);
        close(ready[0]);
    }
    other_holder(const other_holder &) = delete;
    other_holder &operator=(const other_holder &) = delete;
    ~other_holder() { kill_it(); }

    pid_t pid() const { return pid_; }
    void kill_it()
    {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
            pid_ = 0;
        }
    }

private:
    pid_t pid_ = 0;
};

std::string refusal_of(const std::string &base)
{
    try {
        const box_lock lock(base);
        return "";
    } catch (const failure &reason) {
        EXPECT_EQ(reason.code(), exit_failed);
        return reason.what();
    }
}

TEST(BoxLock, KeepsASecondProcessAwayAndNamesTheFirst)
{
    const temporary_directory folder;
    const other_holder other(folder.file("box"));
    EXPECT_EQ(refusal_of(folder.file("box")), folder.file("box") + ": process " +
                                                  std::to_string(other.pid()) +
                                                  " is writing to the box");
    EXPECT_THAT(lock_holder(folder.file("box")), Optional(other.pid()));
}

TEST(BoxLock, EndsWithTheProcessThatIsKilled)
{
    const temporary_directory folder;
    other_holder other(folder.file("box"));
    other.kill_it();
    EXPECT_EQ(lock_holder(folder.file("box")), std::nullopt);
    EXPECT_EQ(refusal_of(folder.file("box")), "");
}

TEST(BoxLock, IsReadableByItsOwnerOnly)
{
    const temporary_directory folder;
    const box_lock lock(folder.file("box"));
    struct stat status = {};
    ASSERT_EQ(stat(folder.file("box.lock").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

TEST(BoxLock, LeavesNoFileBehind)
{
    const temporary_directory folder;
    {
        const box_lock lock(folder.file("box"));
    }
    EXPECT_THAT(folder.names(), IsEmpty());
}

TEST(BoxLock, LocksOfTwoBoxesAreNotInEachOthersWay)
{
    const temporary_directory folder;
    const box_lock one(folder.file("one"));
    const box_lock two(folder.file("two"));
    EXPECT_THAT(lock_holder(folder.file("one")), Optional(getpid()));
}

TEST(BoxLock, SaysWhyItCannotBeTaken)
{
    const temporary_directory folder;
    EXPECT_THAT(refusal_of(folder.file("none/box")), HasSubstr("No such file or directory"));
}

// A file that outlived a kill may be removed by hand; what was locked before is then another file.
TEST(BoxLock, AFileThatWasRemovedHoldsNothing)
{
    const temporary_directory folder;
    const other_holder other(folder.file("box"));
    unlink(folder.file("box.lock").c_str());
    EXPECT_EQ(lock_holder(folder.file("box")), std::nullopt);
    EXPECT_EQ(refusal_of(folder.file("box")), "");
}

} // namespace
