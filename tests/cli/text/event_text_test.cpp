// The texts of a recording's own events: what goes in comes out, and nothing else is taken for one.
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>

#include "text/event_text.hpp"

namespace
{

using namespace cli;
using ::testing::Each;
using ::testing::Optional;
using ::testing::Truly;

constexpr auto is_shown = [](char c) { return c >= ' ' && c <= '~'; };

std::string text_of(std::string_view value)
{
    event_text text(event_word::kernel);
    text.add("text", value);
    return text.text();
}

TEST(EventText, IsAWordAndPairs)
{
    event_text text(event_word::gap);
    text.add("from", 1700000000);
    text.add("seconds", -5);
    text.add("reason", "killed");
    EXPECT_EQ(text.text(), "gap from=1700000000 seconds=-5 reason=killed");
}

TEST(EventText, QuotesWhatIsNotPlain)
{
    EXPECT_EQ(text_of("a.b/c:1%"), "kernel text=a.b/c:1%");
    EXPECT_EQ(text_of(""), "kernel text=\"\"");
    EXPECT_EQ(text_of("two words"), "kernel text=\"two words\"");
    EXPECT_EQ(text_of("say \"x\"=\\"), "kernel text=\"say \\\"x\\\"=\\\\\"");
    EXPECT_EQ(text_of("\033[31m\n\x80"), "kernel text=\"\\x1b[31m\\x0a\\x80\"");
}

TEST(EventText, OfAnyBytesIsShownAsItIsAndReadsBack)
{
    std::mt19937 random(1);
    for (int i = 0; i < 2000; ++i) {
        std::string value(random() % 60, '\0');
        for (char &c : value) {
            c = static_cast<char>(random() % (i % 2 == 0 ? 256 : 128));
        }
        const std::string text = text_of(value);
        EXPECT_THAT(text, Each(Truly(is_shown)));
        const auto parsed = parse_event_text(text);
        ASSERT_TRUE(parsed) << text;
        EXPECT_EQ(parsed->value("text"), value);
    }
}

TEST(EventText, LeavesOutWhatMakesItTooLong)
{
    event_text text(event_word::kernel);
    EXPECT_TRUE(text.add("a", std::string(5000, 'x')));
    EXPECT_FALSE(text.add("b", std::string(5000, 'x')));
    EXPECT_TRUE(text.add("c", "last"));
    const auto parsed = parse_event_text(text.text());
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->find("b"), nullptr);
    EXPECT_EQ(parsed->value("c"), "last");
    for (std::size_t i = 2; i < most_event_pairs; ++i) {
        EXPECT_TRUE(text.add(fmt::format("k{}", i), "1"));
    }
    EXPECT_FALSE(text.add("more", "1"));
    EXPECT_TRUE(parse_event_text(text.text()));
}

TEST(EventText, GivesNumbers)
{
    const auto parsed = parse_event_text("gap from=-12 to=1x seconds=99999999999999999999");
    ASSERT_TRUE(parsed);
    EXPECT_THAT(parsed->number("from"), Optional(-12));
    EXPECT_EQ(parsed->number("to"), std::nullopt);
    EXPECT_EQ(parsed->number("seconds"), std::nullopt);
    EXPECT_EQ(parsed->number("other"), std::nullopt);
}

class OtherText : public ::testing::TestWithParam<std::string>
{
};

TEST_P(OtherText, IsNotTakenForOne)
{
    EXPECT_FALSE(parse_event_text(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(EventText, OtherText,
                         ::testing::Values("", "door open", "started at=1", "Start at=1", "start ",
                                           "start  at=1", "start at", "start at=", "start at=1 ",
                                           "start at=1 at=2", "start =1", "start At=1",
                                           "start at=a b", "start at=a=b", "start at=\"a",
                                           "start at=\"a\"", "start at=\"\\", "start at=\"\\n\"",
                                           "start at=\"\\x4\"", "start at=\"\\x41\"",
                                           "start at=\"\\x1B\"", "start at=\"\033\"",
                                           "start at=\xc3\xa9", "start\tat=1", "start at=1\n",
                                           std::string("start a\0=1", 11), "end of the backup",
                                           "start a" + std::string(longest_event_key, 'b') + "=1"));

TEST(EventText, ThatIsHugeIsRefusedAtOnce)
{
    EXPECT_FALSE(parse_event_text("start a=" + std::string(longest_event_text, 'x')));
    std::string many = "start";
    for (std::size_t i = 0; i <= most_event_pairs; ++i) {
        many += fmt::format(" k{}=1", i);
    }
    EXPECT_FALSE(parse_event_text(many));
}

} // namespace
