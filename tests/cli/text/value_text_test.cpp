// Numbers in text telemetry: their spellings, what is missing, what single precision cannot hold.
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <random>

#include "text/value_text.hpp"

namespace
{

using namespace cli;
using ::testing::HasSubstr;

std::string written(float value)
{
    std::string text;
    append_value(text, value);
    return text;
}

template <typename Call>
std::string reason_of(Call call)
{
    try {
        call();
    } catch (const bad_text &reason) {
        return reason.what();
    }
    return "(accepted)";
}

std::string refusal_of_value(const std::string &text)
{
    return reason_of([&] { parse_value(text); });
}

std::string refusal_of_time(const std::string &text)
{
    return reason_of([&] { parse_time(text); });
}

class time_zone
{
public:
    explicit time_zone(const char *zone)
    {
        setenv("TZ", zone, 1);
        tzset();
    }
    time_zone(const time_zone &) = delete;
    time_zone &operator=(const time_zone &) = delete;
    ~time_zone()
    {
        unsetenv("TZ");
        tzset();
    }
};

TEST(ValueText, ReadsDecimalNumbers)
{
    EXPECT_EQ(parse_value("1.5"), 1.5F);
    EXPECT_EQ(parse_value("-0.25"), -0.25F);
    EXPECT_EQ(parse_value("+2"), 2.0F);
    EXPECT_EQ(parse_value("3."), 3.0F);
    EXPECT_EQ(parse_value(".5"), 0.5F);
    EXPECT_EQ(parse_value("1e3"), 1000.0F);
    EXPECT_EQ(parse_value("2.5E-1"), 0.25F);
}

// What parse_value() makes of a field: the bits of the number, or the reason of its refusal.
template <typename Take>
std::string outcome_of(Take take)
{
    uint32_t bits = 0;
    const std::string reason = reason_of([&] { bits = std::bit_cast<uint32_t>(take()); });
    return reason + " " + std::to_string(bits);
}

void expect_taken_as_parsed(const std::string &field)
{
    const std::string wanted = outcome_of([&] { return parse_value(field); });
    const bool is_good = wanted.starts_with("(accepted)");
    for (const char *behind : {"", ",", ",7", ",,"}) {
        const std::string line = field + behind;
        std::string_view rest = line;
        EXPECT_EQ(outcome_of([&] { return take_value(rest); }), wanted) << line;
        EXPECT_EQ(rest, is_good ? std::string_view(behind) : std::string_view(line));
    }
}

TEST(ValueText, TakesWhatStandsBeforeTheNextComma)
{
    for (const char *field :
         {"0",         "-0",     "1.5",     "-0.25", "+2",     "3.",       ".5",   "-.5",
          "1e3",       "2.5E-1", "  7.5\t", " -1",   "1 ",     "nan",      "-nan", "inf",
          "-Infinity", "1e39",   "-3.5e38", "1e-60", "-1e-45", "16777217", "",     " ",
          "-",         "+",      ".",       "--1",   "+-1",    "1e",       "1.5x", "0x10",
          "7 5",       "1.2.3",  "12:30",   "nan(5)"}) {
        expect_taken_as_parsed(field);
    }
    std::mt19937 draw(1);
    for (int i = 0; i < 10000; ++i) {
        std::string field;
        append_value(field, std::bit_cast<float>(static_cast<uint32_t>(draw())));
        expect_taken_as_parsed(field);
    }
}

TEST(ValueText, IgnoresBlanksAroundANumber)
{
    EXPECT_EQ(parse_value("  7.5\t"), 7.5F);
    EXPECT_THAT(refusal_of_value("7 5"), HasSubstr("is not a number"));
}

TEST(ValueText, ReadsTheSpellingsOfMissingAndInfinite)
{
    EXPECT_TRUE(std::isnan(parse_value("nan")));
    EXPECT_TRUE(std::isnan(parse_value("NaN")));
    EXPECT_TRUE(std::isnan(parse_value("-nan")));
    EXPECT_EQ(parse_value("inf"), std::numeric_limits<float>::infinity());
    EXPECT_EQ(parse_value("-Infinity"), -std::numeric_limits<float>::infinity());
}

TEST(ValueText, RefusesWhatIsNoDecimalNumber)
{
    for (const char *text : {"abc", "1.5x", "0x10", "1,5", "--1", "+-1", "-", "+", ".", "1e", "e5",
                             "nan(5)", "n/a", "null", "1.2.3", "12:30"}) {
        EXPECT_THAT(refusal_of_value(text), HasSubstr("is not a number")) << text;
        EXPECT_FALSE(is_value(text)) << text;
    }
}

TEST(ValueText, TellsAnEmptyValueFromANumber)
{
    EXPECT_THAT(refusal_of_value(""), HasSubstr("is empty"));
    EXPECT_THAT(refusal_of_value("  "), HasSubstr("is empty"));
}

TEST(ValueText, RefusesNumbersBeyondSinglePrecision)
{
    EXPECT_THAT(refusal_of_value("1e39"), HasSubstr("too large"));
    EXPECT_THAT(refusal_of_value("-3.5e38"), HasSubstr("too large"));
    EXPECT_THAT(refusal_of_value("1e999"), HasSubstr("too large"));
    EXPECT_TRUE(is_value("1e39"));
    EXPECT_EQ(parse_value("3.4028235e38"), std::numeric_limits<float>::max());
}

TEST(ValueText, RoundsNumbersThatAreTooSmall)
{
    EXPECT_EQ(parse_value("1e-60"), 0.0F);
    EXPECT_EQ(parse_value("1e-45"), std::numeric_limits<float>::denorm_min());
}

TEST(ValueText, ShortensLongTextsInItsReasons)
{
    EXPECT_LT(refusal_of_value(std::string(5000, 'x')).size(), 100U);
}

TEST(ValueText, KeepsControlCharactersOutOfItsReasons)
{
    EXPECT_EQ(refusal_of_value("\033[31m"), "'?[31m' is not a number");
}

TEST(ValueText, WritesTheShortestDecimal)
{
    EXPECT_EQ(written(0.1F), "0.1");
    EXPECT_EQ(written(1.0F), "1");
    EXPECT_EQ(written(-0.0F), "-0");
    EXPECT_EQ(written(16777216.0F), "16777216");
    EXPECT_EQ(written(1e20F), "1e+20");
    EXPECT_EQ(written(std::nanf("")), "nan");
    EXPECT_EQ(written(-std::nanf("")), "nan");
    EXPECT_EQ(written(-std::numeric_limits<float>::infinity()), "-inf");
}

TEST(ValueText, WhatItWritesReadsBackAsTheSameBits)
{
    std::mt19937 bits(20240101);
    for (int i = 0; i < 200000; ++i) {
        const auto pattern = static_cast<uint32_t>(bits());
        const auto value = std::bit_cast<float>(pattern);
        if (!std::isnan(value)) {
            ASSERT_EQ(std::bit_cast<uint32_t>(parse_value(written(value))), pattern)
                << written(value);
        }
    }
}

TEST(TimeText, ReadsAndWritesTheSameTime)
{
    const time_zone utc("UTC0");
    EXPECT_EQ(parse_time("20240229:23:59:59"), 1709251199);
    EXPECT_EQ(format_time(1709251199), "20240229:23:59:59");
    EXPECT_EQ(parse_time("19691231:23:59:59"), -1);
}

TEST(TimeText, UsesTheTimeZoneOfTheProcess)
{
    const time_zone berlin("CET-1CEST,M3.5.0,M10.5.0/3");
    EXPECT_EQ(parse_time("20240101:01:00:00"), 1704067200);
}

TEST(TimeText, UseUtcOverridesTheTimeZone)
{
    const time_zone berlin("CET-1CEST,M3.5.0,M10.5.0/3");
    use_utc();
    EXPECT_EQ(parse_time("20240101:00:00:00"), 1704067200);
}

TEST(TimeText, AcceptsALeapSecond)
{
    const time_zone utc("UTC0");
    EXPECT_EQ(parse_time("20161231:23:59:60"), parse_time("20170101:00:00:00"));
}

TEST(TimeText, RefusesAnotherForm)
{
    for (const char *text :
         {"", "2024", "2024-01-01 00:00:00", "20240101:00:00", "2024010a:00:00:00",
          "20240101 00:00:00", "20240101:00:00:0", " 20240101:00:00:00"}) {
        EXPECT_THAT(refusal_of_time(text), HasSubstr("is not a time of the form YYYYMMDD:HH:MM:SS"))
            << text;
    }
}

TEST(TimeText, RefusesRemarksBehindTheSeconds)
{
    for (const char *text : {"20240101:00:00:00Z", "20240101:00:00:00+01:00",
                             "20240101:00:00:00 UTC", "20240101:00:00:00.5"}) {
        EXPECT_THAT(refusal_of_time(text), HasSubstr("goes on after the seconds")) << text;
    }
}

TEST(TimeText, RefusesDaysAndTimesThatThereAreNot)
{
    const time_zone utc("UTC0");
    for (const char *text : {"20230229:00:00:00", "20240001:00:00:00", "20241301:00:00:00",
                             "20240100:00:00:00", "20240431:00:00:00", "21000229:00:00:00"}) {
        EXPECT_THAT(refusal_of_time(text), HasSubstr("no such day")) << text;
    }
    for (const char *text : {"20240101:24:00:00", "20240101:00:60:00", "20240101:00:00:61"}) {
        EXPECT_THAT(refusal_of_time(text), HasSubstr("no such time of day")) << text;
    }
}

TEST(TimeText, RefusesTimesThatABoxCannotHold)
{
    const time_zone utc("UTC0");
    EXPECT_THAT(refusal_of_time("20380119:03:14:08"), HasSubstr("out of range"));
    EXPECT_EQ(refusal_of_time("20380119:03:14:07"), "(accepted)");
    EXPECT_THAT(refusal_of_time("19700101:00:00:00"), HasSubstr("second 0"));
}

TEST(TimeText, RefusesTheHourThatTheClockSkips)
{
    const time_zone berlin("CET-1CEST,M3.5.0,M10.5.0/3");
    EXPECT_THAT(refusal_of_time("20240331:02:30:00"), HasSubstr("does not exist"));
    EXPECT_EQ(refusal_of_time("20240331:03:00:00"), "(accepted)");
}

} // namespace
