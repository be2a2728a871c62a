// What the tests of the two readers of samples have in common: UTC, and why a line is refused.
#ifndef VESK_TESTS_CLI_TEXT_PARSER_TEST_HPP
#define VESK_TESTS_CLI_TEXT_PARSER_TEST_HPP

#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>
#include <string>
#include <string_view>

#include "text/value_text.hpp"

namespace cli
{

template <typename Parser>
class parser_test : public ::testing::Test
{
protected:
    parser_test()
    {
        setenv("TZ", "UTC0", 1);
        tzset();
    }

    std::string refusal_of(std::string_view line)
    {
        try {
            (void)parser.parse(line);
        } catch (const bad_text &reason) {
            return reason.what();
        }
        return "(accepted)";
    }

    Parser parser;
};

} // namespace cli

#endif
