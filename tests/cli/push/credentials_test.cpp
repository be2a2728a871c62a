// From where a password is taken, and when it is not.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "common/temporary_directory.hpp"
#include "process/failure.hpp"
#include "push/credentials.hpp"

namespace
{

using namespace cli;

class Credentials : public testing::Test
{
protected:
    Credentials()
    {
        unsetenv("VESK_PUSH_USER");
        unsetenv("VESK_PUSH_PASSWORD");
    }
    ~Credentials() override
    {
        unsetenv("VESK_PUSH_USER");
        unsetenv("VESK_PUSH_PASSWORD");
    }

    std::string file_with(const std::string &text, mode_t mode = 0600)
    {
        std::ofstream(path_) << text;
        EXPECT_EQ(chmod(path_.c_str(), mode), 0);
        return path_;
    }
    std::string refusal_of(const std::string &text, mode_t mode = 0600)
    {
        try {
            (void)find_credentials(file_with(text, mode), "");
        } catch (const failure &reason) {
            return reason.what();
        }
        return {};
    }

    temporary_directory folder_;
    std::string path_ = folder_.file("secret");
};

TEST_F(Credentials, AreNobodysWhereNothingIsTold)
{
    const credentials who = find_credentials("", "");
    EXPECT_EQ(who.user, "");
    EXPECT_EQ(who.password, "");
}

TEST_F(Credentials, AFileHoldsUserAndPassword)
{
    const credentials who =
        find_credentials(file_with("# of the fleet\n\nuser ann\npassword two words \n"), "");
    EXPECT_EQ(who.user, "ann");
    EXPECT_EQ(who.password, "two words ");
}

TEST_F(Credentials, TheUserOfTheUrlWins)
{
    EXPECT_EQ(find_credentials(file_with("user ann\npassword x"), "bob").user, "bob");
}

TEST_F(Credentials, TheEnvironmentHoldsThem)
{
    setenv("VESK_PUSH_USER", "ann", 1);
    setenv("VESK_PUSH_PASSWORD", "x", 1);
    EXPECT_EQ(find_credentials("", "").password, "x");
    EXPECT_EQ(find_credentials(file_with("user bob\npassword y\n"), "").password, "y");
    setenv("VESK_PUSH_PASSWORD", "x\ny", 1);
    EXPECT_THROW((void)find_credentials("", ""), failure);
}

TEST_F(Credentials, AFileThatOthersMayReadIsRefused)
{
    for (const mode_t mode : {0640U, 0604U, 0620U}) {
        EXPECT_NE(refusal_of("user ann\npassword x\n", mode).find("chmod 600"), std::string::npos);
    }
}

TEST_F(Credentials, WhatIsNoFileOfThemIsRefusedAndNotShown)
{
    const std::string told = refusal_of("hunter2\n");
    EXPECT_NE(told, "");
    EXPECT_EQ(told.find("hunter2"), std::string::npos);
    EXPECT_NE(refusal_of("password x\n"), "");
    EXPECT_NE(refusal_of("user \n"), "");
    EXPECT_NE(refusal_of("user a\nb\n"), "");
    EXPECT_NE(refusal_of(std::string(5000, '#')), "");
    EXPECT_THROW((void)find_credentials(folder_.path(), ""), failure);
    EXPECT_THROW((void)find_credentials(folder_.file("missing"), ""), failure);
}

} // namespace
