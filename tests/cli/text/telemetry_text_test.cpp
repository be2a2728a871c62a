// Text telemetry as an import reads it: what is a header, what is a line of values, what is
// refused.
#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/text/parser_test.hpp"
#include "text/telemetry_text.hpp"
#include "text/value_text.hpp"

namespace
{

using namespace cli;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using line_kind = telemetry_parser::line_kind;

using TelemetryText = parser_test<telemetry_parser>;

std::string at_new_year(const std::string &rest)
{
    return "20240101:00:00:00," + rest;
}

TEST_F(TelemetryText, ReadsAHeaderAndItsValues)
{
    EXPECT_EQ(parser.parse(at_new_year("::a,::b")), line_kind::header);
    EXPECT_THAT(parser.sensors(), ElementsAre("::a", "::b"));
    EXPECT_EQ(parser.parse("20240101:00:00:01,1.5,-2"), line_kind::values);
    EXPECT_EQ(parser.time(), 1704067201);
    EXPECT_EQ(parser.values()[0], 1.5F);
    EXPECT_EQ(parser.values()[1], -2.0F);
}

TEST_F(TelemetryText, FollowsANewHeader)
{
    parser.parse(at_new_year("::a,::b"));
    parser.parse(at_new_year("::c"));
    EXPECT_EQ(parser.parse(at_new_year("3")), line_kind::values);
    EXPECT_THAT(parser.sensors(), ElementsAre("::c"));
}

TEST_F(TelemetryText, SkipsBlankLines)
{
    EXPECT_EQ(parser.parse(""), line_kind::blank);
}

TEST_F(TelemetryText, RecognisesHeadersByTheWordsOfTheFormat)
{
    for (const char *names :
         {"cpu_r,mem", "mem,fan_Temp", "load,PACKETS", "x,V_core", "::SENSOR0", "a::b,N0"}) {
        EXPECT_TRUE(is_header_line(at_new_year(names))) << names;
    }
    for (const char *names : {"load,mem", "a::b", "::0", "1.5,nan", "1e5,-inf", "1,2,3"}) {
        EXPECT_FALSE(is_header_line(at_new_year(names))) << names;
    }
}

TEST_F(TelemetryText, AnyNumberMakesNoHeaderOfALineWithAWord)
{
    parser.parse(at_new_year("::a,::b"));
    EXPECT_THAT(refusal_of(at_new_year("1.5,temp")), HasSubstr("value 2 (::b): 'temp' is not a"));
    EXPECT_THAT(parser.sensors(), ElementsAre("::a", "::b"));
}

TEST_F(TelemetryText, RefusesValuesBeforeAHeader)
{
    EXPECT_THAT(refusal_of(at_new_year("1")), HasSubstr("before any header line"));
    EXPECT_THAT(refusal_of(at_new_year("load,mem")), HasSubstr("before any header line"));
}

TEST_F(TelemetryText, RefusesTooFewAndTooManyValues)
{
    parser.parse(at_new_year("::a,::b"));
    EXPECT_EQ(refusal_of(at_new_year("1")), "1 value for 2 sensors");
    EXPECT_EQ(refusal_of(at_new_year("1,2,3")), "3 values for 2 sensors");
    EXPECT_EQ(refusal_of(at_new_year("1,2,")), "3 values for 2 sensors");
    EXPECT_EQ(refusal_of(at_new_year("1,x,3")), "3 values for 2 sensors");
    EXPECT_EQ(refusal_of(at_new_year("1,2,x")), "3 values for 2 sensors");
    EXPECT_EQ(refusal_of(at_new_year("x")), "1 value for 2 sensors");
}

TEST_F(TelemetryText, RefusesAnEmptyValueInsteadOfShiftingTheOthers)
{
    parser.parse(at_new_year("::a,::b"));
    EXPECT_EQ(refusal_of(at_new_year(",2")),
              "value 1 (::a): is empty (a missing value is written nan)");
}

TEST_F(TelemetryText, NamesTheSensorOfARefusedValue)
{
    parser.parse(at_new_year("::a,::b"));
    EXPECT_EQ(refusal_of(at_new_year("1,1e40")),
              "value 2 (::b): '1e40' is too large for a single-precision number");
}

TEST_F(TelemetryText, RefusesLinesWithoutATime)
{
    EXPECT_THAT(refusal_of("time,::a,::b"), HasSubstr("is not a time"));
    EXPECT_THAT(refusal_of("::a"), HasSubstr("is not a time"));
    EXPECT_THAT(refusal_of("20240101:00:00:00Z,::a"), HasSubstr("goes on after the seconds"));
    EXPECT_EQ(refusal_of("20240101:00:00:00"), "nothing follows the time");
}

TEST_F(TelemetryText, RefusesNamesThatABoxCannotKeep)
{
    EXPECT_EQ(refusal_of(at_new_year("::a,,::b")), "the name of sensor 2 is empty");
    EXPECT_EQ(refusal_of(at_new_year("::a,::b,::a")), "two sensors are named '::a'");
    EXPECT_THAT(refusal_of(at_new_year("::" + std::string(9999, 'x'))), HasSubstr("10001 bytes"));
    EXPECT_EQ(refusal_of(at_new_year("::" + std::string(9998, 'x'))), "(accepted)");
}

TEST_F(TelemetryText, RefusesMoreThanTenThousandSensors)
{
    std::string names = "::first";
    for (int i = 1; i < 10000; ++i) {
        names += ",s" + std::to_string(i);
    }
    EXPECT_EQ(refusal_of(at_new_year(names)), "(accepted)");
    EXPECT_EQ(refusal_of(at_new_year(names + ",more")), "more than 10000 sensors");
}

TEST_F(TelemetryText, ARefusedHeaderLeavesTheOldOne)
{
    parser.parse(at_new_year("::a"));
    refusal_of(at_new_year("::b,::b"));
    EXPECT_THAT(parser.sensors(), ElementsAre("::a"));
}

TEST_F(TelemetryText, RefusesZeroBytes)
{
    EXPECT_EQ(refusal_of(std::string_view("20240101:00:00:00,::a\0b", 23)),
              "the line holds a zero byte");
}

TEST_F(TelemetryText, WritesLinesThatItReads)
{
    const std::string names[] = {"::a", "::b"};
    const float values[] = {0.1F, std::nanf("")};
    EXPECT_EQ(header_line(1704067200, names), "20240101:00:00:00,::a,::b\n");
    EXPECT_EQ(values_line(1704067200, values), "20240101:00:00:00,0.1,nan\n");
}

TEST_F(TelemetryText, ChangesNamesThatWouldBreakALine)
{
    EXPECT_EQ(representable_name("::a,b\nc"), "::a_b_c");
    EXPECT_EQ(representable_name("::a b"), "::a b");
    EXPECT_EQ(representable_name(""), "_");
    EXPECT_EQ(representable_name("\xc2\x9b\x9bz\xe2\x80\xae"), "__z_");
    EXPECT_EQ(representable_name("::\xc3\xa9"), "::\xc3\xa9");
}

TEST_F(TelemetryText, KeepsNamesApartThatWouldBecomeTheSame)
{
    const std::vector<std::string> names = {"a,b", "a_b", "a;b", "a\nb", "a_b_2"};
    const std::vector<std::string> expected = {"a_b_3", "a_b", "a;b", "a_b_4", "a_b_2"};
    EXPECT_EQ(representable_names(names), expected);
}

} // namespace
