// The lock that keeps a second writer away from a box.
#include <csignal>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
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

std::string refusal_of_lock(const std::string &base)
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
    EXPECT_EQ(refusal_of_lock(folder.file("box")), folder.file("box") + ": process " +
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
    EXPECT_EQ(refusal_of_lock(folder.file("box")), "");
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
    EXPECT_THAT(refusal_of_lock(folder.file("none/box")), HasSubstr("its folder does not exist"));
}

TEST(BoxLock, ItsHolderNoticesThatTheFileIsGone)
{
    const temporary_directory folder;
    box_lock lock(folder.file("box"));
    EXPECT_TRUE(lock.is_held());
    unlink(folder.file("box.lock").c_str());
    EXPECT_FALSE(lock.is_held());
    lock.retake();
    EXPECT_TRUE(lock.is_held());
    EXPECT_THAT(lock_holder(folder.file("box")), Optional(getpid()));
}

TEST(BoxLock, WhoLostItDoesNotTakeItBackFromWhoHasItNow)
{
    const temporary_directory folder;
    {
        box_lock lock(folder.file("box"));
        unlink(folder.file("box.lock").c_str());
        const other_holder other(folder.file("box"));
        EXPECT_FALSE(lock.is_held());
        EXPECT_THROW(lock.retake(), box_in_use);
        EXPECT_THAT(lock_holder(folder.file("box")), Optional(other.pid()));
    }
}

TEST(BoxLock, TheFileOfAnotherHolderStaysWhenTheFirstOneEnds)
{
    const temporary_directory folder;
    auto lock = std::make_unique<box_lock>(folder.file("box"));
    unlink(folder.file("box.lock").c_str());
    const other_holder other(folder.file("box"));
    lock.reset();
    EXPECT_THAT(lock_holder(folder.file("box")), Optional(other.pid()));
}

TEST(BoxLock, WhoCouldNotTakeItBackDoesNotRemoveTheFileOfItsHolder)
{
    const temporary_directory folder;
    auto lock = std::make_unique<box_lock>(folder.file("box"));
    unlink(folder.file("box.lock").c_str());
    const other_holder other(folder.file("box"));
    EXPECT_THROW(lock->retake(), box_in_use);
    EXPECT_FALSE(lock->is_held());
    lock.reset();
    EXPECT_THAT(lock_holder(folder.file("box")), Optional(other.pid()));
}

TEST(BoxLock, IsNoLinkAndOverwritesNothing)
{
    const temporary_directory folder;
    const std::string lock = folder.file("box.lock");
    const std::string precious = folder.file("precious");
    write_file(precious, "1234567890 1234567890 1234567890 1234567890\n");
    const std::string before = read_file(precious);

    ASSERT_EQ(symlink(precious.c_str(), lock.c_str()), 0);
    EXPECT_THAT(refusal_of_lock(folder.file("box")), HasSubstr("is a link"));
    unlink(lock.c_str());
    ASSERT_EQ(link(precious.c_str(), lock.c_str()), 0);
    EXPECT_THAT(refusal_of_lock(folder.file("box")), HasSubstr("is no lock file"));
    unlink(precious.c_str());
    EXPECT_THAT(refusal_of_lock(folder.file("box")), HasSubstr("is no lock file"));
    EXPECT_EQ(read_file(lock), before);
    unlink(lock.c_str());
    ASSERT_EQ(mkfifo(lock.c_str(), 0600), 0);
    EXPECT_THAT(refusal_of_lock(folder.file("box")), HasSubstr("is no lock file"));
    EXPECT_EQ(lock_holder(folder.file("box")), std::nullopt);
}

TEST(BoxLock, ALinkThatLeadsNowhereMakesNoFileThere)
{
    const temporary_directory folder;
    ASSERT_EQ(symlink(folder.file("target").c_str(), folder.file("box.lock").c_str()), 0);
    EXPECT_THAT(refusal_of_lock(folder.file("box")), HasSubstr("is a link"));
    EXPECT_NE(access(folder.file("target").c_str(), F_OK), 0);
}

// What another user sees, in a process that has given up the rights of root. 0 when it is true.
int as_another_user(const std::function<bool()> &is_true)
{
    const pid_t child = fork();
    if (child == 0) {
        constexpr uid_t nobody = 65534;
        _exit(setresgid(nobody, nobody, nobody) == 0 && setresuid(nobody, nobody, nobody) == 0 &&
                      is_true()
                  ? 0
                  : 1);
    }
    int status = 1;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}

TEST(BoxLock, OfAnotherUserIsSeenAndRespectedWithoutRightsOnIt)
{
    if (getuid() != 0) {
        GTEST_SKIP() << "only root can become another user";
    }
    const temporary_directory folder;
    ASSERT_EQ(chmod(folder.path().c_str(), 0777), 0);
    const other_holder other(folder.file("box"));
    const pid_t holder = other.pid();
    EXPECT_EQ(as_another_user([&] {
                  return lock_holder(folder.file("box")) == holder &&
                         refusal_of_lock(folder.file("box")).find(std::to_string(holder)) !=
                             std::string::npos;
              }),
              0);
    EXPECT_THAT(lock_holder(folder.file("box")), Optional(holder));
}

TEST(BoxLock, WhatAnotherUserLeftBehindIsNoObstacle)
{
    if (getuid() != 0) {
        GTEST_SKIP() << "only root can become another user";
    }
    const temporary_directory folder;
    ASSERT_EQ(chmod(folder.path().c_str(), 0777), 0);
    write_file(folder.file("box.lock"), "1\n");
    ASSERT_EQ(chmod(folder.file("box.lock").c_str(), 0600), 0);
    EXPECT_EQ(as_another_user([&] { return refusal_of_lock(folder.file("box")).empty(); }), 0);
    // Where it may not be removed either, that is said.
    write_file(folder.file("box.lock"), "1\n");
    ASSERT_EQ(chmod(folder.file("box.lock").c_str(), 0600), 0);
    ASSERT_EQ(chmod(folder.path().c_str(), 0755), 0);
    EXPECT_EQ(as_another_user([&] {
                  return refusal_of_lock(folder.file("box")).find("Permission denied") !=
                         std::string::npos;
              }),
              0);
}

// A file that outlived a kill may be removed by hand; what was locked before is then another file.
TEST(BoxLock, AFileThatWasRemovedHoldsNothing)
{
    const temporary_directory folder;
    const other_holder other(folder.file("box"));
    unlink(folder.file("box.lock").c_str());
    EXPECT_EQ(lock_holder(folder.file("box")), std::nullopt);
    EXPECT_EQ(refusal_of_lock(folder.file("box")), "");
}

} // namespace
