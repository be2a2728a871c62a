// Durations as people write them: "1h30m" becomes seconds and back, anything else is refused.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "process/failure.hpp"
#include "text/duration.hpp"

namespace
{

using namespace cli;
using ::testing::HasSubstr;

std::string refusal_of_duration(const char *text)
{
    try {
        parse_duration(text, "--interval");
    } catch (const failure &reason) {
        EXPECT_EQ(reason.code(), exit_usage);
        return reason.what();
    }
    return "(accepted)";
}

TEST(Duration, ReadsWholeNumbersWithAUnit)
{
    EXPECT_EQ(parse_duration("1s", ""), 1);
    EXPECT_EQ(parse_duration("30", ""), 30);
    EXPECT_EQ(parse_duration("5m", ""), 300);
    EXPECT_EQ(parse_duration("5min", ""), 300);
    EXPECT_EQ(parse_duration("2h", ""), 7200);
    EXPECT_EQ(parse_duration("1d", ""), 86400);
    EXPECT_EQ(parse_duration("2w", ""), 2 * 7 * 86400);
}

TEST(Duration, AddsUpUnitsFromTheLargestToTheSmallest)
{
    EXPECT_EQ(parse_duration("1h30m", ""), 5400);
    EXPECT_EQ(parse_duration("1w2d3h4min5s", ""), 7 * 86400 + 2 * 86400 + 3 * 3600 + 4 * 60 + 5);
    EXPECT_EQ(parse_duration("0h5m", ""), 300);
}

TEST(Duration, IsPrintedAsItIsRead)
{
    EXPECT_EQ(format_duration(0), "0s");
    EXPECT_EQ(format_duration(45), "45s");
    EXPECT_EQ(format_duration(5400), "1h30m");
    EXPECT_EQ(format_duration(2 * 86400 + 1), "2d1s");
    for (const int64_t seconds : {1, 59, 60, 3599, 3600, 86399, 86400, 31536000, 999999999}) {
        EXPECT_EQ(parse_duration(format_duration(seconds), ""), seconds);
    }
}

TEST(Duration, RefusesUnitsInTheWrongOrder)
{
    for (const char *text : {"30m1h", "1h1h", "1h30", "1h-30m", "1h30m ", "1h+30m", "h1"}) {
        EXPECT_THAT(refusal_of_duration(text), HasSubstr("not a duration such as 30s")) << text;
    }
}

TEST(Duration, RefusesFractionsOfASecond)
{
    for (const char *text : {"500ms", "1.5s", "0.1", "10us", "1.0s", "1m1.5s"}) {
        EXPECT_THAT(refusal_of_duration(text), HasSubstr("timestamps are whole seconds")) << text;
    }
}

TEST(Duration, RefusesLessThanASecond)
{
    EXPECT_THAT(refusal_of_duration("0"), HasSubstr("at least 1s"));
    EXPECT_THAT(refusal_of_duration("-5s"), HasSubstr("at least 1s"));
    EXPECT_THAT(refusal_of_duration("0h0m"), HasSubstr("at least 1s"));
}

TEST(Duration, RefusesWhatIsNoDuration)
{
    for (const char *text : {"", "s", "ten", "1y", "5 s", "99999999999999999999s"}) {
        EXPECT_THAT(refusal_of_duration(text), HasSubstr("not a duration such as 30s")) << text;
    }
}

TEST(Duration, RefusesCenturies)
{
    EXPECT_THAT(refusal_of_duration("9223372036854775807d"), HasSubstr("longer than a century"));
    EXPECT_THAT(refusal_of_duration("5228w9223372036854775807s"),
                HasSubstr("longer than a century"));
}

TEST(Duration, NamesTheOptionInItsRefusal)
{
    EXPECT_EQ(refusal_of_duration("500ms"),
              "--interval 500ms: timestamps are whole seconds, so this must be "
              "too");
}

} // namespace
