// The page of `show` on boxes that recordings made.
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "box/box_writer.hpp"
#include "box/waiting_events.hpp"
#include "cli/quick_folder.hpp"
#include "cli/usual_values.hpp"
#include "common/temporary_directory.hpp"
#include "text/own_events.hpp"
#include "verbs/command_line.hpp"

namespace
{

using namespace cli;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::internal::CaptureStdout;
using ::testing::internal::GetCapturedStdout;

constexpr int64_t evening = 1795235400; // 2026-11-21T04:30:00Z

class Show : public ::testing::Test
{
protected:
    Show()
    {
        setenv("TZ", "UTC0", 1);
        tzset();
    }

    std::string base() const { return folder.file("box"); }

    // One sample a second, the events at their times.
    void record(int64_t count, const std::vector<event> &events)
    {
        box_writer writer(base(), {40, 4});
        writer.set_sensors(std::vector<std::string>{"::load", "::busy_percent"});
        waiting_events out(writer, base());
        for (int64_t i = 0; i < count; ++i) {
            writer.write(evening + i, std::vector<float>{static_cast<float>(i % 7), 50});
            for (const event &one : events) {
                if (one.time == evening + i) {
                    out.write(one);
                }
            }
        }
    }

    std::string page(const std::vector<std::string> &options = {})
    {
        std::vector<std::string> words = {"show", base()};
        words.insert(words.end(), options.begin(), options.end());
        CaptureStdout();
        code = run_command_line(words, "test");
        return GetCapturedStdout();
    }

    exit_code code = exit_done;
    temporary_directory folder{quick_folder()};
};

const std::string begin = "start host=web-7 kernel=6.1.0 version=1.0.0 interval=1 " + boot;

TEST_F(Show, TellsOfAMachineThatDied)
{
    record(200, {{1, evening, begin},
                 {1, evening + 121, "machine host=web-7 kernel=6.1.0 version=1.0.0 " + boot},
                 {3, evening + 150, gap_text({evening + 100, evening + 150, 50, "late", 9})},
                 {2, evening + 190,
                  "top seconds=60 processes=9 cpu1=97.5,12,stress memory1=1073741824,9,java"},
                 {5, evening + 192, "kernel priority=2 text=\"Out of memory\""},
                 {3, evening + 195, "door open"}});
    const std::string text = page();
    EXPECT_EQ(code, exit_done);
    EXPECT_THAT(text, HasSubstr("machine    web-7, kernel 6.1.0, vesk 1.0.0\n"));
    EXPECT_THAT(text,
                HasSubstr("verdict    ended without a clean stop on 21 November 2026 04:33:19 "
                          "UTC; 7 s\n           before, the kernel reported: Out of memory\n"));
    EXPECT_THAT(text, HasSubstr("files      healthy"));
    EXPECT_THAT(text, HasSubstr("2026-11-21T04:33:12Z  5  kernel: Out of memory\n"));
    EXPECT_THAT(text, HasSubstr("2026-11-21T04:33:10Z  2  most processor: stress 97.5 %, memory: "
                                "java 1 GiB\n"));
    EXPECT_THAT(text, HasSubstr("2026-11-21T04:33:15Z  3  door open\n"));
    EXPECT_THAT(text, HasSubstr("samples came too late"));
    EXPECT_THAT(text, HasSubstr("horizon"));
    EXPECT_THAT(text, HasSubstr("vesk suspects " + base()));
    EXPECT_THAT(text, Not(HasSubstr("vesk check")));
}

TEST_F(Show, TellsTheSameToPrograms)
{
    record(200, {{1, evening, begin},
                 {1, evening + 170, "machine host=web-7 " + boot},
                 {5, evening + 192, "kernel priority=2 text=\"Out of memory\""}});
    const auto object = nlohmann::json::parse(page({"--json"}));
    EXPECT_EQ(object["ending"]["how"], "cut short");
    EXPECT_EQ(object["ending"]["time"], "2026-11-21T04:33:19Z");
    EXPECT_EQ(object["ending"]["kernel"]["text"], "Out of memory");
    EXPECT_EQ(object["machine"]["host"], "web-7");
    EXPECT_EQ(object["health"], "healthy");
    EXPECT_EQ(object["raw"]["to"], "2026-11-21T04:33:19Z");
    EXPECT_EQ(object["sensors"], 2);
    const int64_t rows =
        object["raw"]["samples"].get<int64_t>() + object["history"]["intervals"].get<int64_t>();
    EXPECT_GT(rows, 40);
    EXPECT_TRUE(object["horizon"].is_string());
    EXPECT_EQ(object["unusual_sensors"].size(),
              object["unusual"].get<std::size_t>() + object["perhaps"].get<std::size_t>());
}

TEST_F(Show, TellsOfACleanEnd)
{
    record(20, {{1, evening, begin}, {1, evening + 19, "end reason=SIGTERM " + boot}});
    EXPECT_THAT(page(), HasSubstr("ended cleanly on 21 November 2026 04:30:19 UTC (SIGTERM)\n"));
}

// A tier that is damaged is damage of the box, to people and to programs.
TEST_F(Show, TellsOfTheHealthOfTheTiersInBothForms)
{
    record(20, {});
    const std::string tier = base() + ".1m";
    {
        box_writer writer(tier, {4, 2});
        writer.set_sensors(std::vector<std::string>{"::tier.1m.samples_count", "::load"});
        writer.write(evening - 60, std::vector<float>{60, 3});
    }
    EXPECT_THAT(page({"--width", "200"}), HasSubstr("; " + tier + ": healthy\n"));
    auto tiers = nlohmann::json::parse(page({"--json"}))["tiers"];
    ASSERT_EQ(tiers.size(), 1U);
    EXPECT_EQ(tiers[0],
              nlohmann::json({{"box", tier}, {"verdict", "healthy"}, {"text", "healthy"}}));
    std::filesystem::remove(tier + ".state");
    ::testing::internal::CaptureStderr();
    const std::string text = page({"--width", "200"});
    EXPECT_THAT(text, HasSubstr("; " + tier + ": repairable\n"));
    EXPECT_THAT(text, HasSubstr("vesk check"));
    EXPECT_EQ(code, exit_damaged);
    tiers = nlohmann::json::parse(page({"--json"}))["tiers"];
    EXPECT_THAT(::testing::internal::GetCapturedStderr(), HasSubstr(tier + ".state"));
    ASSERT_EQ(tiers.size(), 1U);
    EXPECT_EQ(tiers[0]["verdict"], "repairable");
}

// The names of sensors and boxes may be anything; the commands to run next can be copied anyway.
TEST_F(Show, CommandsCanBeCopiedToAShell)
{
    const std::string name = folder.file("it's a box");
    {
        box_writer writer(name, {4, 2});
        writer.set_sensors(std::vector<std::string>{"::a"});
        writer.write(evening, std::vector<float>{1});
    }
    CaptureStdout();
    (void)run_command_line({"show", name}, "test");
    EXPECT_THAT(GetCapturedStdout(), HasSubstr("/it'\\''s a box'\n"));
}

} // namespace
