// Pages are made once for each change of a box, whoever asks.
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>
#include <vector>

#include "box/box_writer.hpp"
#include "cli/quick_folder.hpp"
#include "common/temporary_directory.hpp"
#include "serve/live_page.hpp"

namespace
{

using namespace cli;
using ::testing::HasSubstr;

class LivePage : public ::testing::Test
{
protected:
    LivePage()
    {
        box_writer writer(base(), {4, 2});
        writer.set_sensors(std::vector<std::string>{"::a"});
        writer.write(1704067200, std::vector<float>{1});
    }

    std::string base() const { return folder.file("box"); }

    // Another page than this one; a page is not made anew at once.
    reply page_behind(const reply &before)
    {
        reply next = page.get();
        for (int i = 0; i < 200 && next.body == before.body; ++i) {
            usleep(100'000);
            next = page.get();
        }
        return next;
    }

    bool is_to_end = false;
    temporary_directory folder{quick_folder()};
    box_stream stream{base(), {}, "abc"};
    live_page page{base(), {}, stream, [this] { return is_to_end; }};
};

TEST_F(LivePage, IsMadeOnceForAllWhileTheBoxStaysAsItIs)
{
    const reply first = page.get();
    EXPECT_EQ(first.status, 200);
    EXPECT_THAT(*first.body, HasSubstr("\"follows\":\"abc-1.1.1\""));
    usleep(1'100'000); // it may be made again from now on
    EXPECT_EQ(page.get().body, first.body);
    {
        box_writer writer(base(), {4, 2});
        writer.set_sensors(std::vector<std::string>{"::a"});
        writer.write(1704067201, std::vector<float>{2});
    }
    const reply second = page.get();
    EXPECT_NE(second.body, first.body);
    EXPECT_THAT(*second.body, HasSubstr("\"follows\":\"abc-1.1.2\""));
}

TEST_F(LivePage, IsNotFinishedWhereTheServerIsToEnd)
{
    is_to_end = true;
    EXPECT_EQ(page.get().status, 503);
}

TEST_F(LivePage, TellsWhyThereIsNone)
{
    box_stream other(folder.file("none"), {}, "abc");
    live_page nothing(folder.file("none"), {}, other, [] { return false; });
    const reply answer = nothing.get();
    EXPECT_EQ(answer.status, 503);
    EXPECT_THAT(*answer.body, HasSubstr("cannot be shown now"));
}

// Where watchers would wait meanwhile, who asks for the page waits alone.
TEST_F(LivePage, IsMadeBesideTheServerWhereThatIsSlowAndOthersWatch)
{
    live_page slow(
        base(), {}, stream, [this] { return is_to_end; }, -1);
    const reply first = slow.get();
    EXPECT_FALSE(first.is_late) << "nobody watches";
    stream.place_behind("abc-1.1.1");
    {
        box_writer writer(base(), {4, 2});
        writer.set_sensors(std::vector<std::string>{"::a"});
        writer.write(1704067201, std::vector<float>{2});
    }
    usleep(1'100'000); // it may be made again from now on
    reply second = slow.get();
    EXPECT_TRUE(second.is_late);
    EXPECT_GE(slow.awaited(), 0);
    for (int i = 0; i < 600 && second.is_late; ++i) {
        usleep(100'000);
        second = slow.get();
    }
    EXPECT_EQ(second.status, 200);
    ASSERT_TRUE(second.body);
    EXPECT_THAT(*second.body, HasSubstr("\"follows\":\"abc-1.1.2\""));
    EXPECT_EQ(slow.awaited(), -1);
}

TEST_F(LivePage, ThatCannotBeMadeBesideTheServerTellsWhy)
{
    live_page slow(
        base(), {}, stream, [this] { return is_to_end; }, -1);
    (void)slow.get();
    stream.place_behind("abc-1.1.1");
    for (const auto &file : std::filesystem::directory_iterator(folder.path())) {
        std::filesystem::remove(file);
    }
    usleep(1'100'000); // it may be made again from now on
    reply answer = slow.get();
    for (int i = 0; i < 600 && answer.is_late; ++i) {
        usleep(100'000);
        answer = slow.get();
    }
    EXPECT_EQ(answer.status, 503);
    EXPECT_THAT(*answer.body, HasSubstr("there is no such box"));
}

// A row of a tier is a change of the page, and the samples of the box follow behind it as ever.
TEST_F(LivePage, ShowsTheTiersOfTheBox)
{
    const auto write_rows = [this](int64_t first, float value) {
        box_writer writer(base() + ".1m", {4, 2});
        writer.set_sensors(std::vector<std::string>{"::tier.1m.samples_count", "::a"});
        for (int64_t i = 0; i < 3; ++i) {
            writer.write(first + 60 * i, std::vector<float>{60, value});
        }
    };
    write_rows(1704060000, 4711);
    const reply first = page.get();
    EXPECT_EQ(first.status, 200);
    EXPECT_THAT(*first.body, HasSubstr("4711"));
    EXPECT_THAT(*first.body, HasSubstr("\"follows\":\"abc-1.1.1\""));
    EXPECT_THAT(*first.body, HasSubstr("box.1m: healthy"));
    write_rows(1704060600, 8150);
    const reply second = page_behind(first);
    EXPECT_THAT(*second.body, HasSubstr("8150"));
    std::filesystem::remove(base() + ".1m.state");
    testing::internal::CaptureStderr();
    const reply third = page_behind(second);
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("box.1m.state"));
    EXPECT_EQ(third.status, 200);
    EXPECT_THAT(*third.body, HasSubstr("box.1m: repairable"));
}

} // namespace
