// Death tests that compare the text of a violated precondition, in every build type.
#ifndef VESK_TESTS_COMMON_ABORTS_HPP
#define VESK_TESTS_COMMON_ABORTS_HPP

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

#define EXPECT_ABORTS(statement, text)                                                             \
    EXPECT_DEATH(statement, ::testing::HasSubstr(std::string("Assertion `") + (text) + "' failed."))

#endif
