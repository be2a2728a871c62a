// Which replies are worth another attempt.
#include <gtest/gtest.h>

#include "push/reply_class.hpp"

namespace
{

using namespace cli;

reply_class of_clickhouse(long status, std::string_view text)
{
    return classify_reply(engine_kind::clickhouse, status, text);
}

TEST(ReplyClass, ASuccessIsTaken)
{
    EXPECT_EQ(of_clickhouse(200, ""), reply_class::taken);
    EXPECT_EQ(of_clickhouse(204, ""), reply_class::taken);
}

TEST(ReplyClass, AnExceptionBehindTheHeadOfASuccessIsNone)
{
    EXPECT_EQ(of_clickhouse(200, "1\t2\nCode: 241, e.displayText() = Memory limit"),
              reply_class::passing);
    EXPECT_EQ(of_clickhouse(200, "Code: 47, e.displayText() = Unknown identifier"),
              reply_class::permanent);
}

TEST(ReplyClass, TheCodeDecidesBeforeTheStatus)
{
    for (const int code : {159, 202, 209, 210, 241, 242, 243, 252, 279, 319, 999}) {
        EXPECT_EQ(of_clickhouse(500, "Code: " + std::to_string(code) + ", e.displayText() = x"),
                  reply_class::passing)
            << code;
    }
    for (const int code : {16, 27, 33, 53, 60, 62, 81, 164, 192, 193, 194, 497, 516}) {
        EXPECT_EQ(of_clickhouse(500, "Code: " + std::to_string(code) + ", e.displayText() = x"),
                  reply_class::permanent)
            << code;
    }
}

TEST(ReplyClass, WithoutACodeTheStatusDecides)
{
    for (const long status : {408, 429, 500, 502, 503, 504}) {
        EXPECT_EQ(of_clickhouse(status, "<html>"), reply_class::passing) << status;
    }
    for (const long status : {301, 302, 400, 401, 403, 404, 411, 413, 501}) {
        EXPECT_EQ(of_clickhouse(status, "Code: x"), reply_class::permanent) << status;
    }
}

TEST(ReplyClass, AStoreOfMetricsRefusesWrongTimesForGood)
{
    const auto of_store = [](long status, std::string_view text) {
        return classify_reply(engine_kind::remote_write, status, text);
    };
    EXPECT_EQ(of_store(204, ""), reply_class::taken);
    EXPECT_EQ(of_store(500, "too old sample"), reply_class::permanent);
    EXPECT_EQ(of_store(400, "out of order sample"), reply_class::permanent);
    EXPECT_EQ(of_store(500, "no space left"), reply_class::passing);
    EXPECT_EQ(of_store(400, "snappy"), reply_class::permanent);
    EXPECT_TRUE(tells_wrong_time("x refuses: HTTP 400: out of bounds"));
    EXPECT_FALSE(tells_wrong_time("x refuses: HTTP 400: snappy"));
}

TEST(ReplyClass, WordsAreOneShortPrintableLine)
{
    EXPECT_EQ(reply_words(404, "Code: 60, e.displayText() = DB::Exception: no table, e.what() = "
                               "DB::Exception\nmore"),
              "HTTP 404: Code: 60, e.displayText() = DB::Exception: no table");
    EXPECT_EQ(reply_words(500, ""), "HTTP 500");
    EXPECT_EQ(reply_words(500, "a\x1b[31m"), "HTTP 500: a?[31m");
    EXPECT_LT(reply_words(500, std::string(100'000, 'x')).size(), 400U);
}

} // namespace
