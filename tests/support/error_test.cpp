// The cell that holds the last code, and the text of each code.
#include <algorithm>
#include <cctype>
#include <fstream>
#include <limits>
#include <regex>
#include <set>
#include <string>

#include <vesk/error.h>

#include "common/aborts.hpp"

TEST(Error, KeepsTheLastCodeUntilItIsSetAgain)
{
    qe_set_last_error(QE_ERROR_OPEN);
    EXPECT_EQ(-40, qe_get_last_error());
    qe_set_last_error(QE_ERROR_NO_MEMORY);
    EXPECT_EQ(-22, qe_get_last_error());
}

TEST(Error, ZeroClearsTheCell)
{
    qe_set_last_error(-6);
    qe_set_last_error(0);
    EXPECT_EQ(0, qe_get_last_error());
}

TEST(Error, RefusesPositiveCodes)
{
    EXPECT_ABORTS(qe_set_last_error(1), "err <= 0");
}

// The codes of the header itself, so that a new one cannot be forgotten.
static std::set<int> codes_of_the_header()
{
    std::ifstream header(VESK_ERROR_HEADER);
    const std::regex definition(R"(^\s*QE_ERROR_\w+ = (-\d+))");
    std::set<int> codes;
    std::smatch found;
    for (std::string line; std::getline(header, line);) {
        if (std::regex_search(line, found, definition)) {
            codes.insert(std::stoi(found[1]));
        }
    }
    return codes;
}

TEST(Error, EveryCodeHasATextOfItsOwn)
{
    const std::set<int> codes = codes_of_the_header();
    ASSERT_LE(17U, codes.size());
    std::set<std::string> texts = {qe_error_text(0), qe_error_text(1)};
    ASSERT_EQ(2U, texts.size());
    for (const int code : codes) {
        const std::string text = qe_error_text(code);
        EXPECT_TRUE(texts.insert(text).second) << code << ": " << text;
        EXPECT_TRUE(std::all_of(text.begin(), text.end(), [](char c) {
            return std::isprint(static_cast<unsigned char>(c)) != 0;
        })) << text;
    }
}

TEST(Error, NumbersThatAreNoCodesHaveAText)
{
    EXPECT_STREQ("no error", qe_error_text(0));
    const int low = std::numeric_limits<int>::min();
    const int high = std::numeric_limits<int>::max();
    for (const int number : {low, -1000, -53, -47, -5, 1, 40, high}) {
        EXPECT_STREQ("unknown error", qe_error_text(number)) << number;
    }
}

TEST(Error, AskingForATextLeavesTheCellAlone)
{
    qe_set_last_error(QE_ERROR_OPEN);
    EXPECT_STREQ("out of memory", qe_error_text(QE_ERROR_NO_MEMORY));
    EXPECT_STREQ("unknown error", qe_error_text(7));
    EXPECT_EQ(QE_ERROR_OPEN, qe_get_last_error());
}
