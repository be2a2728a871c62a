// The version: the same in the project, the header and the library.
#include <gtest/gtest.h>
#include <string>

#include <vesk/vesk_version.h>

TEST(Version, IsThatOfTheProjectInTheHeadersAndInTheLibrary)
{
    EXPECT_STREQ(VESK_PROJECT_VERSION, VESK_VERSION);
    EXPECT_STREQ(VESK_VERSION, vesk_version());
}

TEST(Version, HasItsPartsAsNumbers)
{
    EXPECT_EQ(VESK_VERSION, std::to_string(VESK_VERSION_MAJOR) + "." +
                                std::to_string(VESK_VERSION_MINOR) + "." +
                                std::to_string(VESK_VERSION_PATCH));
}
