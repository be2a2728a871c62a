// CSV with samples: what is read, and what is refused with its column.
#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/text/parser_test.hpp"
#include "text/csv_text.hpp"
#include "text/value_text.hpp"

namespace
{

using namespace cli;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using line_kind = sample_parser::line_kind;

using CsvText = parser_test<csv_parser>;

TEST_F(CsvText, TheFirstLineNamesTheSensors)
{
    EXPECT_EQ(parser.parse("\xef\xbb\xbftime,a,\"b,\"\"c\""), line_kind::header);
    EXPECT_THAT(parser.sensors(), ElementsAre("a", "b,\"c"));
    EXPECT_EQ(parser.parse("2024-01-01T00:00:00Z,1.5,\"-2\""), line_kind::values);
    EXPECT_EQ(parser.time(), 1704067200);
    EXPECT_THAT(parser.values(), ElementsAre(1.5F, -2.0F));
    EXPECT_EQ(parser.parse(""), line_kind::blank);
}

TEST_F(CsvText, AnEmptyFieldIsMissing)
{
    (void)parser.parse("time,a,b,c,d");
    (void)parser.parse("@5,, ,\"\",nan");
    ASSERT_EQ(parser.values().size(), 4U);
    for (const float value : parser.values()) {
        EXPECT_TRUE(std::isnan(value));
    }
}

TEST_F(CsvText, OfATableOfFetchOnlyRawRowsAreTaken)
{
    (void)parser.parse("time,kind,seconds,::a");
    EXPECT_THAT(parser.sensors(), ElementsAre("::a"));
    (void)parser.parse("2024-01-01T00:00:00Z,raw,0,7");
    EXPECT_THAT(parser.values(), ElementsAre(7.0F));
    EXPECT_THAT(refusal_of("2024-01-01T00:00:00Z,interval,60,7"),
                HasSubstr("column 2: 'interval' is no raw sample"));
}

TEST_F(CsvText, WrongLinesAreRefusedWithTheirColumn)
{
    (void)parser.parse("time,a,b");
    EXPECT_THAT(refusal_of("20240101:00:00:00,1"), HasSubstr("2 columns where the header has 3"));
    EXPECT_THAT(refusal_of("20240101:00:00:00,1,2,"), HasSubstr("4 columns where"));
    EXPECT_THAT(refusal_of("yesterday,1,2"), HasSubstr("column 1: 'yesterday' is not a time"));
    EXPECT_THAT(refusal_of("20240101:00:00:00,1,x"),
                HasSubstr("column 3 (b): 'x' is not a number"));
    EXPECT_THAT(refusal_of("20240101:00:00:00,\"1,2"), HasSubstr("column 2: the quotation mark"));
    EXPECT_THAT(refusal_of("20240101:00:00:00,\"1\"2,3"), HasSubstr("column 2: something follows"));
    EXPECT_THAT(refusal_of(std::string("20240101:00:00:00,\0,3", 21)), HasSubstr("zero byte"));
    EXPECT_EQ(parser.parse("20240101:00:00:00,1,2"), line_kind::values);
}

TEST_F(CsvText, HeadersThatNameNoSensorsAreRefused)
{
    EXPECT_THAT(refusal_of("time;a;b"), HasSubstr("one column"));
    EXPECT_THAT(refusal_of("2024-01-01T00:00:00Z,1,2"), HasSubstr("must name the columns"));
    EXPECT_THAT(refusal_of("time,a,a"), HasSubstr("two sensors are named 'a'"));
    EXPECT_THAT(refusal_of("time,a,"), HasSubstr("the name of sensor 2 is empty"));
    EXPECT_THAT(refusal_of("time," + std::string(10001, 'x')), HasSubstr("10001 bytes"));
    std::string many = "time";
    for (int i = 0; i <= 10000; ++i) {
        many += ",x";
        many += std::to_string(i);
    }
    EXPECT_THAT(refusal_of(many), HasSubstr("more than 10000"));
}

TEST(SplitCsv, KeepsEmptyFieldsAndAllMarks)
{
    std::vector<std::string> fields;
    split_csv(",a,\"\",\"\"\"\",", fields);
    EXPECT_THAT(fields, ElementsAre("", "a", "", "\"", ""));
    split_csv("", fields);
    EXPECT_THAT(fields, ElementsAre(""));
    split_csv("a\"b,c", fields);
    EXPECT_THAT(fields, ElementsAre("a\"b", "c"));
}

} // namespace
