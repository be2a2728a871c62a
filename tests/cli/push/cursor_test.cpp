// That a cursor is believed only as it was written, for its own box and target.
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <zlib.h>

#include "common/temporary_directory.hpp"
#include "process/failure.hpp"
#include "push/cursor.hpp"

namespace
{

using namespace cli;

push_cursor some_cursor()
{
    return {{12, 345}, -7, 8, known_interval{-9, 10, 8, 11}, "host % \n site"};
}

std::string content_of(const std::string &path)
{
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

TEST(PushCursor, IsReadBackAsItWasWritten)
{
    const std::string text = cursor_text(some_cursor(), "a box", "target");
    EXPECT_EQ(cursor_in(text, "a box", "target"), some_cursor());
}

TEST(PushCursor, WithoutAnIntervalIsReadBack)
{
    push_cursor cursor = some_cursor();
    cursor.newest_interval.reset();
    EXPECT_EQ(cursor_in(cursor_text(cursor, "box", "target"), "box", "target"), cursor);
}

TEST(PushCursor, WithAnythingElseForItsIntervalIsNone)
{
    const auto crc_is_right = [](std::string text) {
        text.resize(text.rfind("crc32 "));
        const auto sum =
            crc32(0, reinterpret_cast<const Bytef *>(text.data()), static_cast<uInt>(text.size()));
        return text + fmt::format("crc32 {:08x}\n", sum);
    };
    const std::string text = cursor_text(some_cursor(), "box", "target");
    const std::string interval = "newest 8 11 -9 10\n";
    ASSERT_NE(text.find(interval), std::string::npos);
    EXPECT_EQ(crc_is_right(text), text);
    for (const char *other :
         {"newest 8 11 -9\n", "newest 8 11 -9 10 \n", "newest 8 11 -9 10 1\n",
          "newest 8  11 -9 10\n", "newest\n", "newest \n", "newest 8\n", "newest nothing\n",
          "newest 8 11 x 10\n", "newest 4294967296 11 -9 10\n", ""}) {
        std::string changed = text;
        changed.replace(changed.find(interval), interval.size(), other);
        EXPECT_EQ(cursor_in(crc_is_right(changed), "box", "target"), std::nullopt) << other;
    }
}

TEST(PushCursor, OfAnotherBoxOrTargetIsNone)
{
    const std::string text = cursor_text(some_cursor(), "box", "target");
    EXPECT_EQ(cursor_in(text, "box2", "target"), std::nullopt);
    EXPECT_EQ(cursor_in(text, "box", "target2"), std::nullopt);
}

TEST(PushCursor, TornAnywhereIsNone)
{
    const std::string text = cursor_text(some_cursor(), "box", "target");
    for (std::size_t size = 0; size < text.size(); ++size) {
        EXPECT_EQ(cursor_in(text.substr(0, size), "box", "target"), std::nullopt) << size;
    }
    EXPECT_EQ(cursor_in(text + "x", "box", "target"), std::nullopt);
}

TEST(PushCursor, WithAnyBitWrongIsNone)
{
    const std::string text = cursor_text(some_cursor(), "box", "target");
    for (std::size_t bit = 0; bit < 8 * text.size(); ++bit) {
        std::string other = text;
        other[bit / 8] = static_cast<char>(other[bit / 8] ^ (1 << (bit % 8)));
        EXPECT_EQ(cursor_in(other, "box", "target"), std::nullopt) << bit;
    }
}

TEST(PushCursor, AFileKeepsTheLatest)
{
    const temporary_directory folder;
    const std::string inside = folder.file("deep/er");
    {
        const cursor_file file(inside, "box", "target");
        EXPECT_EQ(file.read(), std::nullopt);
        file.write({});
        file.write(some_cursor());
    }
    const cursor_file again(inside, "box", "target");
    EXPECT_EQ(again.read(), some_cursor());
    const cursor_file other(inside, "box2", "target");
    EXPECT_EQ(other.read(), std::nullopt);
}

TEST(PushCursor, OneProcessPushesABox)
{
    const temporary_directory folder;
    const cursor_file file(folder.file("s"), "box", "target");
    EXPECT_THROW(cursor_file(folder.file("s"), "box", "target"), failure);
    EXPECT_NO_THROW(cursor_file(folder.file("s"), "box", "other"));
}

TEST(PushCursor, ALinkUnderItsNameIsNeitherReadNorWrittenThrough)
{
    const temporary_directory folder;
    const cursor_file file(folder.file("s"), "box", "target");
    file.write(some_cursor());
    const std::string elsewhere = folder.file("elsewhere");
    std::filesystem::rename(file.path(), elsewhere);
    std::filesystem::create_symlink(elsewhere, file.path());
    EXPECT_EQ(file.read(), std::nullopt);
    const std::string before = content_of(elsewhere);
    file.write({});
    EXPECT_EQ(content_of(elsewhere), before);
    EXPECT_EQ(file.read(), push_cursor());
}

TEST(PushCursor, WhatIsLeftOfAWriteDoesNotDisturbTheNext)
{
    const temporary_directory folder;
    const cursor_file file(folder.file("s"), "box", "target");
    std::ofstream(file.path() + ".new") << "half a cur";
    file.write(some_cursor());
    EXPECT_EQ(file.read(), some_cursor());
}

TEST(PushCursor, AHugeFileIsNone)
{
    const temporary_directory folder;
    const cursor_file file(folder.file("s"), "box", "target");
    std::ofstream(file.path()) << std::string(1'000'000, 'x');
    EXPECT_EQ(file.read(), std::nullopt);
}

} // namespace
