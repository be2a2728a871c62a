// Pages are made once for each change of a box, whoever asks.
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

} // namespace
