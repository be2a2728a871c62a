// Files of a box are opened without being led elsewhere, and what cannot be told is no answer.
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "box/plain_file.hpp"
#include "common/failing_calls.hpp"
#include "common/open_files.hpp"
#include "common/temporary_directory.hpp"

namespace
{

namespace fs = std::filesystem;

class PlainFile : public testing::Test
{
protected:
    PlainFile() { write_file(path("file"), "content"); }

    std::string path(const char *name) const { return folder_.file(name); }

    file_presence look(const char *name) const
    {
        struct stat status = {};
        return _vesk_look_at_file(path(name).c_str(), trusted_owners(path("r").c_str()), &status);
    }

    owned_file open(const char *name, int flags, link_rule rule = link_rule::refuse) const
    {
        return _vesk_open_plain_file(path(name).c_str(), flags, rule);
    }

private:
    temporary_directory folder_;
};

TEST_F(PlainFile, ARegularFileIsReadAndWritten)
{
    EXPECT_EQ(file_presence::plain, look("file"));
    char text[16] = {};
    EXPECT_EQ(7U, _vesk_read_some(open("file", O_RDONLY).get(), text, sizeof text));
    EXPECT_STREQ("content", text);
    {
        const owned_file more = open("file", O_WRONLY | O_APPEND);
        EXPECT_EQ(2U, fwrite("++", 1, 2, more.get()));
    }
    {
        const owned_file both = open("file", O_RDWR);
        EXPECT_EQ(1U, fwrite("C", 1, 1, both.get()));
    }
    EXPECT_EQ("Content++", read_file(path("file")));
}

TEST_F(PlainFile, NothingElseIsOpenedOrWaitedFor)
{
    const std::ptrdiff_t before = count_open_files();
    fs::create_symlink("file", path("link"));
    fs::create_directory(path("folder"));
    ASSERT_EQ(0, mkfifo(path("fifo").c_str(), 0600));
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const int socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
    snprintf(address.sun_path, sizeof address.sun_path, "%s", path("socket").c_str());
    ASSERT_EQ(0, bind(socket, reinterpret_cast<sockaddr *>(&address), sizeof address));
    (void)close(socket);
    for (const char *name : {"link", "folder", "fifo", "socket"}) {
        EXPECT_EQ(file_presence::foreign, look(name)) << name;
        EXPECT_FALSE(open(name, O_RDONLY)) << name;
        EXPECT_NE(0, errno) << name;
    }
    EXPECT_FALSE(_vesk_open_plain_file("/dev/zero", O_RDONLY));
    EXPECT_FALSE(open("fifo", O_RDONLY, link_rule::follow));
    // A person may give a link.
    EXPECT_TRUE(open("link", O_RDONLY, link_rule::follow));
    EXPECT_EQ(before, count_open_files());
}

TEST_F(PlainFile, AFolderIsToldFromOtherThings)
{
    fs::create_directory(path("folder"));
    EXPECT_FALSE(open("folder", O_RDONLY));
    EXPECT_EQ(EISDIR, errno);
}

TEST_F(PlainFile, WhatIsNotThereIsMissing)
{
    EXPECT_EQ(file_presence::missing, look("none"));
    EXPECT_EQ(file_presence::missing, look("file/below"));
    EXPECT_EQ(file_presence::missing, look(std::string(300, 'x').c_str()));
    constexpr int of_the_file = 2; // behind the look at the folder
    for (const int reason : {EIO, EACCES, ENOMEM, ELOOP}) {
        const failing_look failing(of_the_file, reason);
        EXPECT_EQ(file_presence::unknown, look("file")) << reason;
    }
    const failing_look interrupted(of_the_file, EINTR);
    EXPECT_EQ(file_presence::plain, look("file"));
}

TEST_F(PlainFile, TheOwnerOfAFolderThatCannotBeLookedAtIsNotKnown)
{
    EXPECT_TRUE(trusted_owners(path("r").c_str()).are_known());
    EXPECT_TRUE(trusted_owners(path("none/r").c_str()).are_known());
    {
        const failing_look failing(1, EIO);
        EXPECT_FALSE(trusted_owners(path("r").c_str()).are_known());
    }
    const failing_look interrupted(1, EINTR);
    EXPECT_TRUE(trusted_owners(path("r").c_str()).are_known());
}

TEST_F(PlainFile, SomebodyElsesFileIsForeign)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root gives files away";
    }
    ASSERT_EQ(0, chown(path("file").c_str(), 4321, 4321));
    EXPECT_EQ(file_presence::foreign, look("file"));
    // That of the owner of the folder is not.
    ASSERT_EQ(0, chown(fs::path(path("file")).parent_path().c_str(), 4321, 4321));
    EXPECT_EQ(file_presence::plain, look("file"));
}

TEST_F(PlainFile, AFileIsMadeOnlyWhereNothingIs)
{
    fs::create_symlink("target", path("link"));
    EXPECT_FALSE(_vesk_create_plain_file(path("file").c_str(), 0600));
    EXPECT_FALSE(_vesk_create_plain_file(path("link").c_str(), 0600));
    EXPECT_FALSE(fs::exists(path("target")));
    EXPECT_TRUE(_vesk_create_plain_file(path("new").c_str(), 0600));
    EXPECT_EQ("", read_file(path("new")));
    // Without a stream for it nothing stays.
    const failing_call failing(call_kind::open, 2);
    EXPECT_FALSE(_vesk_create_plain_file(path("other").c_str(), 0600));
    EXPECT_FALSE(fs::exists(path("other")));
}

TEST_F(PlainFile, AReadGoesOnBehindASignalButNotBehindAFailure)
{
    char text[16] = {};
    {
        const owned_file file = open("file", O_RDONLY);
        const interrupted_read interrupted(1);
        EXPECT_EQ(7U, _vesk_read_some(file.get(), text, sizeof text));
        EXPECT_EQ(0, ferror(file.get()));
    }
    const owned_file file = open("file", O_RDONLY);
    const failing_call failing(call_kind::read, 1);
    EXPECT_EQ(0U, _vesk_read_some(file.get(), text, sizeof text));
    EXPECT_NE(0, ferror(file.get()));
}

} // namespace
