// Whether there is anything of a box: only what is certain counts as nothing.
#include <cerrno>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>

#include <vesk/error.h>

#include "box/box_presence.hpp"
#include "common/failing_calls.hpp"
#include "common/temporary_directory.hpp"

namespace
{

namespace fs = std::filesystem;

TEST(BoxPresence, AnyFileOfABoxIsOne)
{
    for (const char *name : {"r.state", "r.state.bak", "r.1.cbuf.z", "r.7.hbuf.z"}) {
        const temporary_directory folder;
        const std::string base = folder.file("r");
        EXPECT_EQ(0, _vesk_find_box(base.c_str()));
        write_file(folder.file(name), "");
        EXPECT_EQ(1, _vesk_find_box(base.c_str())) << name;
    }
}

TEST(BoxPresence, OtherFilesAreNone)
{
    const temporary_directory folder;
    for (const char *name : {"r", "r.lock", "r.state.new", "r.1.cbuf.z.torn", "rr.state"}) {
        write_file(folder.file(name), "");
    }
    EXPECT_EQ(0, _vesk_find_box(folder.file("r").c_str()));
}

// A link may be all that was left where the files had to be moved to another disk.
TEST(BoxPresence, ALinkThatLeadsNowhereIsSomething)
{
    const temporary_directory folder;
    fs::create_symlink("gone", folder.file("r.state"));
    EXPECT_EQ(1, _vesk_find_box(folder.file("r").c_str()));
}

TEST(BoxPresence, WhatCannotBeToldIsAFailure)
{
    const temporary_directory folder;
    const std::string base = folder.file("r");
    for (int n = 1; n <= 2; ++n) {
        const failing_look failing(n, EIO);
        EXPECT_EQ(QE_ERROR_OPEN, _vesk_find_box(base.c_str())) << n;
    }
    for (int n = 1; n <= 2; ++n) {
        const failing_look interrupted(n, EINTR);
        EXPECT_EQ(0, _vesk_find_box(base.c_str())) << n;
    }
    const failing_call failing(call_kind::read, 1);
    EXPECT_EQ(QE_ERROR_IO, _vesk_find_box(base.c_str()));
}

TEST(BoxPresence, ANameThatIsTooLongIsRefused)
{
    EXPECT_EQ(QE_ERROR_LIMIT, _vesk_find_box(std::string(5000, 'r').c_str()));
}

} // namespace
