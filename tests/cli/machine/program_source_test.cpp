// Sensors from a program: its lines, its ends, and what a hostile one may cost.
#include <algorithm>
#include <cmath>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include "common/temporary_directory.hpp"
#include "machine/program_source.hpp"

namespace
{

using namespace cli;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using kind = program_notice::kind;

// The time by which a program has done what it was asked, on a clock that the test makes.
class ProgramSource : public ::testing::Test
{
protected:
    void run(const std::string &command) { source_.emplace(command); }
    // Looks until @p holds; real time passes, the made clock stands still.
    bool look_until(const std::function<bool()> &holds)
    {
        for (int i = 0; i < 1000; ++i) {
            source_->look(now_);
            for (program_notice &each : source_->take_notices(now_)) {
                notices_.push_back(std::move(each));
            }
            if (holds()) {
                return true;
            }
            pollfd ready = {source_->fd(), POLLIN, 0};
            poll(&ready, 1, 10);
        }
        return false;
    }
    bool look_for(kind what, std::size_t count = 1)
    {
        return look_until([&] { return number_of(what) >= count; });
    }
    std::size_t number_of(kind what) const
    {
        return static_cast<std::size_t>(
            std::count_if(notices_.begin(), notices_.end(),
                          [&](const program_notice &each) { return each.what == what; }));
    }
    const program_notice &last(kind what) const
    {
        return *std::find_if(notices_.rbegin(), notices_.rend(),
                             [&](const program_notice &each) { return each.what == what; });
    }
    readings sample(int64_t interval = 1)
    {
        readings result = {{"::mem.total_bytes"}, {1}};
        source_->add_to(result, now_, interval);
        return result;
    }
    bool has_values(std::size_t count)
    {
        return look_until([&] { return sample().names.size() == 1 + count; });
    }

