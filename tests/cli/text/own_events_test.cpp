// Identities and gaps through the texts of events.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>

#include "text/own_events.hpp"

namespace
{

using namespace cli;

std::optional<gap> gap_of(const std::string &text)
{
    const auto event = parse_event_text(text);
    return event ? gap_in(*event) : std::nullopt;
}

TEST(Gap, GoesThroughTheTextOfAnEvent)
{
    const std::string text = gap_text({100, 160, -60, "late", 7});
    EXPECT_EQ(text, "gap from=100 to=160 seconds=-60 reason=late missed=7");
    const auto back = gap_of(text);
    ASSERT_TRUE(back);
    EXPECT_EQ(back->from, 100);
    EXPECT_EQ(back->to, 160);
    EXPECT_EQ(back->seconds, -60);
    EXPECT_EQ(back->reason, "late");
    EXPECT_EQ(back->missed, 7U);
}

TEST(Gap, WithoutAllItsValuesIsNone)
{
    for (const std::string text :
         {"gap", "gap from=1 to=2 seconds=1", "gap from=1 to=2 reason=stop",
          "gap from=x to=2 seconds=1 reason=stop", "gap from=1 to=2 seconds=1 reason=\"\"",
          "gap from=1 to=2 seconds=1 reason=late missed=-1",
          "start from=1 to=2 seconds=1 reason=stop"}) {
        EXPECT_FALSE(gap_of(text)) << text;
    }
}

TEST(Gap, HasALength)
{
    EXPECT_EQ(gap_length({0, 0, 3665, "stop", 0}), "1h1m5s");
    EXPECT_EQ(gap_length({0, 0, -90, "clock", 0}), "-1m30s");
    EXPECT_EQ(gap_length({0, 0, std::numeric_limits<int64_t>::min(), "clock", 0}),
              "-106751991167300d15h30m7s");
}

TEST(Gap, HasWordsForEachReason)
{
    EXPECT_EQ(gap_words("killed"), "the recorder was killed");
    EXPECT_EQ(gap_words("something\033[2J"), "something?[2J");
    EXPECT_EQ(gap_level("crash"), level_error);
    EXPECT_EQ(gap_level("something"), level_notice);
}

TEST(Id, IsThirtyTwoDigits)
{
    EXPECT_EQ(id_or_nothing("3d1219c7c4c5404aaa1f6d2a48adfda4"),
              "3d1219c7c4c5404aaa1f6d2a48adfda4");
    EXPECT_EQ(id_or_nothing("2b41000d-b18d-4cf7-907d-c8679e6b6be5"),
              "2b41000d-b18d-4cf7-907d-c8679e6b6be5");
    EXPECT_EQ(id_or_nothing("3D1219C7C4C5404AAA1F6D2A48ADFDA4"), "");
    EXPECT_EQ(id_or_nothing("3d1219c7c4c5404aaa1f6d2a48adfda4\n"), "");
    EXPECT_EQ(id_or_nothing("-3d1219c7c4c5404aaa1f6d2a48adfda4"), "");
}

} // namespace
