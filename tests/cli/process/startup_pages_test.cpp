// Shows that a process has less memory when it has left the pages of its start, and runs on.
#include <fstream>
#include <gtest/gtest.h>
#include <link.h>
#include <string>
#include <unistd.h>

#include "process/startup_pages.hpp"

namespace
{

using namespace cli;

// The pages of files that this process has in its memory, in kB.
long file_pages()
{
    std::ifstream status("/proc/self/status");
    std::string word;
    long kilobytes = 0;
    while (status >> word) {
        if (word == "RssFile:") {
            status >> kilobytes;
        }
    }
    return kilobytes;
}

// Reads from each page of code and of constants, as a start that needed all of them.
// AddressSanitizer keeps places between constants that nobody is to read.
__attribute__((no_sanitize_address)) int touch_object(dl_phdr_info *object, size_t, void *)
{
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    for (int i = 0; i < object->dlpi_phnum; ++i) {
        const auto &segment = object->dlpi_phdr[i];
        const bool is_left = segment.p_type == PT_LOAD && (segment.p_flags & PF_W) == 0;
        const auto *bytes =
            reinterpret_cast<const volatile char *>(object->dlpi_addr + segment.p_vaddr);
        for (std::size_t at = 0; is_left && at < segment.p_filesz; at += page) {
            static_cast<void>(bytes[at]);
        }
    }
    return 0;
}

TEST(StartupPages, AreLeftAndComeBackWhereTheyAreNeeded)
{
    static std::string changed = "constant";
    changed += " that became another one";
    dl_iterate_phdr(touch_object, nullptr);
    const long before = file_pages();
    leave_startup_pages();
    const long after = file_pages();
    EXPECT_LT(after, before / 2);
    EXPECT_EQ(changed, "constant that became another one");
    EXPECT_EQ(std::to_string(1.5), "1.500000");
    dl_iterate_phdr(touch_object, nullptr);
    EXPECT_GT(file_pages(), after);
}

} // namespace
