// Names that a format makes equal.
#include <algorithm>
#include <ctime>
#include <gtest/gtest.h>

#include "text/distinct_names.hpp"

namespace
{

using namespace cli;

using name_list = std::vector<std::string>;

std::string without_digits(std::string name)
{
    std::replace_if(
        name.begin(), name.end(), [](char c) { return c >= '0' && c <= '9'; }, '#');
    return name;
}

TEST(DistinctNames, EqualNamesGetNumbers)
{
    EXPECT_EQ(distinct_names(name_list{"a1", "a2", "b", "a3"}, without_digits),
              (name_list{"a#", "a#_2", "b", "a#_3"}));
}

TEST(DistinctNames, ANameThatStaysAsItIsHasPrecedence)
{
    EXPECT_EQ(distinct_names(name_list{"a1", "a2", "a#"}, without_digits),
              (name_list{"a#_2", "a#_3", "a#"}));
}

TEST(DistinctNames, ANumberThatANameHasIsLeftOut)
{
    const auto first_letter = [](const std::string &name) {
        return name.ends_with("_2") ? name : name.substr(0, 1);
    };
    EXPECT_EQ(distinct_names(name_list{"ab", "ac", "a_2", "ad"}, first_letter),
              (name_list{"a", "a_3", "a_2", "a_4"}));
}

// A box may hold so many names, and who made it may have chosen them.
TEST(DistinctNames, ManyEqualNamesCostNoMoreThanOthers)
{
    constexpr int count = 65536;
    name_list hostile;
    for (int i = 0; i < count; ++i) {
        std::string name = std::to_string(i);
        hostile.push_back(std::string(8 - name.size(), '0') + name);
    }
    const std::clock_t begin = std::clock();
    const name_list found = distinct_names(hostile, without_digits);
    EXPECT_LT(static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC, 5);
    EXPECT_EQ(found.front(), "########");
    EXPECT_EQ(found.back(), "########_65536");
}

} // namespace
