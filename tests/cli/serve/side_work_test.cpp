// Work beside a process gives back what it made, and neither holds the files of the process nor
// outlives it.
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

#include "serve/side_work.hpp"

namespace
{

using namespace cli;

void wait_for(const side_work &work)
{
    pollfd end = {work.awaited(), POLLIN, 0};
    ASSERT_EQ(poll(&end, 1, 60'000), 1);
}

// Other tests of this program may have left processes behind.
std::string children()
{
    std::string numbers;
    std::getline(std::ifstream("/proc/thread-self/children"), numbers);
    return numbers;
}

TEST(SideWork, GivesBackAllBytes)
{
    const std::string before = children();
    std::string text;
    for (int i = 0; i < 1'000'000; ++i) {
        text += static_cast<char>(i % 251);
    }
    side_work work([&] { return text; });
    wait_for(work);
    EXPECT_TRUE(work.is_over());
    const auto result = work.result();
    ASSERT_TRUE(result);
    EXPECT_TRUE(*result == text);
    EXPECT_EQ(children(), before) << "a process is left";
}

TEST(SideWork, ThatDiesHasNoResult)
{
    side_work killed([]() -> std::string { abort(); });
    wait_for(killed);
    EXPECT_FALSE(killed.result());
    side_work thrown([]() -> std::string { throw 1; });
    wait_for(thrown);
    EXPECT_FALSE(thrown.result());
}

TEST(SideWork, EndsWithItsObject)
{
    const std::string before = children();
    {
        const side_work endless([]() -> std::string {
            for (;;) {
                pause();
            }
        });
        EXPECT_FALSE(endless.is_over());
    }
    EXPECT_EQ(children(), before) << "a process is left";
}

// A client whose connection ends here must see that, though the work goes on.
TEST(SideWork, HoldsNoSocketOfTheProcess)
{
    int sockets[2] = {-1, -1};
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, sockets), 0);
    const side_work endless([]() -> std::string {
        for (;;) {
            pause();
        }
    });
    close(sockets[0]);
    pollfd other = {sockets[1], POLLIN, 0};
    ASSERT_EQ(poll(&other, 1, 60'000), 1);
    char byte = 0;
    EXPECT_EQ(read(sockets[1], &byte, 1), 0);
    close(sockets[1]);
}

} // namespace
