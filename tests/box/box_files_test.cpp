// The names of the buffer files of a box, and how they are found in its folder.
#include <cerrno>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>

#include <vesk/error.h>
#include <vesk/vesk_buffer.h>

#include "box/box_files.hpp"
#include "common/failing_calls.hpp"
#include "common/temporary_directory.hpp"

namespace
{

namespace fs = std::filesystem;

TEST(BufferNames, AreReadAsTheyAreWritten)
{
    char path[max_filename];
    for (const uint32_t kind : {VESK_BUFFER_TYPE_CURRENT, VESK_BUFFER_TYPE_HIST}) {
        for (const uint32_t number : {0U, 7U, UINT32_MAX}) {
            for (const char *suffix : {"", ".torn"}) {
                ASSERT_TRUE(_vesk_format_buffer_name(path, "d/r", {kind, number}, suffix));
                buffer_name name;
                ASSERT_TRUE(_vesk_parse_buffer_name(path, "d/r", &name, suffix)) << path;
                EXPECT_EQ(kind, name.kind);
                EXPECT_EQ(number, name.number);
            }
        }
    }
    ASSERT_TRUE(_vesk_format_buffer_name(path, "r", {VESK_BUFFER_TYPE_HIST, 12}));
    EXPECT_STREQ("r.12.hbuf.z", path);
}

TEST(BufferNames, HaveOneSpelling)
{
    buffer_name name;
    for (const char *path :
         {"r.01.cbuf.z", "r.+1.cbuf.z", "r. 1.cbuf.z", "r.-1.cbuf.z", "r.4294967296.cbuf.z",
          "r.1.cbuf.zz", "r.1.cbuf", "r.1.dbuf.z", "r..cbuf.z", "s.1.cbuf.z", "r1.cbuf.z", "r", "",
          "r.1.cbuf.z.torn", "x/r.1.cbuf.z"}) {
        EXPECT_FALSE(_vesk_parse_buffer_name(path, "r", &name)) << path;
    }
}

TEST(BufferNames, ThatAreTooLongAreRefused)
{
    char path[max_filename];
    const std::string base(max_filename - std::string(".1.cbuf.z").size() - 1, 'r');
    EXPECT_TRUE(_vesk_format_buffer_name(path, base.c_str(), {VESK_BUFFER_TYPE_CURRENT, 1}));
    EXPECT_FALSE(_vesk_format_buffer_name(path, base.c_str(), {VESK_BUFFER_TYPE_CURRENT, 10}));
}

TEST(BufferNames, AreListedByNumber)
{
    const temporary_directory folder;
    for (const char *name : {"r.10.cbuf.z", "r.9.hbuf.z", "r.9.cbuf.z", "r.state", "s.1.cbuf.z",
                             "r.3.cbuf.z.torn", "r.03.cbuf.z"}) {
        write_file(folder.file(name), "");
    }
    buffer_names names;
    ASSERT_EQ(0, _vesk_list_buffer_names(folder.file("r").c_str(), "", &names));
    ASSERT_EQ(3U, names.size());
    EXPECT_EQ(9U, names[0].number);
    EXPECT_EQ(VESK_BUFFER_TYPE_CURRENT, names[0].kind);
    EXPECT_EQ(9U, names[1].number);
    EXPECT_EQ(VESK_BUFFER_TYPE_HIST, names[1].kind);
    EXPECT_EQ(10U, names[2].number);
}

TEST(BufferNames, OfAFolderThatIsNotThereOrNone)
{
    const temporary_directory folder;
    write_file(folder.file("file"), "");
    buffer_names names;
    EXPECT_EQ(QE_ERROR_OPEN,
              _vesk_list_buffer_names((folder.path() + "/no/r").c_str(), "", &names));
    EXPECT_EQ(QE_ERROR_IO,
              _vesk_list_buffer_names((folder.path() + "/file/r").c_str(), "", &names));
}

TEST(BufferNames, OfAFolderThatCannotBeReadToItsEndAreNoList)
{
    const temporary_directory folder;
    write_file(folder.file("r.1.cbuf.z"), "");
    for (int n = 1;; ++n) {
        buffer_names names;
        const failing_call failing(call_kind::read, n);
        const int result = _vesk_list_buffer_names(folder.file("r").c_str(), "", &names);
        if (!failing_call::happened()) {
            EXPECT_EQ(0, result);
            EXPECT_GT(n, 2);
            break;
        }
        EXPECT_EQ(QE_ERROR_IO, result) << n;
    }
}

TEST(FolderLength, EndsBehindTheLastSlash)
{
    EXPECT_EQ(0U, _vesk_folder_length("r"));
    EXPECT_EQ(1U, _vesk_folder_length("/r"));
    EXPECT_EQ(4U, _vesk_folder_length("a/b/r"));
}

TEST(SameFile, IsOneThatBothPathsLeadTo)
{
    const temporary_directory folder;
    write_file(folder.file("a"), "");
    write_file(folder.file("b"), "");
    fs::create_hard_link(folder.file("a"), folder.file("same"));
    fs::create_symlink("loop", folder.file("loop"));
    const std::string a = folder.file("a");
    EXPECT_EQ(1, _vesk_is_same_file(a.c_str(), folder.file("same").c_str()));
    for (const char *other : {"b", "missing", "a/x", "loop"}) {
        EXPECT_EQ(0, _vesk_is_same_file(a.c_str(), folder.file(other).c_str())) << other;
        EXPECT_EQ(0, _vesk_is_same_file(folder.file(other).c_str(), a.c_str())) << other;
    }
}

TEST(SameFile, IsAFailureWhereItCannotBeTold)
{
    const temporary_directory folder;
    write_file(folder.file("a"), "");
    const std::string a = folder.file("a");
    for (int n = 1; n <= 2; ++n) {
        {
            const failing_look failing(n, EIO);
            EXPECT_EQ(QE_ERROR_IO, _vesk_is_same_file(a.c_str(), a.c_str()));
        }
        const failing_look interrupted(n, EINTR);
        EXPECT_EQ(1, _vesk_is_same_file(a.c_str(), a.c_str()));
    }
}

} // namespace
