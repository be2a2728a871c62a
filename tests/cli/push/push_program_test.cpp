// Where the program that pushes is looked for.
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>

#include "common/temporary_directory.hpp"
#include "process/failure.hpp"
#include "push/push_program.hpp"

namespace
{

using namespace cli;

TEST(PushProgram, IsFoundBesideTheCommandInABuild)
{
    const temporary_directory folder;
    const std::string path = folder.file("vesk-push");
    std::ofstream(path) << "x";
    std::filesystem::permissions(path, std::filesystem::perms::owner_all);
    EXPECT_EQ(find_push_program(folder.file("vesk")), path);
}

TEST(PushProgram, ThatIsMissingIsToldWithWhatToInstall)
{
    const temporary_directory folder;
    try {
        (void)find_push_program(folder.file("bin/vesk"));
        FAIL();
    } catch (const failure &reason) {
        EXPECT_EQ(reason.code(), exit_failed);
        EXPECT_NE(std::string(reason.what()).find("install the package vesk-push"),
                  std::string::npos);
    }
}

} // namespace
