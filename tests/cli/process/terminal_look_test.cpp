// What a terminal can show.
#include <cstdlib>
#include <gtest/gtest.h>

#include "process/terminal_look.hpp"

namespace
{

using namespace cli;

TEST(TerminalLook, TheFirstVariableThatIsSetTellsTheLocale)
{
    EXPECT_TRUE(is_utf8_locale(nullptr, nullptr, "de_DE.UTF-8"));
    EXPECT_TRUE(is_utf8_locale(nullptr, "C.utf8", "C"));
    EXPECT_TRUE(is_utf8_locale("", "", "en_US.utf-8@euro"));
    EXPECT_FALSE(is_utf8_locale("C", nullptr, "de_DE.UTF-8"));
    EXPECT_FALSE(is_utf8_locale(nullptr, "de_DE.ISO-8859-1", "de_DE.UTF-8"));
    EXPECT_FALSE(is_utf8_locale(nullptr, nullptr, nullptr));
    EXPECT_FALSE(is_utf8_locale(nullptr, nullptr, "POSIX"));
}

TEST(TerminalLook, SizesThatAreNoneAreNotTaken)
{
    for (const char *wrong : {"", "0", "-5", "80x", "99999999999999999999", " 80"}) {
        setenv("COLUMNS", wrong, 1);
        EXPECT_EQ(look_of_output().width, 80U) << wrong;
    }
    setenv("COLUMNS", "132", 1);
    setenv("LINES", "4000000", 1);
    EXPECT_EQ(look_of_output().width, 132U);
    EXPECT_EQ(look_of_output().height, 10000U);
    unsetenv("COLUMNS");
    unsetenv("LINES");
}

} // namespace