    std::optional<program_source> source_;
    std::vector<program_notice> notices_;
    double now_ = 1000;
};

TEST_F(ProgramSource, AddsItsSensorsBehindThoseOfTheMachine)
{
    run("echo 20240101:00:00:00,::gpu.temp,::mem.total_bytes,::fan;"
        "echo 20240101:00:00:00,1,2,3; echo 20240101:00:00:01,4,5,6; exec sleep 60");
    ASSERT_TRUE(has_values(2));
    ASSERT_TRUE(look_until([&] { return sample().values.at(1) == 4; }));
    const readings found = sample();
    // The machine's own value of a name goes first.
    EXPECT_THAT(found.names, ElementsAre("::mem.total_bytes", "::gpu.temp", "::fan"));
    EXPECT_THAT(found.values, ElementsAre(1, 4, 6));
}

TEST_F(ProgramSource, ValuesAreMissingWhenNoNewOnesCome)
{
    run("echo 20240101:00:00:00,::a; echo 20240101:00:00:00,1; exec sleep 60");
    ASSERT_TRUE(has_values(1));
    now_ += 2;
    EXPECT_EQ(sample().values.at(1), 1);
    now_ += 1;
    EXPECT_TRUE(std::isnan(sample().values.at(1)));
    EXPECT_EQ(sample(10).values.at(1), 1);
}

TEST_F(ProgramSource, IsStartedAgainAfterGrowingPauses)
{
    run("exit 3");
    for (const uint64_t pause : {1U, 2U, 4U, 8U, 16U, 32U, 64U, 128U, 256U, 300U, 300U}) {
        notices_.clear();
        ASSERT_TRUE(look_for(kind::ended));
        EXPECT_EQ(last(kind::ended).text, "exit 3");
        EXPECT_EQ(last(kind::ended).count, pause);
        EXPECT_DOUBLE_EQ(source_->seconds_to_look(now_), static_cast<double>(pause));
        now_ += static_cast<double>(pause) - 0.5;
        source_->look(now_);
        EXPECT_EQ(source_->fd(), -1);
        now_ += 0.5;
    }
}

TEST_F(ProgramSource, IsStartedAgainSoonAfterAGoodLife)
{
    run("echo 20240101:00:00:00,::a; echo 20240101:00:00:00,7; exec sleep 60");
    for (int life = 0; life < 3; ++life) {
        notices_.clear();
        ASSERT_TRUE(look_for(kind::started));
        ASSERT_TRUE(look_until([&] { return sample().values.back() == 7; }));
        now_ += 100;
        kill(std::stoi(last(kind::started).text), SIGKILL);
        ASSERT_TRUE(look_for(kind::ended));
        EXPECT_EQ(last(kind::ended).text, "signal 9");
        EXPECT_EQ(last(kind::ended).count, 1U);
        now_ += 1;
    }
}

TEST_F(ProgramSource, LinesThatAreNoTelemetryAreCountedAndToldOnceAMinute)
{
    run("echo nonsense; echo 20240101:00:00:00,::a; echo 20240101:00:00:00,x;"
        "echo 20240101:00:00:00,7; exec sleep 60");
    ASSERT_TRUE(has_values(1));
    EXPECT_EQ(sample().values.at(1), 7);
    now_ += 60;
    look_until([&] { return true; });
    EXPECT_GE(number_of(kind::refused), 1U);
    EXPECT_LE(number_of(kind::refused), 2U);
}

TEST_F(ProgramSource, AnEndlessLineCostsBoundedMemoryAndTheNextLineHolds)
{
    run("head -c 600000 /dev/zero | tr '\\0' x; echo; echo 20240101:00:00:00,::a;"
        "echo 20240101:00:00:00,7; exec sleep 60");
    ASSERT_TRUE(has_values(1));
    EXPECT_EQ(sample().values.at(1), 7);
    EXPECT_THAT(last(kind::refused).text, HasSubstr("longer than 256 KiB"));
}

TEST_F(ProgramSource, AFloodIsReadUpToABoundBetweenTwoSamples)
{
    run("exec yes 20240101:00:00:00,1");
    source_->look(now_);
    ASSERT_TRUE(look_until([&] { return source_->fd() < 0; }));
    source_->look(now_);
    EXPECT_LT(source_->fd(), 0);
    sample();
    EXPECT_GE(source_->fd(), 0);
}

TEST_F(ProgramSource, TooManyNamesAreRefused)
{
    run("printf 20240101:00:00:00; seq -f ',::s%.0f' 2001 | tr -d '\\n'; echo; exec sleep 60");
    ASSERT_TRUE(look_for(kind::refused));
    EXPECT_EQ(last(kind::refused).text, "more than 2000 names");
    EXPECT_EQ(sample().names.size(), 1U);
}

TEST_F(ProgramSource, AProgramThatClosesItsOutputIsEnded)
{
    run("exec >&-; exec sleep 60");
    ASSERT_TRUE(look_for(kind::ended));
    EXPECT_EQ(last(kind::ended).text, "signal 9");
}

TEST_F(ProgramSource, GetsNoDescriptorsAndOrdinarySignals)
{
    const temporary_directory folder;
    const std::string path = folder.file("open");
    const int open_here = open("/dev/null", O_RDONLY); // without O_CLOEXEC
    ASSERT_GE(open_here, 0);
    signal(SIGPIPE, SIG_IGN);
    run("ls /proc/self/fd > '" + path + "'; grep SigIgn /proc/self/status >> '" + path + "'");
    ASSERT_TRUE(look_for(kind::ended));
    close(open_here);
    std::ifstream file(path);
    const std::string text((std::istreambuf_iterator<char>(file)), {});
    // 3 is the folder that ls reads.
    EXPECT_EQ(text, "0\n1\n2\n3\nSigIgn:\t0000000000000000\n");
}

TEST_F(ProgramSource, EndsWithTheSource)
{
    run("sleep 1000 & echo 20240101:00:00:00,::a; echo 20240101:00:00:00,$!; wait");
    ASSERT_TRUE(has_values(1));
    const auto grandchild = static_cast<pid_t>(sample().values.at(1));
    ASSERT_TRUE(look_for(kind::started));
    const pid_t child = std::stoi(last(kind::started).text);
    ASSERT_EQ(kill(grandchild, 0), 0);
    source_.reset();
    EXPECT_NE(kill(child, 0), 0);
    // It has been sent the signal. Nobody here reaps it, so it may stay as a zombie.
    std::string stat;
    for (int i = 0; i < 1000; ++i) {
        std::ifstream status("/proc/" + std::to_string(grandchild) + "/stat");
        stat.assign(std::istreambuf_iterator<char>(status), {});
        if (stat.empty() || stat.find(") Z ") != std::string::npos) {
            return;
        }
        poll(nullptr, 0, 10);
    }
    FAIL() << stat;
}

} // namespace
